// Reading and writing single fields of a table on the stack, by name or by integer index,
// leaving the stack as it was.
#include <tqkernel/toolkit.h>

#include "toolkit/assert.h"

namespace {

// The value kinds a field is read as: the strict tests and checks of the toolkit.
struct StringKind {
  using Value = const char *;
  static bool is(lua_State *L, int i) { return TqLua_isStringNoConvert(L, i); }
  static Value to(lua_State *L, int i) { return TqLua_toStringNoConvert(L, i); }
  static Value check(lua_State *L, int i) { return TqLua_checkString(L, i); }
};

struct NumberKind {
  using Value = lua_Number;
  static bool is(lua_State *L, int i) { return TqLua_isNumberNoConvert(L, i); }
  static Value to(lua_State *L, int i) { return TqLua_toNumberNoConvert(L, i); }
  static Value check(lua_State *L, int i) { return TqLua_checkNumber(L, i); }
};

struct BooleanKind {
  using Value = int;
  static bool is(lua_State *L, int i) { return lua_type(L, i) == LUA_TBOOLEAN; }
  static Value to(lua_State *L, int i) { return lua_toboolean(L, i); }
  static Value check(lua_State *L, int i) { return TqLua_checkBoolean(L, i); }
};

void pushKey(lua_State *L, const char *key) { lua_pushstring(L, key); }
void pushKey(lua_State *L, int32_t index) { lua_pushinteger(L, index); }

void assertKey(lua_State *L, const char *key) { TQ_ASSERT(L, key); }
void assertKey(lua_State *, int32_t) {}

// Pushes t[key] with metamethods; nil when the table argument is nil.
template <typename Key>
void pushField(lua_State *L, int tableIndex, Key key) {
  assertKey(L, key);
  tableIndex = TqLua_normalize(L, tableIndex);
  pushKey(L, key);
  TqLua_getTable(L, tableIndex);
}

// Reads the field, hands it to inspect, pops it and returns inspect's answer.
template <typename Key, typename Inspect>
auto inspectField(lua_State *L, int tableIndex, Key key, Inspect inspect) {
  pushField(L, tableIndex, key);
  const auto result = inspect();
  lua_pop(L, 1);
  return result;
}

template <typename Kind, typename Key>
int hasField(lua_State *L, int tableIndex, Key key, typename Kind::Value *out) {
  return inspectField(L, tableIndex, key, [&] {
    if (!Kind::is(L, -1)) return 0;
    if (out) *out = Kind::to(L, -1);
    return 1;
  });
}

template <typename Kind, typename Key>
typename Kind::Value optField(lua_State *L, int tableIndex, Key key, typename Kind::Value def) {
  return inspectField(L, tableIndex, key,
                      [&] { return lua_isnil(L, -1) ? def : Kind::check(L, -1); });
}

template <typename Kind, typename Key>
int isField(lua_State *L, int tableIndex, Key key) {
  return inspectField(L, tableIndex, key, [&] { return Kind::is(L, -1) ? 1 : 0; });
}

template <typename Kind, typename Key>
typename Kind::Value checkField(lua_State *L, int tableIndex, Key key) {
  return inspectField(L, tableIndex, key, [&] { return Kind::check(L, -1); });
}

template <typename Kind, typename Key>
typename Kind::Value toField(lua_State *L, int tableIndex, Key key) {
  return inspectField(L, tableIndex, key, [&] { return Kind::to(L, -1); });
}

// t[key] = the value that push pushes, with metamethods. A NULL name pushes a nil key,
// which Lua refuses.
template <typename Key, typename Push>
void setField(lua_State *L, int tableIndex, Key key, Push push) {
  tableIndex = TqLua_normalize(L, tableIndex);
  pushKey(L, key);
  push();
  lua_settable(L, tableIndex);
}

}  // namespace

void TqLuaTable_setString(lua_State *L, int tableIndex, const char *key, const char *value) {
  setField(L, tableIndex, key, [&] { lua_pushstring(L, value); });
}

void TqLuaTable_setStringAtIndex(lua_State *L, int tableIndex, int32_t index, const char *value) {
  setField(L, tableIndex, index, [&] { lua_pushstring(L, value); });
}

void TqLuaTable_setNumber(lua_State *L, int tableIndex, const char *key, lua_Number value) {
  setField(L, tableIndex, key, [&] { lua_pushnumber(L, value); });
}

void TqLuaTable_setNumberAtIndex(lua_State *L, int tableIndex, int32_t index, lua_Number value) {
  setField(L, tableIndex, index, [&] { lua_pushnumber(L, value); });
}

void TqLuaTable_setBoolean(lua_State *L, int tableIndex, const char *key, int value) {
  setField(L, tableIndex, key, [&] { lua_pushboolean(L, value); });
}

void TqLuaTable_setFrom(lua_State *L, int tableIndex, const char *key, int valueIndex) {
  TQ_ASSERT(L, key);
  valueIndex = TqLua_normalize(L, valueIndex);
  setField(L, tableIndex, key, [&] { lua_pushvalue(L, valueIndex); });
}

int TqLuaTable_hasString(lua_State *L, int tableIndex, const char *key, const char **out) {
  return hasField<StringKind>(L, tableIndex, key, out);
}

int TqLuaTable_hasStringAtIndex(lua_State *L, int tableIndex, int32_t index, const char **out) {
  return hasField<StringKind>(L, tableIndex, index, out);
}

int TqLuaTable_hasNumber(lua_State *L, int tableIndex, const char *key, lua_Number *out) {
  return hasField<NumberKind>(L, tableIndex, key, out);
}

int TqLuaTable_hasNumberAtIndex(lua_State *L, int tableIndex, int32_t index, lua_Number *out) {
  return hasField<NumberKind>(L, tableIndex, index, out);
}

int TqLuaTable_hasBoolean(lua_State *L, int tableIndex, const char *key, int *out) {
  return hasField<BooleanKind>(L, tableIndex, key, out);
}

int TqLuaTable_hasKey(lua_State *L, int tableIndex, const char *key) {
  return inspectField(L, tableIndex, key, [&] { return lua_isnil(L, -1) ? 0 : 1; });
}

const char *TqLuaTable_optString(lua_State *L, int tableIndex, const char *key,
                                 const char *def) {
  return optField<StringKind>(L, tableIndex, key, def);
}

const char *TqLuaTable_optStringAtIndex(lua_State *L, int tableIndex, int32_t index,
                                        const char *def) {
  return optField<StringKind>(L, tableIndex, index, def);
}

lua_Number TqLuaTable_optNumber(lua_State *L, int tableIndex, const char *key, lua_Number def) {
  return optField<NumberKind>(L, tableIndex, key, def);
}

lua_Number TqLuaTable_optNumberAtIndex(lua_State *L, int tableIndex, int32_t index,
                                       lua_Number def) {
  return optField<NumberKind>(L, tableIndex, index, def);
}

int TqLuaTable_optBoolean(lua_State *L, int tableIndex, const char *key, int def) {
  return optField<BooleanKind>(L, tableIndex, key, def);
}

int TqLuaTable_isString(lua_State *L, int tableIndex, const char *key) {
  return isField<StringKind>(L, tableIndex, key);
}

int TqLuaTable_isStringAtIndex(lua_State *L, int tableIndex, int32_t index) {
  return isField<StringKind>(L, tableIndex, index);
}

int TqLuaTable_isNumber(lua_State *L, int tableIndex, const char *key) {
  return isField<NumberKind>(L, tableIndex, key);
}

int TqLuaTable_isNumberAtIndex(lua_State *L, int tableIndex, int32_t index) {
  return isField<NumberKind>(L, tableIndex, index);
}

int TqLuaTable_isBoolean(lua_State *L, int tableIndex, const char *key) {
  return isField<BooleanKind>(L, tableIndex, key);
}

const char *TqLuaTable_checkString(lua_State *L, int tableIndex, const char *key) {
  return checkField<StringKind>(L, tableIndex, key);
}

const char *TqLuaTable_checkStringAtIndex(lua_State *L, int tableIndex, int32_t index) {
  return checkField<StringKind>(L, tableIndex, index);
}

lua_Number TqLuaTable_checkNumber(lua_State *L, int tableIndex, const char *key) {
  return checkField<NumberKind>(L, tableIndex, key);
}

lua_Number TqLuaTable_checkNumberAtIndex(lua_State *L, int tableIndex, int32_t index) {
  return checkField<NumberKind>(L, tableIndex, index);
}

int TqLuaTable_checkBoolean(lua_State *L, int tableIndex, const char *key) {
  return checkField<BooleanKind>(L, tableIndex, key);
}

const char *TqLuaTable_toString(lua_State *L, int tableIndex, const char *key) {
  return toField<StringKind>(L, tableIndex, key);
}

const char *TqLuaTable_toStringAtIndex(lua_State *L, int tableIndex, int32_t index) {
  return toField<StringKind>(L, tableIndex, index);
}

lua_Number TqLuaTable_toNumber(lua_State *L, int tableIndex, const char *key) {
  return toField<NumberKind>(L, tableIndex, key);
}

lua_Number TqLuaTable_toNumberAtIndex(lua_State *L, int tableIndex, int32_t index) {
  return toField<NumberKind>(L, tableIndex, index);
}

// Lua's truth, unlike the other readers: a present option of any value counts as set.
int TqLuaTable_toBoolean(lua_State *L, int tableIndex, const char *key) {
  return toField<BooleanKind>(L, tableIndex, key);
}

int TqLuaTable_ref(lua_State *L, int tableIndex) {
  tableIndex = TqLua_normalize(L, tableIndex);
  luaL_checkstack(L, 5, "space for ref");
  return luaL_ref(L, tableIndex);
}

void TqLuaTable_unref(lua_State *L, int tableIndex, int ref) {
  if (ref != LUA_NOREF) luaL_unref(L, tableIndex, ref);
}
