// Registry caches keyed by caller-owned addresses, the weak tables built on them and the
// metatable of invalidated native object proxies.
#include <tqkernel/toolkit.h>

#include <cstdio>

#include "toolkit/assert.h"

namespace {

// Each weak mode's metatable is cached under the address of its mode text.
constexpr char kWeakValues[] = "v";
constexpr char kWeakKeys[] = "k";
constexpr char kFullyWeak[] = "kv";
// The key of the invalidated-proxy metatable in its cache.
constexpr char kInvalidatedProxyKey = 0;

constexpr char kUnknown[] = "< unknown >";

void *lightKey(const void *address) { return const_cast<void *>(address); }

// Leaves the cache registry[name] and its raw entry at udRef on top (the entry nil when
// absent), creating the cache when it is missing.
void pushCacheAndEntry(lua_State *L, const char *name, const void *udRef) {
  TQ_ASSERT(L, udRef != 0);
  lua_getfield(L, LUA_REGISTRYINDEX, name);
  if (lua_isnil(L, -1)) {
    lua_pop(L, 1);
    lua_newtable(L);
    lua_pushvalue(L, -1);
    lua_setfield(L, LUA_REGISTRYINDEX, name);
  }
  lua_pushlightuserdata(L, lightKey(udRef));
  lua_rawget(L, -2);
}

// Gives the table on top the state's shared metatable for the weak mode.
void setModeMetatable(lua_State *L, const char *mode) {
  if (TqLua_pushCachedTable(L, "mode metatable", mode)) {
    lua_pushliteral(L, "__mode");
    lua_pushstring(L, mode);
    lua_rawset(L, -3);
  }
  TQ_ASSERT(L, lua_setmetatable( L, -2 ));
}

int pushCachedWeakTable(lua_State *L, const char *name, const void *udRef, const char *mode) {
  const int created = TqLua_pushCachedTable(L, name, udRef);
  if (created) setModeMetatable(L, mode);
  return created;
}

int makeWeakTable(lua_State *L, const char *mode) {
  lua_newtable(L);
  setModeMetatable(L, mode);
  return 1;
}

// __index and __newindex of an invalidated proxy: (proxy, key [, value]).
int refuseInvalidatedAccess(lua_State *L) {
  char number[32];
  const char *key = kUnknown;
  if (lua_type(L, 2) == LUA_TSTRING) {
    key = lua_tostring(L, 2);
  } else if (lua_type(L, 2) == LUA_TNUMBER) {
    std::snprintf(number, sizeof number, "%.14g", lua_tonumber(L, 2));
    key = number;
  }
  TqLua_errorText(L, "Attempted to access an invalidated native object proxy \"%s\" for key \"%s\"",
                  kUnknown, key);
}

int describeInvalidatedProxy(lua_State *L) {
  lua_pushfstring(L, "Invalidated native object proxy \"%s\"", kUnknown);
  return 1;
}

}  // namespace

int TqLua_pushCachedTable(lua_State *L, const char *name, const void *udRef) {
  pushCacheAndEntry(L, name, udRef);
  if (!lua_isnil(L, -1)) {
    lua_remove(L, -2);
    return 0;
  }
  lua_pop(L, 1);
  lua_newtable(L);
  lua_pushlightuserdata(L, lightKey(udRef));
  lua_pushvalue(L, -2);
  lua_rawset(L, -4);
  lua_remove(L, -2);
  return 1;
}

int TqLua_pushOptCachedTable(lua_State *L, const char *name, const void *udRef) {
  pushCacheAndEntry(L, name, udRef);
  lua_remove(L, -2);
  if (!lua_isnil(L, -1)) return 1;
  lua_pop(L, 1);
  return 0;
}

int TqLua_pushCachedWeakValuedTable(lua_State *L, const char *name, const void *udRef) {
  return pushCachedWeakTable(L, name, udRef, kWeakValues);
}

int TqLua_pushCachedWeakKeyedTable(lua_State *L, const char *name, const void *udRef) {
  return pushCachedWeakTable(L, name, udRef, kWeakKeys);
}

int TqLua_pushCachedFullyWeakTable(lua_State *L, const char *name, const void *udRef) {
  return pushCachedWeakTable(L, name, udRef, kFullyWeak);
}

int TqLua_pushCachedLiteral_imp(lua_State *L, const char *text, size_t length) {
  if (!text) {  // nothing to read, nor to intern
    lua_pushliteral(L, "");
    return 1;
  }
  lua_pushlightuserdata(L, lightKey(text));
  lua_rawget(L, LUA_REGISTRYINDEX);
  if (!lua_isnil(L, -1)) return 1;
  lua_pop(L, 1);
  lua_pushlstring(L, text, length);
  lua_pushlightuserdata(L, lightKey(text));
  lua_pushvalue(L, -2);
  lua_rawset(L, LUA_REGISTRYINDEX);
  return 1;
}

int TqLua_makeWeakValuedTable(lua_State *L) { return makeWeakTable(L, kWeakValues); }

int TqLua_makeWeakKeyedTable(lua_State *L) { return makeWeakTable(L, kWeakKeys); }

int TqLua_makeFullyWeakTable(lua_State *L) { return makeWeakTable(L, kFullyWeak); }

int TqLua_makeWeakTable(lua_State *L, int weakKeys, int weakValues) {
  if (weakKeys && weakValues) return TqLua_makeFullyWeakTable(L);
  if (weakKeys) return TqLua_makeWeakKeyedTable(L);
  if (weakValues) return TqLua_makeWeakValuedTable(L);
  lua_newtable(L);
  return 1;
}

void TqLua_invalidateProxyUserdata(lua_State *L, int index) {
  index = TqLua_normalize(L, index);
  if (TqLua_pushCachedTable(L, "invalidatedProxyMetatable", &kInvalidatedProxyKey)) {
    lua_pushcfunction(L, refuseInvalidatedAccess);
    lua_setfield(L, -2, "__index");
    lua_pushcfunction(L, refuseInvalidatedAccess);
    lua_setfield(L, -2, "__newindex");
    lua_pushcfunction(L, describeInvalidatedProxy);
    lua_setfield(L, -2, "__tostring");
  }
  lua_setmetatable(L, index);
}
