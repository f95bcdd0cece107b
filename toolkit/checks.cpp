// Queries, checks and optional forms for values on a Lua stack. Strings and numbers are
// never converted into each other.
#include <tqkernel/toolkit.h>
#include <tqkernel/userdata.h>

#include <cstdio>
#include <cstring>

#include "toolkit/assert.h"

namespace {

bool isNativeObject(lua_State *L, int index) {
  return lua_type(L, index) == LUA_TUSERDATA && lua_touserdata(L, index) &&
         TqLuaInternal_getuserdatatag(L, index) == TqLuaInternal_nativeObjectTag;
}

// Truncation toward zero that saturates at the 64-bit limits (NaN gives 0) instead of
// being undefined outside them.
int64_t truncateToInteger(lua_Number d) {
  if (d != d) return 0;
  if (d >= 0x1p63) return INT64_MAX;
  if (d < -0x1p63) return INT64_MIN;
  return static_cast<int64_t>(d);
}

[[noreturn]] void typeError(lua_State *L, int index, const char *expected) {
  luaL_typerror(L, index, expected);
  __builtin_unreachable();
}

// The checks behind the exported ones, given the value's Lua type so that the optional
// forms ask for it once: argument checks sit on hot paths.
inline lua_Number numberAt(lua_State *L, int index, int type) {
  if (type != LUA_TNUMBER) typeError(L, index, "number");
  return lua_tonumber(L, index);
}

int64_t integerAt(lua_State *L, int index, int type) {
  const lua_Number d = numberAt(L, index, type);
  const int64_t i = truncateToInteger(d);
  // 2^63 saturates to a value that converts back to 2^63, yet it is out of range.
  if (static_cast<lua_Number>(i) != d || d >= 0x1p63) {
    // C's %f, not Lua's: the message shows the fraction ("1.500000").
    char number[64];
    std::snprintf(number, sizeof number, "%f", d);
    TqLua_errorText(L, "expected integer, got %s", number);
  }
  return i;
}

inline const char *stringAt(lua_State *L, int index, int type) {
  if (type != LUA_TSTRING) typeError(L, index, "string");
  return lua_tostring(L, index);
}

inline int booleanAt(lua_State *L, int index, int type) {
  if (type != LUA_TBOOLEAN) typeError(L, index, "boolean");
  return lua_toboolean(L, index);
}

inline void *userdataAt(lua_State *L, int index, int type) {
  if (type != LUA_TUSERDATA && type != LUA_TLIGHTUSERDATA) typeError(L, index, "userdata");
  return lua_touserdata(L, index);
}

inline void *userdataOfKindAt(lua_State *L, int index, int type, int kind) {
  if (type != kind) typeError(L, index, "userdata");
  return lua_touserdata(L, index);
}

// Raises the text on top, preceded by the position of the running function's caller.
[[noreturn]] void raiseWithPosition(lua_State *L) {
  luaL_where(L, 1);
  lua_insert(L, -2);
  lua_concat(L, 2);
  lua_error(L);
  __builtin_unreachable();
}

inline bool isNoneOrNil(int type) { return type <= LUA_TNIL; }

}  // namespace

int TqLua_type(lua_State *L, int index) {
  if (index == 0) {
    TQ_ASSERT(L, lua_gettop( L ) == 0);
    return LUA_TNONE;
  }
  const int type = lua_type(L, index);
  if (type == LUA_TUSERDATA && isNativeObject(L, index)) return kTqLuaTypeNativeObject;
  return type;
}

const char *TqLua_typename(lua_State *L, int index) {
  const int type = TqLua_type(L, index);
  return type == kTqLuaTypeNativeObject ? "native object" : lua_typename(L, type);
}

int TqLua_isAny(lua_State *L, int index) { return lua_type(L, index) != LUA_TNONE; }

int TqLua_isIndexable(lua_State *L, int index) {
  const int type = lua_type(L, index);
  return type == LUA_TTABLE || type == LUA_TUSERDATA;
}

int TqLua_isHeavyUserdata(lua_State *L, int index) { return lua_type(L, index) == LUA_TUSERDATA; }

int TqLua_isStringNoConvert(lua_State *L, int index) { return lua_type(L, index) == LUA_TSTRING; }

int TqLua_isNumberNoConvert(lua_State *L, int index) { return lua_type(L, index) == LUA_TNUMBER; }

void *TqLua_toHeavyUserdata(lua_State *L, int index) {
  return TqLua_isHeavyUserdata(L, index) ? lua_touserdata(L, index) : nullptr;
}

void *TqLua_toLightUserdata(lua_State *L, int index) {
  return lua_type(L, index) == LUA_TLIGHTUSERDATA ? lua_touserdata(L, index) : nullptr;
}

const char *TqLua_toStringNoConvert(lua_State *L, int index) {
  return TqLua_isStringNoConvert(L, index) ? lua_tostring(L, index) : nullptr;
}

lua_Number TqLua_toNumberNoConvert(lua_State *L, int index) {
  return TqLua_isNumberNoConvert(L, index) ? lua_tonumber(L, index) : 0.0;
}

int64_t TqLua_toIntegerNoConvert(lua_State *L, int index) {
  return truncateToInteger(TqLua_toNumberNoConvert(L, index));
}

size_t TqLua_strlen(lua_State *L, int index) {
  return TqLua_isStringNoConvert(L, index) ? lua_objlen(L, index) : 0;
}

int TqLua_equalsString(lua_State *L, int index, const char *s) {
  TQ_ASSERT(L, s);
  size_t length = 0;
  const char *text = TqLua_isStringNoConvert(L, index) ? lua_tolstring(L, index, &length) : nullptr;
  return text && length == std::strlen(s) && std::memcmp(text, s, length) == 0;
}

int TqLua_popNil(lua_State *L) {
  if (lua_gettop(L) == 0 || !lua_isnil(L, -1)) return 0;
  lua_pop(L, 1);
  return 1;
}

lua_Number TqLua_checkNumber(lua_State *L, int index) {
  return numberAt(L, index, lua_type(L, index));
}

int64_t TqLua_checkInteger(lua_State *L, int index) {
  return integerAt(L, index, lua_type(L, index));
}

const char *TqLua_checkString(lua_State *L, int index) {
  return stringAt(L, index, lua_type(L, index));
}

int TqLua_checkBoolean(lua_State *L, int index) { return booleanAt(L, index, lua_type(L, index)); }

void *TqLua_checkUserdata(lua_State *L, int index) {
  return userdataAt(L, index, lua_type(L, index));
}

void *TqLua_checkHeavyUserdata(lua_State *L, int index) {
  return userdataOfKindAt(L, index, lua_type(L, index), LUA_TUSERDATA);
}

void *TqLua_checkLightUserdata(lua_State *L, int index) {
  return userdataOfKindAt(L, index, lua_type(L, index), LUA_TLIGHTUSERDATA);
}

void TqLua_checkAny(lua_State *L, int index) { luaL_checkany(L, index); }

void TqLua_checkType(lua_State *L, int index, int type, const char *name) {
  if (type == kTqLuaTypeNativeObject) {
    if (!isNativeObject(L, index)) typeError(L, index, name ? name : "native object");
  } else if (type < LUA_TNONE || type > LUA_TTHREAD) {
    typeError(L, index, "unknown type");
  } else if (!name) {
    luaL_checktype(L, index, type);
  } else if (lua_type(L, index) != type) {
    typeError(L, index, name);
  }
}

lua_Number TqLua_optNumber(lua_State *L, int index, lua_Number def) {
  const int type = lua_type(L, index);
  return isNoneOrNil(type) ? def : numberAt(L, index, type);
}

int64_t TqLua_optInteger(lua_State *L, int index, int64_t def) {
  const int type = lua_type(L, index);
  return isNoneOrNil(type) ? def : integerAt(L, index, type);
}

const char *TqLua_optString(lua_State *L, int index, const char *def) {
  const int type = lua_type(L, index);
  return isNoneOrNil(type) ? def : stringAt(L, index, type);
}

int TqLua_optBoolean(lua_State *L, int index, int def) {
  const int type = lua_type(L, index);
  return isNoneOrNil(type) ? def : booleanAt(L, index, type);
}

void *TqLua_optUserdata(lua_State *L, int index, void *def) {
  const int type = lua_type(L, index);
  return isNoneOrNil(type) ? def : userdataAt(L, index, type);
}

void *TqLua_optHeavyUserdata(lua_State *L, int index, void *def) {
  const int type = lua_type(L, index);
  return isNoneOrNil(type) ? def : userdataOfKindAt(L, index, type, LUA_TUSERDATA);
}

void *TqLua_optLightUserdata(lua_State *L, int index, void *def) {
  const int type = lua_type(L, index);
  return isNoneOrNil(type) ? def : userdataOfKindAt(L, index, type, LUA_TLIGHTUSERDATA);
}

void TqLua_warnParameterCount(lua_State *L, int expectedCount) {
  TQ_ASSERT(L, 0 <= expectedCount);
  const int count = lua_gettop(L);
  if (count < expectedCount) {
    TqLua_errorText(L, "Insufficent parameters. Wanted %d, received %d.", expectedCount, count);
  }
  lua_settop(L, expectedCount);
}

int TqLua_normalize(lua_State *L, int index) {
  if (index >= 0 || index <= LUA_REGISTRYINDEX) return index;
  index = lua_gettop(L) + index + 1;
  TQ_ASSERT(L, 0 <= index);
  return index;
}

void TqLua_errorText(lua_State *L, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  lua_pushvfstring(L, format, arguments);
  va_end(arguments);
  raiseWithPosition(L);
}

void TqLua_errorText_va(lua_State *L, const char *format, va_list arguments) {
  lua_pushvfstring(L, format, arguments);
  raiseWithPosition(L);
}
