// Argument checks as a Lua caller sees them: each native function is called from Lua and
// the full error text is compared.
#include "support/lua_fixture.h"

#include <cstdarg>
#include <string>

namespace {

using tqtest::eval;
using tqtest::run;

[[noreturn]] void raiseFormatted(lua_State *L, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  TqLua_errorText_va(L, format, arguments);
}

int pushInteger(lua_State *L, int64_t value) {
  lua_pushstring(L, std::to_string(value).c_str());
  return 1;
}

class ChecksTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    lua_register(L, "checkNumber", [](lua_State *L) {
      lua_pushnumber(L, TqLua_checkNumber(L, 1));
      return 1;
    });
    lua_register(L, "checkInteger", [](lua_State *L) { return pushInteger(L, TqLua_checkInteger(L, 1)); });
    lua_register(L, "checkString", [](lua_State *L) {
      lua_pushstring(L, TqLua_checkString(L, 1));
      return 1;
    });
    lua_register(L, "checkBoolean", [](lua_State *L) {
      lua_pushinteger(L, TqLua_checkBoolean(L, 1));
      return 1;
    });
    lua_register(L, "checkUserdata", [](lua_State *L) {
      lua_pushboolean(L, TqLua_checkUserdata(L, 1) != nullptr);
      return 1;
    });
    lua_register(L, "checkHeavy", [](lua_State *L) {
      TqLua_checkHeavyUserdata(L, 1);
      return 0;
    });
    lua_register(L, "checkLight", [](lua_State *L) {
      TqLua_checkLightUserdata(L, 1);
      return 0;
    });
    lua_register(L, "checkAny", [](lua_State *L) {
      TqLua_checkAny(L, 1);
      return 0;
    });
    // checkType(value, type, name)
    lua_register(L, "checkType", [](lua_State *L) {
      TqLua_checkType(L, 1, static_cast<int>(lua_tointeger(L, 2)), lua_tostring(L, 3));
      return 0;
    });
    lua_register(L, "light", [](lua_State *L) {
      lua_pushlightuserdata(L, lua_toboolean(L, 1) ? L : nullptr);
      return 1;
    });
    lua_register(L, "nativeObject", [](lua_State *L) {
      TqLuaInternal_makeTaggedHeavyUserdata(L, 4, TqLuaInternal_nativeObjectTag);
      return 1;
    });
    lua_register(L, "optInteger5", [](lua_State *L) { return pushInteger(L, TqLua_optInteger(L, 5, 7)); });
    lua_register(L, "optString", [](lua_State *L) {
      lua_pushstring(L, TqLua_optString(L, 1, "default"));
      return 1;
    });
    lua_register(L, "optBoolean", [](lua_State *L) {
      lua_pushinteger(L, TqLua_optBoolean(L, 1, 5));
      return 1;
    });
    lua_register(L, "optLight", [](lua_State *L) {
      lua_pushboolean(L, TqLua_optLightUserdata(L, 1, L) == L);
      return 1;
    });
    // warnParameterCount(expected, ...) -> how many values remain besides expected
    lua_register(L, "warnParameterCount", [](lua_State *L) {
      const int expected = static_cast<int>(lua_tointeger(L, 1));
      lua_remove(L, 1);
      TqLua_warnParameterCount(L, expected);
      lua_pushinteger(L, lua_gettop(L));
      return 1;
    });
    lua_register(L, "errorText", [](lua_State *L) -> int {
      TqLua_errorText(L, "%s went wrong %d times", "it", 3);
    });
    lua_register(L, "errorTextVa", [](lua_State *L) -> int { raiseFormatted(L, "%d%% of %s", 50, "it"); });
    lua_register(L, "typeOfZero", [](lua_State *L) {
      lua_pushinteger(L, TqLua_type(L, 0));
      return 1;
    });
  }
};

TEST_F(ChecksTest, NumbersAndStringsAreNeverConverted) {
  EXPECT_EQ(eval(L, "checkNumber(1.25)"), "1.25");
  EXPECT_EQ(run(L, "checkNumber('12')"), "test:1: bad argument #1 to 'checkNumber' (number expected, got string)");
  EXPECT_EQ(run(L, "checkNumber()"), "test:1: bad argument #1 to 'checkNumber' (number expected, got no value)");
  EXPECT_EQ(eval(L, "checkString('x')"), "x");
  EXPECT_EQ(run(L, "checkString(12)"), "test:1: bad argument #1 to 'checkString' (string expected, got number)");
  EXPECT_EQ(run(L, "checkInteger('3')"), "test:1: bad argument #1 to 'checkInteger' (number expected, got string)");
}

TEST_F(ChecksTest, IntegersMustBeIntegralAndInRange) {
  EXPECT_EQ(eval(L, "checkInteger(3.0)"), "3");
  EXPECT_EQ(eval(L, "checkInteger(2^53)"), "9007199254740992");
  EXPECT_EQ(eval(L, "checkInteger(-2^63)"), "-9223372036854775808");
  EXPECT_EQ(run(L, "checkInteger(-2.5)"), "test:1: expected integer, got -2.500000");
  EXPECT_EQ(run(L, "checkInteger(2^63)"), "test:1: expected integer, got 9223372036854775808.000000");
  EXPECT_EQ(run(L, "checkInteger(math.huge)"), "test:1: expected integer, got inf");
  EXPECT_EQ(run(L, "checkInteger(0/0)").rfind("test:1: expected integer, got ", 0), 0u);
}

TEST_F(ChecksTest, BooleansAreNotTruthiness) {
  EXPECT_EQ(eval(L, "checkBoolean(true)"), "1");
  EXPECT_EQ(eval(L, "checkBoolean(false)"), "0");
  EXPECT_EQ(run(L, "checkBoolean(nil)"), "test:1: bad argument #1 to 'checkBoolean' (boolean expected, got nil)");
  EXPECT_EQ(run(L, "checkBoolean(0)"), "test:1: bad argument #1 to 'checkBoolean' (boolean expected, got number)");
}

TEST_F(ChecksTest, HeavyAndLightUserdataAreKeptApart) {
  EXPECT_EQ(eval(L, "checkUserdata(newproxy())"), "true");
  EXPECT_EQ(eval(L, "checkUserdata(light(true))"), "true");
  EXPECT_EQ(eval(L, "checkUserdata(light(false))"), "false");  // a light NULL is accepted
  EXPECT_EQ(run(L, "checkUserdata('u')"), "test:1: bad argument #1 to 'checkUserdata' (userdata expected, got string)");
  EXPECT_EQ(run(L, "checkHeavy(nativeObject())"), "");
  EXPECT_EQ(run(L, "checkHeavy(light(true))"), "test:1: bad argument #1 to 'checkHeavy' (userdata expected, got userdata)");
  EXPECT_EQ(run(L, "checkLight(light(true))"), "");
  EXPECT_EQ(run(L, "checkLight(newproxy())"), "test:1: bad argument #1 to 'checkLight' (userdata expected, got userdata)");
}

TEST_F(ChecksTest, AnyValueIncludesNilButNotNothing) {
  EXPECT_EQ(run(L, "checkAny(nil)"), "");
  EXPECT_EQ(run(L, "checkAny()"), "test:1: bad argument #1 to 'checkAny' (value expected)");
}

TEST_F(ChecksTest, CheckTypeNamesWhatWasExpected) {
  EXPECT_EQ(run(L, "checkType(nativeObject(), -2)"), "");
  EXPECT_EQ(run(L, "checkType(newproxy(), -2)"), "test:1: bad argument #1 to 'checkType' (native object expected, got userdata)");
  EXPECT_EQ(run(L, "checkType(nil, -2, 'Widget')"), "test:1: bad argument #1 to 'checkType' (Widget expected, got nil)");
  EXPECT_EQ(run(L, "checkType(1, 12, 'table')"), "test:1: bad argument #1 to 'checkType' (unknown type expected, got number)");
  EXPECT_EQ(run(L, "checkType(1, -3)"), "test:1: bad argument #1 to 'checkType' (unknown type expected, got number)");
  EXPECT_EQ(run(L, "checkType(1, 5)"), "test:1: bad argument #1 to 'checkType' (table expected, got number)");
  EXPECT_EQ(run(L, "checkType(1, 5, 'list')"), "test:1: bad argument #1 to 'checkType' (list expected, got number)");
  EXPECT_EQ(run(L, "checkType(nativeObject(), 7, 'blob')"), "");  // a native object is a userdata here
  EXPECT_EQ(run(L, "checkType(nativeObject(), 7)"), "");
  EXPECT_EQ(run(L, "checkType({}, 5)"), "");
}

TEST_F(ChecksTest, OptionalFormsDefaultOnlyForNothingOrNil) {
  EXPECT_EQ(eval(L, "optInteger5(1, 2, 3, 4)"), "7");
  EXPECT_EQ(eval(L, "optInteger5(1, 2, 3, 4, nil)"), "7");
  EXPECT_EQ(eval(L, "optInteger5(1, 2, 3, 4, 9)"), "9");
  EXPECT_EQ(run(L, "optInteger5(1, 2, 3, 4, 'x')"), "test:1: bad argument #5 to 'optInteger5' (number expected, got string)");
  EXPECT_EQ(run(L, "optInteger5(1, 2, 3, 4, 0.5)"), "test:1: expected integer, got 0.500000");
  EXPECT_EQ(eval(L, "optString()"), "default");
  EXPECT_EQ(run(L, "optString(1)"), "test:1: bad argument #1 to 'optString' (string expected, got number)");
  EXPECT_EQ(eval(L, "optBoolean(nil)"), "5");
  EXPECT_EQ(eval(L, "optBoolean(false)"), "0");
  EXPECT_EQ(eval(L, "optLight()"), "true");
  EXPECT_EQ(run(L, "optLight(newproxy())"), "test:1: bad argument #1 to 'optLight' (userdata expected, got userdata)");
}

TEST_F(ChecksTest, ParameterCountDropsExtrasAndRefusesTooFew) {
  EXPECT_EQ(eval(L, "warnParameterCount(3, 1, 2, 3, 4, 5)"), "3");
  EXPECT_EQ(eval(L, "warnParameterCount(0, 1)"), "0");
  EXPECT_EQ(run(L, "warnParameterCount(3, 1, 2)"), "test:1: Insufficent parameters. Wanted 3, received 2.");
  EXPECT_EQ(run(L, "warnParameterCount(-1)"), "Assertion failed: 0 <= expectedCount");
}

TEST_F(ChecksTest, LocatedErrorCarriesTheCallersPosition) {
  EXPECT_EQ(run(L, "\n errorText()"), "test:2: it went wrong 3 times");
  EXPECT_EQ(run(L, "errorTextVa()"), "test:1: 50% of it");
  // Called straight from native code there is no Lua position to give.
  lua_pushcfunction(L, [](lua_State *L) -> int { TqLua_errorText(L, "plain %d", 1); });
  ASSERT_NE(lua_pcall(L, 0, 0, 0), 0);
  EXPECT_STREQ(lua_tostring(L, -1), "plain 1");
  lua_pop(L, 1);
}

TEST_F(ChecksTest, TypeCodesAndNames) {
  lua_settop(L, 0);
  EXPECT_EQ(TqLua_type(L, 0), LUA_TNONE);  // index 0 on an empty stack
  EXPECT_EQ(run(L, "typeOfZero(1)"), "Assertion failed: lua_gettop( L ) == 0");
  lua_pushnil(L);
  lua_pushlightuserdata(L, nullptr);
  TqLuaInternal_makeTaggedHeavyUserdata(L, 0, TqLuaInternal_nativeObjectTag);
  lua_newuserdata(L, 16);
  EXPECT_EQ(TqLua_type(L, 1), LUA_TNIL);
  EXPECT_EQ(TqLua_type(L, 2), LUA_TLIGHTUSERDATA);
  EXPECT_EQ(TqLua_type(L, 3), kTqLuaTypeNativeObject);
  EXPECT_STREQ(TqLua_typename(L, 3), "native object");
  EXPECT_EQ(TqLua_type(L, 4), LUA_TUSERDATA);
  EXPECT_STREQ(TqLua_typename(L, 4), "userdata");
  EXPECT_EQ(TqLua_type(L, 5), LUA_TNONE);
  EXPECT_STREQ(TqLua_typename(L, 5), "no value");
  TqLuaInternal_setTaggedHeavyUserdataToInvalid(L, 3);
  EXPECT_EQ(TqLua_type(L, 3), LUA_TUSERDATA);
  EXPECT_STREQ(TqLua_typename(L, 3), "userdata");
  EXPECT_TRUE(TqLua_isAny(L, 1));
  EXPECT_TRUE(TqLua_isIndexable(L, 3));
  EXPECT_FALSE(TqLua_isIndexable(L, 2));
  EXPECT_EQ(TqLua_toHeavyUserdata(L, 2), nullptr);
  EXPECT_EQ(TqLua_toLightUserdata(L, 4), nullptr);
  lua_settop(L, 0);
}

TEST_F(ChecksTest, ConversionsNeverCoerce) {
  lua_settop(L, 0);
  lua_pushliteral(L, "42");
  lua_pushnumber(L, -7.9);
  EXPECT_TRUE(TqLua_isStringNoConvert(L, 1));
  EXPECT_FALSE(TqLua_isStringNoConvert(L, 2));
  EXPECT_FALSE(TqLua_isNumberNoConvert(L, 1));
  EXPECT_EQ(TqLua_toNumberNoConvert(L, 1), 0.0);
  EXPECT_EQ(TqLua_toIntegerNoConvert(L, 1), 0);
  EXPECT_EQ(TqLua_toIntegerNoConvert(L, 2), -7);
  EXPECT_EQ(TqLua_toStringNoConvert(L, 2), nullptr);
  EXPECT_EQ(lua_type(L, 2), LUA_TNUMBER);  // not turned into a string in place
  EXPECT_EQ(TqLua_strlen(L, 1), 2u);
  EXPECT_EQ(TqLua_strlen(L, 2), 0u);
  lua_settop(L, 0);
}

TEST_F(ChecksTest, EqualsStringComparesTheWholeLength) {
  lua_settop(L, 0);
  lua_pushlstring(L, "ab\0c", 4);
  lua_pushliteral(L, "ab");
  lua_pushnumber(L, 12);
  EXPECT_FALSE(TqLua_equalsString(L, 1, "ab"));
  EXPECT_TRUE(TqLua_equalsString(L, 2, "ab"));
  EXPECT_FALSE(TqLua_equalsString(L, 2, "abc"));
  EXPECT_FALSE(TqLua_equalsString(L, 3, "12"));
  lua_settop(L, 0);
  lua_register(L, "equalsNull", [](lua_State *L) {
    lua_pushboolean(L, TqLua_equalsString(L, 1, nullptr));
    return 1;
  });
  EXPECT_EQ(run(L, "equalsNull('x')"), "Assertion failed: s");
}

TEST_F(ChecksTest, NormalizeMakesRelativeIndicesAbsolute) {
  lua_settop(L, 0);
  EXPECT_EQ(TqLua_normalize(L, -1), 0);
  EXPECT_EQ(TqLua_normalize(L, -10000), -10000);
  EXPECT_EQ(TqLua_normalize(L, LUA_GLOBALSINDEX), LUA_GLOBALSINDEX);
  EXPECT_EQ(TqLua_normalize(L, 5), 5);
  lua_pushnil(L);
  lua_pushnil(L);
  EXPECT_EQ(TqLua_normalize(L, -1), 2);
  EXPECT_EQ(TqLua_normalize(L, -2), 1);
  lua_settop(L, 0);
  lua_register(L, "normalize", [](lua_State *L) {
    lua_pushinteger(L, TqLua_normalize(L, static_cast<int>(lua_tointeger(L, 1))));
    return 1;
  });
  EXPECT_EQ(eval(L, "normalize(-1)"), "1");
  EXPECT_EQ(run(L, "normalize(-3)"), "Assertion failed: 0 <= index");
}

}  // namespace
