// What the toolkit keeps process-wide: the log channel, its limit and the traceback guard.
// The rest of the toolkit is tested by the Lua scripts of tests/lua.
#include <cstdlib>
#include <string>

#include "support/lua_fixture.h"

namespace {

std::string sLog;
void capture(const char *piece) { sLog += piece; }

TEST(LogChannel, ConsoleAndDebuggerOutputs) {
  TqLua_setLogToConsole(1);
  testing::internal::CaptureStdout();
  TqLua_alwaysLogString("to the console");
  TqLua_dumpStack(nullptr, "label");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "L: to the console\r\nnil is not a valid Lua state.\n");
  EXPECT_EQ(TqLua_setLogToConsole(0), 0);
  testing::internal::CaptureStderr();
  TqLua_alwaysLogString("to the debugger");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "L: to the debugger\r\n");
}

// The count of logged bytes lives as long as the process, so the limit is tried in a fresh one.
TEST(LogChannel, TheLineCrossingTheLimitIsWrittenWholeThenAllIsDropped) {
  tqtest::inFreshProcess([] {
    TqLua_setLogOutput(capture);
    TqLua_setLogSizeLimit(24);
    TqLua_alwaysLogString("01234567890123456789");  // 20: prefix and line end do not count
    TqLua_alwaysLogString("abc");                   // 23
    TqLua_alwaysLogString("crossing");              // 31: crosses the limit, written whole
    TqLua_alwaysLogString("dropped");
    TqLua_alwaysLogString(nullptr);
    EXPECT_EQ(sLog, "L: 01234567890123456789\r\nL: abc\r\nL: crossing\r\n");
    TqLua_setLogSizeLimit(0);
    TqLua_alwaysLogString("unlimited again");
    EXPECT_EQ(sLog.substr(sLog.size() - 20), "L: unlimited again\r\n");
  });
}

// Builds a traceback on a second state from inside the first allocation it sees.
struct ReentryProbe {
  lua_State *other = nullptr;
  bool armed = false;
  std::string seen;
};

void *probingAllocator(void *context, void *block, size_t, size_t size) {
  auto *probe = static_cast<ReentryProbe *>(context);
  if (probe->armed && size > 0) {
    probe->armed = false;
    TqLua_pushTraceback(probe->other, "inner", 0, 0);
    probe->seen = lua_tostring(probe->other, -1);
    lua_pop(probe->other, 1);
  }
  if (size == 0) return std::free(block), nullptr;
  return std::realloc(block, size);
}

TEST(Traceback, ATracebackDuringATracebackReportsReentry) {
  ReentryProbe probe;
  probe.other = TqRawLuaState_open();
  lua_State *L = lua_newstate(probingAllocator, &probe);
  ASSERT_NE(L, nullptr);
  probe.armed = true;
  TqLua_pushTraceback(L, "outer", 0, 0);  // allocates its text while building
  EXPECT_EQ(probe.seen, "(push traceback failed due to re-entry!)");
  EXPECT_STREQ(lua_tostring(L, -1), "outer\n---------------------------------");
  TqLua_pushTraceback(probe.other, nullptr, 0, 0);  // the guard is released afterwards
  EXPECT_STREQ(lua_tostring(probe.other, -1), "---------------------------------");
  lua_close(L);
  TqRawLuaState_close(probe.other);
}

TEST(Chunks, UnreadableFileIsStatusOneAndNullCaptureSettingsAProgramError) {
  lua_State *L = TqRawLuaState_open();
  EXPECT_EQ(luaL_loadfile(L, "/nonexistent/file.lua"), 1);
  TqRawLuaState_close(L);
  EXPECT_EQ(tqtest::programErrorOf([] { TqLua_setCodeCapturing(nullptr, 1); }), "Pointer was null: capture");
  EXPECT_EQ(tqtest::programErrorOf([] { TqLua_setCodeCaptureHook(nullptr, nullptr); }),
            "Pointer was null: capture");
}

}  // namespace
