// Named integers: names and values through the per-state lookup table, and the messages
// of each refusal.
#include <string>

#include "support/lua_fixture.h"

namespace {

using tqtest::eval;
using tqtest::run;

TqNamedInteger sLetterEntries[] = {{"a", 1}, {"b", 2}, {"first", 1}, {nullptr, 0}};
const TqNamedIntegers kLetters = {"Letter", sLetterEntries};
const TqNamedInteger kNoEntries[] = {{nullptr, 0}};
const TqNamedIntegers kUnnamed = {nullptr, kNoEntries};
const TqNamedIntegers kWithoutEntries = {"Empty", nullptr};

const TqNamedIntegers *recordFor(lua_State *L, int index) {
  const char *which = lua_tostring(L, index);
  if (which && std::string(which) == "unnamed") return &kUnnamed;
  if (which && std::string(which) == "none") return nullptr;
  return &kLetters;
}

class NamedIntegersTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    // Each takes the record's selector last: nil for Letter, "unnamed", "none".
    lua_register(L, "check", [](lua_State *L) {
      lua_pushinteger(L, TqLua_checkNamedInteger(L, 1, recordFor(L, 2)));
      return 1;
    });
    lua_register(L, "opt", [](lua_State *L) {
      lua_pushinteger(L, TqLua_optNamedInteger(L, 1, recordFor(L, 2), -7));
      return 1;
    });
    lua_register(L, "nameOf", [](lua_State *L) {
      return TqLua_pushNamedInteger(L, static_cast<int32_t>(lua_tointeger(L, 1)), recordFor(L, 2));
    });
    lua_register(L, "checkPastTop", [](lua_State *L) {
      lua_pushinteger(L, TqLua_checkNamedInteger(L, lua_gettop(L) + 1, &kLetters));
      return 1;
    });
  }

  // TqLua_optNamedInteger_noThrow on the value on top; returns what it wrote to stderr.
  std::string noThrow(const char *expression, int32_t &result, const TqNamedIntegers *record = &kLetters) {
    std::string code = std::string("return ") + expression;
    EXPECT_EQ(luaL_dostring(L, code.c_str()), 0);
    const int top = lua_gettop(L);
    testing::internal::CaptureStderr();
    result = TqLua_optNamedInteger_noThrow(L, -1, record, -7);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_EQ(lua_gettop(L), top);
    lua_settop(L, 0);
    return printed;
  }
};

TEST(NamedIntegersByName, MatchesExactNamesOnly) {
  int32_t value = 0;
  EXPECT_EQ(TqNamedIntegers_getByName(&kLetters, "b", &value), 1);
  EXPECT_EQ(value, 2);
  value = 0;
  EXPECT_EQ(TqNamedIntegers_getByName(&kLetters, "B", &value), 0);
  EXPECT_EQ(TqNamedIntegers_getByName(&kLetters, "", &value), 0);
  EXPECT_EQ(TqNamedIntegers_getByName(nullptr, "a", &value), 0);
  EXPECT_EQ(TqNamedIntegers_getByName(&kWithoutEntries, "a", &value), 0);
  EXPECT_EQ(TqNamedIntegers_getByName(&kLetters, nullptr, &value), 0);
  EXPECT_EQ(value, 0);
}

TEST_F(NamedIntegersTest, NamesAndValuesBothWays) {
  EXPECT_EQ(eval(L, "check('b')"), "2");
  EXPECT_EQ(eval(L, "nameOf(2)"), "b");
  // Repeated values: the last name listed wins.
  EXPECT_EQ(eval(L, "nameOf(1)"), "first");
  EXPECT_EQ(eval(L, "check('a') + check('first')"), "2");
  EXPECT_EQ(eval(L, "opt(nil)"), "-7");
  EXPECT_EQ(eval(L, "opt()"), "-7");
  EXPECT_EQ(eval(L, "opt('b')"), "2");
}

TEST_F(NamedIntegersTest, CheckingRefusals) {
  EXPECT_EQ(run(L, "nameOf(3)"), "test:1: Could not push named integer of type 'Letter'. Unknown value. (3)");
  EXPECT_EQ(run(L, "check('c')"), "test:1: Error reading named integer of type 'Letter', got c");
  EXPECT_EQ(run(L, "check(2)"), "test:1: Error reading named integer of type 'Letter', expected string got number");
  EXPECT_EQ(run(L, "opt(2)"), "test:1: Error reading named integer of type 'Letter', expected string got number");
  EXPECT_EQ(run(L, "checkPastTop()"), "test:1: Error reading named integer of type 'Letter', expected string got no value");
  EXPECT_EQ(run(L, "check('a', 'unnamed')"), "test:1: Error reading named integer of type '< unknown >', got a");
  EXPECT_EQ(run(L, "nameOf(1, 'unnamed')"), "test:1: Could not push named integer of type '< unknown >'. Unknown value. (1)");
  EXPECT_EQ(run(L, "check('a', 'none')"), "Assertion failed: udRef != 0");
}

TEST_F(NamedIntegersTest, NoThrowFormPrintsAndFallsBack) {
  int32_t result = 0;
  EXPECT_EQ(noThrow("'b'", result), "");
  EXPECT_EQ(result, 2);
  EXPECT_EQ(noThrow("nil", result), "");
  EXPECT_EQ(result, -7);
  EXPECT_EQ(noThrow("'c'", result), "Error reading named integer of type 'Letter', got 'c'\n");
  EXPECT_EQ(result, -7);
  // Any value is looked up; the value 2 finds the name "b", which is not a number.
  EXPECT_EQ(noThrow("2", result), "Error reading named integer of type 'Letter', got value of type number\n");
  EXPECT_EQ(result, -7);
  EXPECT_EQ(noThrow("'c'", result, &kUnnamed), "Error reading named integer of type '< unknown >', got 'c'\n");
}

TEST_F(NamedIntegersTest, NoThrowFormRefusesAFractionalValue) {
  TqLua_pushCachedNamedIntegersTable(L, &kLetters);
  lua_pushnumber(L, 1.5);
  lua_setfield(L, -2, "half");
  lua_pop(L, 1);
  int32_t result = 0;
  EXPECT_EQ(noThrow("'half'", result), "Integer value expected for named integer of type 'Letter'.\n");
  EXPECT_EQ(result, -7);
}

TEST_F(NamedIntegersTest, LookupTableIsBuiltOncePerState) {
  EXPECT_EQ(eval(L, "check('b')"), "2");
  sLetterEntries[1].value = 20;
  EXPECT_EQ(eval(L, "check('b')"), "2");
  TqLuaUniverse *other = TqLuaUniverse_open(nullptr, "other");
  lua_State *O = TqLuaUniverse_getLuaState(other);
  TqLua_pushCachedNamedIntegersTable(O, &kLetters);
  lua_getfield(O, -1, "b");
  EXPECT_EQ(lua_tointeger(O, -1), 20);
  TqLuaUniverse_close(other);
  sLetterEntries[1].value = 2;
  TqLua_pushCachedNamedIntegersTable(L, &kWithoutEntries);
  lua_pushnil(L);
  EXPECT_EQ(lua_next(L, -2), 0);
}

}  // namespace
