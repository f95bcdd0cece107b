// Native enumerations seen from Lua as names, through one cached lookup table per state
// and record.
#include <tqkernel/toolkit.h>

#include <cstdio>
#include <cstring>

namespace {

const char *typeNameOf(const TqNamedIntegers *record) {
  return record->typeName ? record->typeName : "< unknown >";
}

}  // namespace

int TqNamedIntegers_getByName(const TqNamedIntegers *record, const char *name, int32_t *value) {
  if (!record || !record->entries || !name) return 0;
  for (const TqNamedInteger *entry = record->entries; entry->name; ++entry) {
    if (std::strcmp(entry->name, name) == 0) {
      if (value) *value = entry->value;
      return 1;
    }
  }
  return 0;
}

int TqLua_pushCachedNamedIntegersTable(lua_State *L, const TqNamedIntegers *record) {
  if (!TqLua_pushCachedTable(L, "cachedNamedIntegers", record) || !record->entries) return 1;
  for (const TqNamedInteger *entry = record->entries; entry->name; ++entry) {
    lua_pushinteger(L, entry->value);
    lua_setfield(L, -2, entry->name);
    lua_pushinteger(L, entry->value);
    lua_pushstring(L, entry->name);
    lua_settable(L, -3);
  }
  return 1;
}

int TqLua_pushNamedInteger(lua_State *L, int32_t value, const TqNamedIntegers *record) {
  TqLua_pushCachedNamedIntegersTable(L, record);
  lua_rawgeti(L, -1, value);
  lua_remove(L, -2);
  if (lua_isnil(L, -1)) {
    luaL_error(L, "Could not push named integer of type '%s'. Unknown value. (%d)",
               typeNameOf(record), value);
  }
  return 1;
}

int32_t TqLua_checkNamedInteger(lua_State *L, int index, const TqNamedIntegers *record) {
  index = TqLua_normalize(L, index);
  // Read before the table is pushed: an index past the top would otherwise find it.
  const int type = lua_type(L, index);
  TqLua_pushCachedNamedIntegersTable(L, record);
  if (type != LUA_TSTRING) {
    luaL_error(L, "Error reading named integer of type '%s', expected string got %s",
               typeNameOf(record), lua_typename(L, type));
  }
  lua_pushvalue(L, index);
  lua_gettable(L, -2);
  if (lua_isnil(L, -1)) {
    luaL_error(L, "Error reading named integer of type '%s', got %s", typeNameOf(record),
               lua_tostring(L, index));
  }
  const int64_t value = TqLua_checkInteger(L, -1);
  lua_pop(L, 2);
  return static_cast<int32_t>(value);
}

int32_t TqLua_optNamedInteger(lua_State *L, int index, const TqNamedIntegers *record,
                              int32_t def) {
  if (lua_isnoneornil(L, index)) return def;
  return TqLua_checkNamedInteger(L, index, record);
}

int32_t TqLua_optNamedInteger_noThrow(lua_State *L, int index, const TqNamedIntegers *record,
                                      int32_t def) {
  if (lua_isnoneornil(L, index)) return def;
  index = TqLua_normalize(L, index);
  TqLua_pushCachedNamedIntegersTable(L, record);
  lua_pushvalue(L, index);
  lua_gettable(L, -2);
  int32_t result = def;
  if (lua_type(L, -1) == LUA_TNUMBER) {
    const int64_t value = TqLua_toIntegerNoConvert(L, -1);
    if (lua_tonumber(L, -1) == static_cast<lua_Number>(value)) {
      result = static_cast<int32_t>(value);
    } else {
      std::fprintf(stderr, "Integer value expected for named integer of type '%s'.\n",
                   typeNameOf(record));
    }
  } else if (lua_type(L, index) != LUA_TSTRING) {
    std::fprintf(stderr, "Error reading named integer of type '%s', got value of type %s\n",
                 typeNameOf(record), luaL_typename(L, index));
  } else {
    std::fprintf(stderr, "Error reading named integer of type '%s', got '%s'\n",
                 typeNameOf(record), lua_tostring(L, index));
  }
  lua_pop(L, 2);
  return result;
}
