// Tracebacks, short descriptions and dumps.
#include "support/lua_fixture.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using tqtest::eval;
using tqtest::run;

std::vector<std::string> sLines;

// Keeps the text pieces of logged lines.
void captureText(const char *piece) {
  if (std::strcmp(piece, "L: ") != 0 && std::strcmp(piece, "\r\n") != 0) sLines.emplace_back(piece);
}

class TracebackTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    sLines.clear();
    previous_ = TqLua_setLogOutput(captureText);
    lua_register(L, "traceback", [](lua_State *L) { return TqLua_pushTraceback(L, lua_tostring(L, 1), 0, 0); });
    lua_register(L, "dumpTraceback", [](lua_State *L) {
      TqLua_dumpTraceback(L, lua_tostring(L, 1), 0);
      return 0;
    });
    lua_register(L, "dumpSkipping", [](lua_State *L) {
      TqLua_dumpTracebackSkippingLevels(L, lua_tostring(L, 1), static_cast<int>(lua_tointeger(L, 2)));
      return 0;
    });
    lua_register(L, "dumpTrace", [](lua_State *L) {
      dumpTrace(L);
      return 0;
    });
  }
  void TearDown() override {
    TqLua_setLogOutput(previous_);
    UniverseTest::TearDown();
  }

private:
  TqLuaLogOutput previous_ = nullptr;
};

TEST_F(TracebackTest, LinesNameKindFunctionAndPosition) {
  const char *code =
      "local function handler(t, k)\n"
      "  return (traceback('boom'))\n"
      "end\n"
      "local function reader()\n"
      "  local keep = handler\n"
      "  return (setmetatable({}, {__index = handler}).x)\n"
      "end\n"
      "local function aVeryLongFunctionNameOfMoreThan30Chars() return (reader()) end\n"
      "text = aVeryLongFunctionNameOfMoreThan30Chars()\n";
  ASSERT_EQ(run(L, code), "");
  EXPECT_EQ(eval(L, "text"),
            "boom\n"
            "    0: global   traceback                      - C\n"
            "    1: upval    handler                        - =test:2\n"
            "    2: upvalue  reader                         - =test:6\n"
            "    3: local    aVeryLongFunctionNameOfMoreThan30Chars - =test:8\n"
            "    4:          [unnamed]                      - =test:9\n"
            "---------------------------------");
}

TEST_F(TracebackTest, NullMessageStartsWithTheFirstLevel) {
  lua_pushcfunction(L, [](lua_State *L) { return TqLua_pushTraceback(L, nullptr, 0, 0); });
  ASSERT_EQ(lua_pcall(L, 0, 1, 0), 0);
  EXPECT_STREQ(lua_tostring(L, -1),
               "    0:          [unnamed]                      - C\n"
               "---------------------------------");
  lua_pop(L, 1);
}

// Strips the debug information (line numbers, local and upvalue names) from a Lua 5.1
// binary chunk of this platform, as a stripping compiler does.
class ChunkStripper {
public:
  explicit ChunkStripper(const std::string &chunk) : in_(chunk) {}
  std::string strip() {
    copy(12);  // header
    function();
    return out_;
  }

private:
  template <typename T> T peek() {
    T value;
    std::memcpy(&value, in_.data() + at_, sizeof value);
    return value;
  }
  void copy(size_t n) {
    out_.append(in_, at_, n);
    at_ += n;
  }
  void skip(size_t n) { at_ += n; }
  void string(bool keep) {
    const size_t n = peek<size_t>() + sizeof(size_t);
    keep ? copy(n) : skip(n);
  }
  void zeroCount() { out_.append(sizeof(int), '\0'); }
  void function() {
    string(true);
    copy(2 * sizeof(int) + 4);
    copy(sizeof(int) + 4 * static_cast<size_t>(peek<int>()));  // code
    const int constants = peek<int>();
    copy(sizeof(int));
    for (int i = 0; i < constants; ++i) {
      const char type = in_[at_];
      copy(1);
      if (type == LUA_TBOOLEAN) copy(1);
      if (type == LUA_TNUMBER) copy(sizeof(lua_Number));
      if (type == LUA_TSTRING) string(true);
    }
    const int protos = peek<int>();
    copy(sizeof(int));
    for (int i = 0; i < protos; ++i) function();
    skip(sizeof(int) + 4 * static_cast<size_t>(peek<int>()));  // line info
    zeroCount();
    const int locals = peek<int>();
    skip(sizeof(int));
    for (int i = 0; i < locals; ++i) {
      string(false);
      skip(2 * sizeof(int));
    }
    zeroCount();
    const int upvalues = peek<int>();
    skip(sizeof(int));
    for (int i = 0; i < upvalues; ++i) string(false);
    zeroCount();
  }
  const std::string &in_;
  std::string out_;
  size_t at_ = 0;
};

TEST_F(TracebackTest, StrippedCodeIsPlacedByItsLinesAndInstruction) {
  ASSERT_EQ(run(L, "compiled = string.dump(loadstring(\n"
                   "  'local t = {}\\n'..\n"
                   "  'local function g() local a = 1 return (traceback()) end\\n'..\n"
                   "  'return (g())', '=stripped'))"),
            "");
  lua_getglobal(L, "compiled");
  size_t length = 0;
  const char *bytes = lua_tolstring(L, -1, &length);
  const std::string stripped = ChunkStripper(std::string(bytes, length)).strip();
  lua_pop(L, 1);
  ASSERT_EQ(luaL_loadbuffer(L, stripped.data(), stripped.size(), "=stripped"), 0);
  ASSERT_EQ(lua_pcall(L, 0, 1, 0), 0) << lua_tostring(L, -1);
  // Last defining line, first defining line and instruction index; the main chunk's
  // lines are 0.
  EXPECT_STREQ(lua_tostring(L, -1),
               "    0: global   traceback                      - C\n"
               "    1:          [unnamed]                      - 2:2+2\n"
               "    2:          [unnamed]                      - 0:0+3\n"
               "---------------------------------");
  lua_pop(L, 1);
}

TEST_F(TracebackTest, DumpsLogOneLineUnlessTheErrorWasReported) {
  EXPECT_EQ(run(L, "dumpTraceback('failure')"), "");
  ASSERT_EQ(sLines.size(), 1u);
  EXPECT_EQ(sLines[0],
            "failure\n"
            "    0: global   dumpTraceback                  - C\n"
            "    1:          [unnamed]                      - =test:1\n"
            "---------------------------------");
  sLines.clear();
  const int top = lua_gettop(L);
  TqLua_dumpTraceback(L, "already told <TqErrorID> 12", 0);
  TqLua_dumpTracebackVerbose(L, "<TqErrorID>", 0);
  EXPECT_TRUE(sLines.empty());
  EXPECT_EQ(lua_gettop(L), top);

  EXPECT_EQ(run(L, "dumpSkipping('skipped', 1)"), "");
  EXPECT_EQ(run(L, "dumpTrace()"), "");
  ASSERT_EQ(sLines.size(), 2u);
  EXPECT_EQ(sLines[0],
            "skipped\n"
            "    1:          [unnamed]                      - =test:1\n"
            "---------------------------------");
  EXPECT_EQ(sLines[1].rfind("\n    0: global   dumpTrace ", 0), 0u);
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
  if (size == 0) {
    std::free(block);
    return nullptr;
  }
  return std::realloc(block, size);
}

TEST(TracebackReentryTest, TracebackDuringTracebackReportsReentry) {
  ReentryProbe probe;
  probe.other = TqRawLuaState_open();
  lua_State *L = lua_newstate(probingAllocator, &probe);
  ASSERT_NE(L, nullptr);
  probe.armed = true;
  TqLua_pushTraceback(L, "outer", 0, 0);  // allocates its text while building
  EXPECT_EQ(probe.seen, "(push traceback failed due to re-entry!)");
  EXPECT_STREQ(lua_tostring(L, -1), "outer\n---------------------------------");
  TqLua_pushTraceback(probe.other, "again", 0, 0);  // the guard is released afterwards
  EXPECT_STREQ(lua_tostring(probe.other, -1), "again\n---------------------------------");
  lua_close(L);
  TqRawLuaState_close(probe.other);
}

TEST_F(TracebackTest, ShortDescriptionsByToolkitType) {
  lua_settop(L, 0);
  lua_State *target = TqLuaState_open(universe);
  ASSERT_NE(target, nullptr);
  lua_pushnil(L);
  lua_pushboolean(L, 1);
  lua_pushlightuserdata(L, L);
  lua_pushnumber(L, 2.5);
  lua_pushliteral(L, "a long string that is never shortened by the description at all");
  lua_newtable(L);
  lua_pushcfunction(L, TqLua_chain);
  lua_newuserdata(L, 1);
  lua_pushthread(L);
  TqLuaInternal_makeTaggedHeavyUserdata(L, 8, TqLuaInternal_nativeObjectTag);
  const char *expected[] = {"nil", "true", "aLightData", "2.5",
                            "\"a long string that is never shortened by the description at all\"",
                            "aTable", "aFunction", "aHeavyData", "aThread", "aNativeObject", "none"};
  for (int index = 1; index <= 11; ++index) {
    EXPECT_STREQ(TqLua_shortStringDescription(L, target, index), expected[index - 1]) << index;
    EXPECT_STREQ(lua_tostring(target, -1), expected[index - 1]);
    EXPECT_STREQ(TqLua_stringDescription(L, L, index), expected[index - 1]);
    lua_pop(L, 1);
  }
  EXPECT_EQ(lua_gettop(target), 11);
  EXPECT_EQ(lua_gettop(L), 10);
  TqLuaState_close(target);
  lua_settop(L, 0);
}

TEST_F(TracebackTest, DumpsPrintNothingAndRestoreTheStack) {
  lua_settop(L, 0);
  lua_pushliteral(L, "x");
  lua_newtable(L);
  TqLua_dumpStack(L, "label");
  TqLua_dumpStack(L, nullptr);
  TqLua_dumpStackVerbose(L, "label");
  TqLua_dumpStackComment(L, "comment");
  TqLua_dumpValue(L, -1, "value");
  TqLua_dumpValue(L, 1, nullptr);
  dumpState(L);
  dumpValue(L, 2);
  EXPECT_EQ(lua_gettop(L), 2);
  EXPECT_TRUE(lua_istable(L, 2));
  EXPECT_TRUE(sLines.empty());
  lua_settop(L, 0);

  testing::internal::CaptureStdout();
  TqLua_dumpStack(nullptr, "label");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "nil is not a valid Lua state.\n");
}

}  // namespace
