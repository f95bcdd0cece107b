// The log channel: line layout, Lua's print, the byte limit and the output switches.
#include "support/lua_fixture.h"

#include <string>
#include <vector>

namespace {

using tqtest::run;

std::vector<std::string> sPieces;

void capturePiece(const char *piece) { sPieces.emplace_back(piece); }

// Captures the log for the life of a test.
class LogTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    sPieces.clear();
    previous_ = TqLua_setLogOutput(capturePiece);
    lua_register(L, "print", TqLua_alwaysPrint_L);
    lua_register(L, "printStdout", TqLua_alwaysStdout_L);
    lua_register(L, "debugPrint", TqLua_debugPrint_L);
  }
  void TearDown() override {
    TqLua_setLogOutput(previous_);
    UniverseTest::TearDown();
  }
  std::vector<std::string> line(const std::string &text) { return {"L: ", text, "\r\n"}; }

private:
  TqLuaLogOutput previous_ = nullptr;
};

TEST_F(LogTest, PrintJoinsArgumentsWithTabsInOneLine) {
  EXPECT_EQ(run(L, "print(1, nil, true)"), "");
  EXPECT_EQ(sPieces, line("1\tnil\ttrue"));
  sPieces.clear();
  EXPECT_EQ(run(L, "print()"), "");
  EXPECT_EQ(sPieces, line(""));
  sPieces.clear();
  EXPECT_EQ(run(L, "print(2.5, 'a\\tb', 1e100)"), "");
  EXPECT_EQ(sPieces, line("2.5\ta\tb\t1e+100"));
}

TEST_F(LogTest, FailingTostringPrintsUnknownAndGoesOn) {
  EXPECT_EQ(run(L, "print(setmetatable({}, {__tostring = function() error('no') end}), 'after')"), "");
  EXPECT_EQ(sPieces, line("< unknown >\tafter"));
}

TEST_F(LogTest, PrintUsesTheGlobalTostringAsFound) {
  EXPECT_EQ(run(L, "tostring = function(v) if v == 1 then return 0.5 elseif v == 2 then return {} end return 'x' end\n"
                   "print(1, 2, 3, 'kept')"),
            "");
  EXPECT_EQ(sPieces, line("0.5\t\tx\tkept"));  // a table result contributes nothing
  sPieces.clear();
  EXPECT_EQ(run(L, "tostring = 'not a function' print(1, 'kept')"), "");
  EXPECT_EQ(sPieces, line("< unknown >\tkept"));
}

TEST_F(LogTest, StdoutFormIsPrintAndDebugFormsAreSilent) {
  EXPECT_EQ(run(L, "printStdout('same', 1)"), "");
  EXPECT_EQ(sPieces, line("same\t1"));
  sPieces.clear();
  EXPECT_EQ(run(L, "debugPrint('never')"), "");
  TqLua_dprintf(L, "never %d", 1);
  TqLua_debugLogString("never");
  EXPECT_TRUE(sPieces.empty());
}

TEST_F(LogTest, PrintfUsesLuasFormatting) {
  const int top = lua_gettop(L);
  TqLua_printf(L, "%s=%d %f %%", "x", 5, 1.5);
  EXPECT_EQ(sPieces, line("x=5 1.5 %"));
  EXPECT_EQ(lua_gettop(L), top);
}

TEST_F(LogTest, NullTextWritesOnlyPrefixAndLineEnd) {
  TqLua_alwaysLogString(nullptr);
  EXPECT_EQ(sPieces, (std::vector<std::string>{"L: ", "\r\n"}));
}

TEST_F(LogTest, ConsoleAndDebuggerOutputs) {
  TqLua_setLogToConsole(1);
  testing::internal::CaptureStdout();
  TqLua_alwaysLogString("to the console");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "L: to the console\r\n");
  EXPECT_EQ(TqLua_setLogToConsole(0), 0);
  testing::internal::CaptureStderr();
  TqLua_alwaysLogString("to the debugger");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "L: to the debugger\r\n");
  EXPECT_TRUE(sPieces.empty());
}

// The count of logged bytes lives as long as the process, so the limit is tried in a
// fresh one.
TEST(LogLimitTest, CrossingLineIsWrittenWholeThenAllIsDropped) {
  tqtest::inFreshProcess([] {
    TqLua_setLogOutput(capturePiece);
    TqLua_setLogSizeLimit(24);
    TqLua_alwaysLogString("01234567890123456789");  // 20: prefix and line end do not count
    TqLua_alwaysLogString("abc");                   // 23
    TqLua_alwaysLogString("crossing");              // 31: crosses the limit, written whole
    TqLua_alwaysLogString("dropped");
    TqLua_alwaysLogString(nullptr);
    EXPECT_EQ(sPieces.size(), 9u);
    EXPECT_EQ(sPieces.back(), "\r\n");
    EXPECT_EQ(sPieces[7], "crossing");
    TqLua_setLogSizeLimit(0);
    TqLua_alwaysLogString("unlimited again");
    EXPECT_EQ(sPieces.size(), 12u);
    EXPECT_EQ(sPieces[10], "unlimited again");
  });
}

}  // namespace
