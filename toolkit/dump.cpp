// Short descriptions of values, and the stack and value dumps. The dumps are built but
// handed to the empty debug writer, so that they may stay in code at no output cost.
#include <tqkernel/toolkit.h>

#include <cstdio>

const char *TqLua_shortStringDescription(lua_State *source, lua_State *target, int index) {
  switch (TqLua_type(source, index)) {
    case kTqLuaTypeNativeObject: lua_pushliteral(target, "aNativeObject"); break;
    case LUA_TNONE: lua_pushliteral(target, "none"); break;
    case LUA_TNIL: lua_pushliteral(target, "nil"); break;
    case LUA_TBOOLEAN: lua_pushstring(target, lua_toboolean(source, index) ? "true" : "false"); break;
    case LUA_TLIGHTUSERDATA: lua_pushliteral(target, "aLightData"); break;
    case LUA_TNUMBER: lua_pushfstring(target, "%f", lua_tonumber(source, index)); break;
    case LUA_TSTRING: lua_pushfstring(target, "\"%s\"", lua_tostring(source, index)); break;
    case LUA_TTABLE: lua_pushliteral(target, "aTable"); break;
    case LUA_TFUNCTION: lua_pushliteral(target, "aFunction"); break;
    case LUA_TUSERDATA: lua_pushliteral(target, "aHeavyData"); break;
    case LUA_TTHREAD: lua_pushliteral(target, "aThread"); break;
    default: lua_pushliteral(target, "Unknown lua type in TqLua_shortStringDescription"); break;
  }
  return lua_tostring(target, -1);
}

const char *TqLua_stringDescription(lua_State *source, lua_State *target, int index) {
  return TqLua_shortStringDescription(source, target, index);
}

void TqLua_dumpStack(lua_State *L, const char *label) {
  if (!L) {
    std::printf("nil is not a valid Lua state.\n");
    return;
  }
  const int top = lua_gettop(L);
  luaL_checkstack(L, 4, "dumping the stack");
  if (label) {
    lua_pushfstring(L, "%s\n", label);
  } else {
    lua_pushliteral(L, "");
  }
  for (int index = top; index >= 1; --index) {
    TqLua_shortStringDescription(L, L, index);
    lua_pushfstring(L, "%d) %s\n", index, lua_tostring(L, -1));
    lua_remove(L, -2);
    lua_concat(L, 2);
  }
  lua_pushliteral(L, "----------------------");
  lua_concat(L, 2);
  TqLua_debugLogString(lua_tostring(L, -1));
  lua_settop(L, top);
}

void TqLua_dumpStackVerbose(lua_State *L, const char *label) { TqLua_dumpStack(L, label); }

void TqLua_dumpStackComment(lua_State *L, const char *comment) { TqLua_dumpStack(L, comment); }

void dumpState(lua_State *L) { TqLua_dumpStack(L, ""); }

void TqLua_dumpValue(lua_State *L, int index, const char *label) {
  if (!L) return;
  luaL_checkstack(L, 2, "dumping a value");
  const char *description = TqLua_shortStringDescription(L, L, index);
  TqLua_debugLogString(lua_pushfstring(L, "%s %s", label ? label : "", description));
  lua_pop(L, 2);
}

void dumpValue(lua_State *L, int index) { TqLua_dumpValue(L, index, ""); }
