// Table field accessors: an option table read by a native function called from Lua, the
// readers' strictness, the writers and references.
#include "support/lua_fixture.h"

namespace {

using tqtest::eval;
using tqtest::run;

// The default error handler describes the error on the same stack and so would report its
// own overflow; this one passes the error value on untouched.
void raiseWithoutDescribing(void *, lua_State *, int status) { throw TqLuaException("raised", status); }

class TableFieldsTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    // configure(options): an option table read the way native code reads one.
    lua_register(L, "configure", [](lua_State *L) {
      const char *name = TqLuaTable_optString(L, 1, "name", "anonymous");
      const lua_Number size = TqLuaTable_checkNumber(L, 1, "size");
      const int verbose = TqLuaTable_toBoolean(L, 1, "verbose");
      const int strict = TqLuaTable_optBoolean(L, 1, "strict", 1);
      const int rounds = static_cast<int>(TqLuaTable_optNumberAtIndex(L, 1, 1, 1));
      lua_pushfstring(L, "%s %f %d %d %d", name, size, verbose, strict, rounds);
      return 1;
    });
    lua_register(L, "firstWord", [](lua_State *L) {
      lua_pushstring(L, TqLuaTable_checkStringAtIndex(L, 1, 1));
      return 1;
    });
    lua_register(L, "checkFlag", [](lua_State *L) {
      lua_pushboolean(L, TqLuaTable_checkBoolean(L, 1, "flag"));
      return 1;
    });
    lua_register(L, "readNullKey", [](lua_State *L) { return TqLuaTable_hasKey(L, 1, nullptr); });
    lua_register(L, "writeNullKey", [](lua_State *L) {
      TqLuaTable_setString(L, 1, nullptr, "x");
      return 0;
    });
    lua_register(L, "copyNullKey", [](lua_State *L) {
      TqLuaTable_setFrom(L, 1, nullptr, 1);
      return 0;
    });
    lua_register(L, "refOnFullStack", [](lua_State *L) {
      luaL_checkstack(L, 7997, "test");
      lua_settop(L, 7997);
      return TqLuaTable_ref(L, 1);
    });
    ASSERT_EQ(luaL_dostring(L, "return {s = 'text', n = 5, ns = '5', b = false, zero = 0, empty = '', 'first', 2}"), 0);
  }
};

TEST_F(TableFieldsTest, OptionTableReadByANativeFunction) {
  EXPECT_EQ(eval(L, "configure({size = 3})"), "anonymous 3 0 1 1");
  EXPECT_EQ(eval(L, "configure({4, size = 3, name = 'x', verbose = 0, strict = false})"), "x 3 1 0 4");
  EXPECT_EQ(eval(L, "configure(setmetatable({}, {__index = {size = 4, name = 'inherited'}}))"),
            "inherited 4 0 1 1");
  const std::pair<const char *, const char *> refusals[] = {
      {"configure({size = 3, name = 5})", "configure' (string expected, got number)"},
      {"configure({size = '3'})", "configure' (number expected, got string)"},
      {"configure({})", "configure' (number expected, got nil)"},
      {"configure(nil)", "configure' (number expected, got nil)"},
      {"configure({size = 1, strict = 'yes'})", "configure' (boolean expected, got string)"},
      {"configure({'4', size = 1})", "configure' (number expected, got string)"},
      {"firstWord({})", "firstWord' (string expected, got nil)"},
      {"checkFlag({flag = 1})", "checkFlag' (boolean expected, got number)"},
  };
  for (const auto &[call, expected] : refusals) {
    EXPECT_EQ(run(L, call), std::string("test:1: bad argument #-1 to '") + expected);
  }
  EXPECT_EQ(run(L, "configure(5)"), "attempt to index a number value");
  EXPECT_EQ(run(L, "readNullKey({})"), "Assertion failed: key");
}

TEST_F(TableFieldsTest, HasAndIsReadersNeverConvert) {
  const char *text = "untouched";
  EXPECT_FALSE(TqLuaTable_hasString(L, 1, "n", &text));
  EXPECT_STREQ(text, "untouched");
  EXPECT_TRUE(TqLuaTable_hasString(L, 1, "s", &text));
  EXPECT_STREQ(text, "text");
  EXPECT_TRUE(TqLuaTable_hasStringAtIndex(L, -1, 1, nullptr));
  lua_Number number = 99;
  EXPECT_FALSE(TqLuaTable_hasNumber(L, 1, "ns", &number));
  EXPECT_EQ(number, 99);
  EXPECT_TRUE(TqLuaTable_hasNumberAtIndex(L, 1, 2, &number));
  EXPECT_EQ(number, 2);
  int flag = 7;
  EXPECT_FALSE(TqLuaTable_hasBoolean(L, 1, "zero", &flag));
  EXPECT_TRUE(TqLuaTable_hasBoolean(L, 1, "b", &flag));
  EXPECT_EQ(flag, 0);
  EXPECT_TRUE(TqLuaTable_hasKey(L, 1, "b"));
  EXPECT_FALSE(TqLuaTable_hasKey(L, 1, "missing"));
  EXPECT_TRUE(TqLuaTable_isString(L, 1, "s") && !TqLuaTable_isString(L, 1, "n"));
  EXPECT_TRUE(TqLuaTable_isStringAtIndex(L, 1, 1) && !TqLuaTable_isStringAtIndex(L, 1, 2));
  EXPECT_TRUE(TqLuaTable_isNumber(L, 1, "n") && !TqLuaTable_isNumber(L, 1, "ns"));
  EXPECT_TRUE(TqLuaTable_isNumberAtIndex(L, 1, 2) && !TqLuaTable_isNumberAtIndex(L, 1, 1));
  EXPECT_TRUE(TqLuaTable_isBoolean(L, 1, "b") && !TqLuaTable_isBoolean(L, 1, "zero"));
  EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(TableFieldsTest, ToReadersAndLuaTruth) {
  EXPECT_EQ(TqLuaTable_toString(L, 1, "n"), nullptr);
  EXPECT_STREQ(TqLuaTable_toStringAtIndex(L, 1, 1), "first");
  EXPECT_EQ(TqLuaTable_toNumber(L, 1, "ns"), 0.0);
  EXPECT_EQ(TqLuaTable_toNumberAtIndex(L, 1, 2), 2.0);
  EXPECT_EQ(TqLuaTable_toBoolean(L, 1, "zero"), 1);
  EXPECT_EQ(TqLuaTable_toBoolean(L, 1, "empty"), 1);
  EXPECT_EQ(TqLuaTable_toBoolean(L, 1, "b"), 0);
  EXPECT_EQ(TqLuaTable_toBoolean(L, 1, "missing"), 0);
  EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(TableFieldsTest, ReadersSeeANilTableAsEmpty) {
  lua_pushnil(L);
  EXPECT_FALSE(TqLuaTable_hasKey(L, -1, "s"));
  EXPECT_FALSE(TqLuaTable_isNumberAtIndex(L, -1, 2));
  EXPECT_EQ(TqLuaTable_toString(L, -1, "s"), nullptr);
  EXPECT_STREQ(TqLuaTable_optStringAtIndex(L, -1, 1, "default"), "default");
  EXPECT_EQ(TqLuaTable_optNumber(L, -1, "n", 3), 3);
  EXPECT_EQ(lua_gettop(L), 2);
}

TEST_F(TableFieldsTest, WritersAssignWithMetamethods) {
  ASSERT_EQ(luaL_dostring(L, "written = {gone = 1}; return written"), 0);
  lua_pushliteral(L, "kept below");
  TqLuaTable_setString(L, -2, "s", "text");
  TqLuaTable_setStringAtIndex(L, -2, 1, "first");
  TqLuaTable_setString(L, -2, "gone", nullptr);
  TqLuaTable_setNumber(L, -2, "n", 2.5);
  TqLuaTable_setNumberAtIndex(L, -2, 2, 7);
  TqLuaTable_setBoolean(L, -2, "b", 5);
  TqLuaTable_setFrom(L, -2, "f", -1);
  EXPECT_EQ(lua_gettop(L), 3);
  EXPECT_EQ(run(L, R"lua(
    local t = written
    assert(t.s == "text" and t[1] == "first" and t.gone == nil and t.n == 2.5 and t[2] == 7)
    assert(t.b == true and t.f == "kept below")
    seen = {}
    proxy = setmetatable({}, {__newindex = function(_, k, v) seen[k] = v end})
  )lua"), "");
  lua_getglobal(L, "proxy");
  TqLuaTable_setNumber(L, -1, "n", 1);
  EXPECT_EQ(eval(L, "seen.n"), "1");
  EXPECT_EQ(eval(L, "rawget(proxy, 'n')"), "nil");
  EXPECT_EQ(run(L, "writeNullKey({})"), "table index is nil");
  EXPECT_EQ(run(L, "copyNullKey({})"), "Assertion failed: key");
}

TEST_F(TableFieldsTest, References) {
  lua_pushliteral(L, "kept");
  const int ref = TqLuaTable_ref(L, 1);
  EXPECT_GT(ref, 0);
  lua_pushnil(L);
  EXPECT_EQ(TqLuaTable_ref(L, 1), LUA_REFNIL);
  TqLuaTable_unref(L, 1, LUA_NOREF);
  TqLuaTable_unref(L, 1, LUA_REFNIL);
  lua_rawgeti(L, 1, ref);
  EXPECT_STREQ(lua_tostring(L, -1), "kept");
  lua_pop(L, 1);
  TqLuaTable_unref(L, 1, ref);
  lua_rawgeti(L, 1, 0);
  EXPECT_EQ(lua_tointeger(L, -1), ref);  // the freed reference heads the free list
  lua_settop(L, 1);

  TqLuaExceptionHandlers handlers = TqLuaUniverse_getExceptionHandlers(universe);
  handlers.errorHandler = raiseWithoutDescribing;
  TqLuaUniverse_setExceptionHandlers(universe, &handlers);
  EXPECT_EQ(run(L, "refOnFullStack({})"), "test:1: stack overflow (space for ref)");
}

}  // namespace
