/* A native Lua module, loaded by require in the host-hook tests. */
#include <tqkernel/lua_api.h>

static int answer(lua_State *L) {
  lua_pushinteger(L, 42);
  return 1;
}

int luaopen_tqnative(lua_State *L) {
  lua_newtable(L);
  lua_pushcfunction(L, answer);
  lua_setfield(L, -2, "answer");
  return 1;
}
