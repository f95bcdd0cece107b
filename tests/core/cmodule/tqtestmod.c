/* A Lua extension module in C, built against the stock Lua 5.1 headers and linked against no
 * Lua library: the host process provides the Lua C API. */
#include <lua.h>
#include <lauxlib.h>

/* range(n): the table {1, ..., n}. */
static int range(lua_State *L) {
  int n = luaL_checkint(L, 1), i;
  lua_createtable(L, n, 0);
  for (i = 1; i <= n; i++) lua_pushinteger(L, i), lua_rawseti(L, -2, i);
  return 1;
}

/* map(t, f): a new table of f(t[i]), calling back into Lua unprotected, so that an error
 * raised by f passes through this C frame. */
static int map(lua_State *L) {
  int n, i;
  luaL_checktype(L, 1, LUA_TTABLE);
  luaL_checktype(L, 2, LUA_TFUNCTION);
  n = (int)lua_objlen(L, 1);
  lua_createtable(L, n, 0);
  for (i = 1; i <= n; i++) {
    lua_pushvalue(L, 2);
    lua_rawgeti(L, 1, i);
    lua_call(L, 1, 1);
    lua_rawseti(L, -2, i);
  }
  return 1;
}

/* fail(text): raises "tqtestmod: <text>" with the caller's position. */
static int fail(lua_State *L) { return luaL_error(L, "tqtestmod: %s", luaL_checkstring(L, 1)); }

/* protect(f, ...): lua_pcall from C; returns the status and the results or the error. */
static int protect(lua_State *L) {
  luaL_checktype(L, 1, LUA_TFUNCTION);
  lua_pushinteger(L, lua_pcall(L, lua_gettop(L) - 1, LUA_MULTRET, 0));
  lua_insert(L, 1);
  return lua_gettop(L);
}

static const luaL_Reg functions[] = {{"range", range}, {"map", map}, {"fail", fail}, {"protect", protect}, {NULL, NULL}};

int luaopen_tqtestmod(lua_State *L) {
  luaL_register(L, "tqtestmod", functions);
  lua_pushliteral(L, "tqtestmod 1");
  lua_setfield(L, -2, "version");
  return 1;
}
