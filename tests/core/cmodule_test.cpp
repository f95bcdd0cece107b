// tqtestmod, a C module built against the stock Lua 5.1 headers, loaded into a universe.
#include "support/lua_fixture.h"

#include <string>

namespace {

std::string sThrown;

void recordThrow(lua_State *, const char *message) { sThrown = message; }

class CModuleTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    ASSERT_EQ(tqtest::run(L, "package.cpath = '" TQ_TEST_CMODULE_CPATH "'\n"
                             "mod = require('tqtestmod')"),
              "");
  }
  void TearDown() override {
    TqExceptions_setThrowHook(nullptr);
    UniverseTest::TearDown();
  }
};

TEST_F(CModuleTest, RequireRegistersTheModule) {
  EXPECT_EQ(tqtest::eval(L, "mod.version"), "tqtestmod 1");
  EXPECT_EQ(tqtest::eval(L, "package.loaded.tqtestmod == mod and tqtestmod == mod"), "true");
}

TEST_F(CModuleTest, BuildsTablesAndCallsBackIntoLua) {
  EXPECT_EQ(tqtest::eval(L, "table.concat(mod.map(mod.range(4), function(x) return x * 10 end), ',')"),
            "10,20,30,40");
  EXPECT_EQ(tqtest::eval(L, "#mod.range(0)"), "0");
}

TEST_F(CModuleTest, LuaLErrorReachesPcallWithItsMessage) {
  EXPECT_EQ(tqtest::eval(L, "select(2, pcall(mod.fail, 'boom'))"), "tqtestmod: boom");
  EXPECT_EQ(tqtest::run(L, "mod.fail('from a chunk')"), "test:1: tqtestmod: from a chunk");
  EXPECT_EQ(tqtest::eval(L, "select(2, pcall(mod.range, 'many'))"),
            "bad argument #1 to '?' (number expected, got string)");
}

TEST_F(CModuleTest, ErrorsOfCallbacksUnwindThroughTheCFrame) {
  EXPECT_EQ(tqtest::eval(L, "(function()\n"
                            "  local token = {}\n"
                            "  local ok, value = pcall(mod.map, {1, 2}, function(x)\n"
                            "    if x == 2 then error(token) end\n"
                            "    return x\n"
                            "  end)\n"
                            "  return not ok and value == token\n"
                            "end)()"),
            "true");
  // The stack is usable afterwards: the C frame's pushes were discarded.
  EXPECT_EQ(tqtest::eval(L, "#mod.map(mod.range(100), tostring)"), "100");
}

TEST_F(CModuleTest, ProtectedCallsMadeByTheModuleCatchErrors) {
  EXPECT_EQ(tqtest::eval(L, "select('#', mod.protect(function() return 1, 2 end))"), "3");
  EXPECT_EQ(tqtest::eval(L, "table.concat({mod.protect(mod.fail, 'inner')}, '|')"),
            "2|tqtestmod: inner");
  EXPECT_EQ(tqtest::eval(L, "table.concat({mod.protect(error, 'x', 0)}, '|')"), "2|x");
}

TEST_F(CModuleTest, TheThrowHookSeesTheModulesError) {
  sThrown.clear();
  TqExceptions_setThrowHook(recordThrow);
  EXPECT_EQ(tqtest::run(L, "mod.fail('hooked')"), "test:1: tqtestmod: hooked");
  EXPECT_EQ(sThrown, "test:1: tqtestmod: hooked");
}

TEST_F(CModuleTest, AnUnprotectedModuleErrorReachesTheHost) {
  lua_getglobal(L, "mod");
  lua_getfield(L, -1, "fail");
  lua_pushstring(L, "unprotected");
  try {
    lua_call(L, 1, 0);
    FAIL() << "lua_call returned";
  } catch (const TqLuaException &e) {
    EXPECT_STREQ(e.what(), "tqtestmod: unprotected");
    EXPECT_EQ(e.code(), LUA_ERRRUN);
  }
}

}  // namespace
