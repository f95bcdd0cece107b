// Method lookup, dereferencing and small table operations.
#include <tqkernel/toolkit.h>

#include "toolkit/assert.h"

namespace {

// Pushes the lookup of the name at nameIndex on the object at objectIndex (both absolute):
// from the method table in the metatable's "__hasmethods" when there is one (returns
// true), else object[name] with metamethods (nil for a nil object; returns false).
bool pushMethodLookup(lua_State *L, int objectIndex, int nameIndex) {
  if (lua_getmetatable(L, objectIndex)) {
    lua_getfield(L, -1, "__hasmethods");
    lua_remove(L, -2);
    if (!lua_isnil(L, -1)) {
      lua_pushvalue(L, nameIndex);
      TqLua_getTable(L, -2);
      lua_remove(L, -2);
      return true;
    }
    lua_pop(L, 1);
  }
  if (lua_isnoneornil(L, objectIndex)) {
    lua_pushnil(L);
  } else {
    lua_pushvalue(L, nameIndex);
    lua_gettable(L, objectIndex);
  }
  return false;
}

bool isCallableKind(int type) {
  return type == LUA_TTABLE || type == LUA_TFUNCTION || type == LUA_TUSERDATA;
}

}  // namespace

int TqLua_getMethod(lua_State *L, int objectIndex) {
  TqLua_checkString(L, -1);
  objectIndex = TqLua_normalize(L, objectIndex);
  const bool fromMethodTable = pushMethodLookup(L, objectIndex, lua_gettop(L));
  const int type = lua_type(L, -1);
  if (fromMethodTable ? type != LUA_TNIL : isCallableKind(type)) {
    lua_replace(L, -2);
    return 1;
  }
  lua_pop(L, 2);
  return 0;
}

int TqLua_getMethodByName(lua_State *L, int objectIndex, const char *name) {
  objectIndex = TqLua_normalize(L, objectIndex);
  if (lua_isnoneornil(L, objectIndex)) return 0;
  lua_pushstring(L, name);
  pushMethodLookup(L, objectIndex, lua_gettop(L));
  lua_remove(L, -2);
  if (!lua_isnil(L, -1)) return 1;
  lua_pop(L, 1);
  return 0;
}

void TqLua_getTable(lua_State *L, int tableIndex) {
  if (lua_isnil(L, tableIndex) || lua_isnil(L, -1)) {
    lua_pop(L, 1);
    lua_pushnil(L);
  } else {
    lua_gettable(L, tableIndex);
  }
}

void TqLua_deref(lua_State *L) {
  lua_gettable(L, -2);
  lua_remove(L, -2);
}

void TqLua_rawDeref(lua_State *L) {
  TQ_ASSERT(L, lua_istable(L, -2));
  lua_rawget(L, -2);
  lua_remove(L, -2);
}

void TqLua_rawDerefIndexed(lua_State *L, int n) {
  TQ_ASSERT(L, lua_istable(L, -1));
  lua_rawgeti(L, -1, n);
  lua_remove(L, -2);
}

void TqLua_rawGetUD(lua_State *L, int source, const void *pointer) {
  TQ_ASSERT(L, lua_istable(L, source));
  source = TqLua_normalize(L, source);
  lua_pushlightuserdata(L, const_cast<void *>(pointer));
  lua_rawget(L, source);
}

void TqLua_addFunctionsToTable(lua_State *L, int tableIndex, const luaL_Reg *functions) {
  if (!functions) return;
  tableIndex = TqLua_normalize(L, tableIndex);
  for (const luaL_Reg *entry = functions; entry->name || entry->func; ++entry) {
    const char *key = entry->name;
    const lua_CFunction function = entry->func;
    TQ_ASSERT(L, key);
    TQ_ASSERT(L, function);
    lua_pushcfunction(L, function);
    lua_setfield(L, tableIndex, key);
  }
}

int TqLua_chain(lua_State *L) {
  lua_settop(L, 1);
  return 1;
}

int TqLua_shallowCopy(lua_State *L, int index) {
  index = TqLua_normalize(L, index);
  switch (lua_type(L, index)) {
    case LUA_TNIL:
    case LUA_TBOOLEAN:
    case LUA_TLIGHTUSERDATA:
    case LUA_TNUMBER:
    case LUA_TSTRING:
    case LUA_TFUNCTION:
      lua_pushvalue(L, index);
      return 1;
    case LUA_TTABLE:
      break;
    default:
      return 0;
  }
  luaL_checkstack(L, 4, "copying table");
  lua_newtable(L);
  lua_pushnil(L);
  while (lua_next(L, index)) {
    lua_pushvalue(L, -2);
    lua_insert(L, -2);
    lua_rawset(L, -4);
  }
  if (lua_getmetatable(L, index)) lua_setmetatable(L, -2);
  return 1;
}
