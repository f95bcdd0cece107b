#include <tqkernel/toolkit.h>

#include <cstdio>

namespace {

// Short description of the value at index, pushed on L.
const char *pushShortDescription(lua_State *L, int index) {
  switch (lua_type(L, index)) {
    case LUA_TNONE: lua_pushliteral(L, "none"); break;
    case LUA_TNIL: lua_pushliteral(L, "nil"); break;
    case LUA_TBOOLEAN: lua_pushstring(L, lua_toboolean(L, index) ? "true" : "false"); break;
    case LUA_TLIGHTUSERDATA: lua_pushliteral(L, "aLightData"); break;
    case LUA_TNUMBER: lua_pushfstring(L, "%f", lua_tonumber(L, index)); break;
    case LUA_TSTRING: lua_pushfstring(L, "\"%s\"", lua_tostring(L, index)); break;
    case LUA_TTABLE: lua_pushliteral(L, "aTable"); break;
    case LUA_TFUNCTION: lua_pushliteral(L, "aFunction"); break;
    case LUA_TUSERDATA: lua_pushliteral(L, "aHeavyData"); break;
    case LUA_TTHREAD: lua_pushliteral(L, "aThread"); break;
    default: lua_pushliteral(L, "Unknown lua type in TqLua_shortStringDescription"); break;
  }
  return lua_tostring(L, -1);
}

}  // namespace

void TqLua_dumpStack(lua_State *L, const char *label) {
  if (!L) {
    std::printf("nil is not a valid Lua state.\n");
    return;
  }
  // The listing is built but not written: dumps may stay in code at no output cost.
  const int top = lua_gettop(L);
  luaL_checkstack(L, 4, "dumping the stack");
  if (label) {
    lua_pushfstring(L, "%s\n", label);
  } else {
    lua_pushliteral(L, "");
  }
  for (int index = top; index >= 1; --index) {
    pushShortDescription(L, index);
    lua_pushfstring(L, "%d) %s\n", index, lua_tostring(L, -1));
    lua_remove(L, -2);
    lua_concat(L, 2);
  }
  lua_pushliteral(L, "----------------------");
  lua_concat(L, 2);
  lua_settop(L, top);
}
