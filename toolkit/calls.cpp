// Calling into Lua objects and pushing native functions: message sending, C-function
// pushers and the autorelease-pool call.
#include <tqkernel/toolkit.h>

#include "toolkit/assert.h"

namespace {

constexpr char kUnknownName[] = "< unknown >";

// The object, its inCount arguments and the message name stand on top of the stack;
// name is the message's text for the error.
int send(lua_State *L, const char *name, int inCount, int outCount) {
  const int msgIndex = lua_gettop(L);
  TQ_ASSERT(L, 0 <= inCount);
  TQ_ASSERT(L, 2 + inCount <= msgIndex);
  if (lua_type(L, msgIndex) != LUA_TSTRING) luaL_typerror(L, msgIndex, "message identifier");
  const int objectIndex = msgIndex - inCount - 1;
  if (!TqLua_getMethod(L, objectIndex)) TqLua_errorText(L, "method not found: %s", name);
  lua_insert(L, objectIndex);
  lua_call(L, inCount + 1, outCount);
  return lua_gettop(L) - objectIndex + 1;
}

}  // namespace

int TqLua_send_imp(lua_State *L, const char *name, size_t length, int inCount, int outCount) {
  TqLua_pushCachedLiteral_imp(L, name, length);
  return send(L, name, inCount, outCount);
}

int TqLua_stackSend(lua_State *L, int inCount, int outCount) {
  return send(L, kUnknownName, inCount, outCount);
}

int TqLua_pushCClosure(lua_State *L, lua_CFunction func, int values) {
  TQ_ASSERT(L, 0 <= values);
  TQ_ASSERT(L, func || !values);
  if (func) {
    lua_pushcclosure(L, func, values);
  } else {
    lua_pushnil(L);
  }
  return 1;
}

int TqLua_pushCFunctionWithUDRef(lua_State *L, lua_CFunction func, const void *key) {
  TQ_ASSERT(L, func);
  if (!key) {
    lua_pushcfunction(L, func);
    return 1;
  }
  TqLua_rawGetUD(L, LUA_REGISTRYINDEX, key);
  if (!lua_isnil(L, -1)) return 1;
  lua_pop(L, 1);
  lua_pushcfunction(L, func);
  lua_pushlightuserdata(L, const_cast<void *>(key));
  lua_pushvalue(L, -2);
  lua_rawset(L, LUA_REGISTRYINDEX);
  return 1;
}

int TqLua_callWithAutoReleasePool(lua_State *L) {
  TqLua_checkAny(L, 1);
  lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
  return lua_gettop(L);
}
