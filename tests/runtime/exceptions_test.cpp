// Exceptions that reach the host, statuses at the protected-call boundary, and memory
// errors. What Lua code sees of exceptions is tested by tests/lua/runtime.lua.
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>

#include "support/lua_fixture.h"

namespace {

using tqtest::UniverseTest;

// The code and text of the TqLuaException that f throws.
std::string thrown(const std::function<void()> &f) {
  try {
    f();
  } catch (const TqLuaException &e) {
    return std::to_string(e.code()) + " " + e.what();
  }
  return "nothing thrown";
}

TEST(Exceptions, ProgramErrorsCarryTheirTextAndCodeZero) {
  const std::string longText(3000, 'x');
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[] { TqThrowProgramError(nullptr); }, "0 (no message)"},
      {[] { TqThrowProgramErrorWithFormat("%s=%d", "n", 3); }, "0 n=3"},
      {[&] { TqThrowProgramErrorWithFormat("%s", longText.c_str()); }, "0 " + longText.substr(0, 1999)},
      {[] { TqThrowLogicError(); }, "0 An internal logic error has occurred."},
      {[] { TqThrowInsufficientMemory(); }, "4 out of memory"},
      {[] { TqLua_throwProgramError(nullptr, "no state"); }, "0 no state"},
  };
  for (const auto &[thrower, expected] : cases) EXPECT_EQ(thrown(thrower), expected);
}

int throwsProgramError(lua_State *) { TqThrowProgramError("Assertion failed: packed"); }

TEST_F(UniverseTest, StatusesAtTheBoundaryAndErrorsThatReachTheHost) {
  EXPECT_EQ(lua_cpcall(L, throwsProgramError, nullptr), LUA_ERRRUN);
  EXPECT_STREQ(lua_tostring(L, -1), "Assertion failed: packed");
  EXPECT_EQ(luaL_loadstring(L, "x = = 1"), LUA_ERRSYNTAX);
  lua_settop(L, 0);
  // Outside any protected call, Lua errors and native exceptions go to the host.
  lua_pushstring(L, "outside any pcall");
  EXPECT_EQ(thrown([&] { lua_error(L); }), "2 outside any pcall");
  lua_settop(L, 0);
  lua_pushcfunction(L, throwsProgramError);
  EXPECT_EQ(thrown([&] { lua_call(L, 0, 0); }), "0 Assertion failed: packed");
}

TEST_F(UniverseTest, WithoutHandlersTheProcessEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  TqLuaExceptionHandlers none = TqLuaUniverse_getExceptionHandlers(universe);
  none.errorHandler = nullptr;
  none.panicHandler = nullptr;
  TqLuaUniverse_setExceptionHandlers(universe, &none);
  EXPECT_DEATH(tqtest::run(L, "error('x')"), "");
  EXPECT_EXIT((lua_pushnil(L), lua_error(L)), testing::ExitedWithCode(1), "");
}

// An allocator that refuses to grow past a budget.
size_t sBudget = 0;
void *limitedAlloc(void *, void *block, size_t oldSize, size_t newSize) {
  if (newSize == 0) return sBudget += oldSize, std::free(block), nullptr;
  if (newSize > oldSize && newSize - oldSize > sBudget) return nullptr;
  void *result = std::realloc(block, newSize);
  if (result) sBudget = sBudget + oldSize - newSize;
  return result;
}

TEST(Exceptions, MemoryErrorsAreStatusFourWithLuasMessage) {
  KrInit();
  sBudget = 1 << 20;
  lua_State *L = lua_newstate(limitedAlloc, nullptr);
  TqLuaUniverse *universe = TqLuaUniverse_attachToLuaState(L, nullptr, nullptr, "small");
  ASSERT_NE(universe, nullptr);
  EXPECT_EQ(tqtest::run(L, "local t = {} for i = 1, 1e7 do t[i] = i end"), "not enough memory");
  luaL_loadstring(L, "local t = {} for i = 1, 1e7 do t[i] = {} end");
  EXPECT_EQ(lua_pcall(L, 0, 0, 0), LUA_ERRMEM);
  lua_pop(L, 1);
  lua_gc(L, LUA_GCCOLLECT, 0);
  EXPECT_EQ(tqtest::run(L, "x = 1"), "");
  TqLuaUniverse_close(universe);
}

}  // namespace
