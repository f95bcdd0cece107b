// The chunk loader: the environment slot, the debugger's substitute text, code capture,
// the call shortcuts and the Lua-callable loader.
#include <stdexcept>
#include <string>
#include <vector>

#include "toolkit/chunks_fixture.h"

namespace {

using tqtest::eval;
using tqtest::run;

struct CapturedChunk {
  std::string source;
  std::string chunkName;
  bool named;
};

std::vector<CapturedChunk> sCaptured;

void recordChunk(lua_State *, const char *source, size_t length, const char *chunkName) {
  sCaptured.push_back({std::string(source, length), chunkName ? chunkName : "", chunkName != nullptr});
}

void throwingHook(lua_State *, const char *, size_t, const char *) {
  throw std::runtime_error("hook failed");
}

void raisingHook(lua_State *L, const char *, size_t, const char *) { luaL_error(L, "hook raised"); }

std::vector<std::string> sLogged;

void recordLog(const char *piece) { sLogged.emplace_back(piece); }

// The loader's native forms as Lua functions; a nil chunk name passes NULL.
void registerLoaders(lua_State *L) {
  lua_register(L, "loadAndCaptureChunk", TqLua_loadAndCaptureChunk_L);
  lua_register(L, "codeChunk", [](lua_State *L) { return TqLua_getFunctionCodeChunk(L, 1); });
  lua_register(L, "chunkName", [](lua_State *L) { return TqLua_getFunctionChunkName(L, 1); });
  // loadChunk(source, name, environment) -> status, function or message, stack grew by
  lua_register(L, "loadChunk", [](lua_State *L) {
    lua_settop(L, 3);
    size_t size = 0;
    const char *source = lua_tolstring(L, 1, &size);
    const int status = TqLua_loadChunkFromBuffer(L, source, size, lua_tostring(L, 2));
    lua_pushinteger(L, status);
    lua_insert(L, 3);
    lua_pushinteger(L, lua_gettop(L) - 4);
    return 3;
  });
  // callChunk(source, name) -> result count, results where the slot stood?, results...
  lua_register(L, "callChunk", [](lua_State *L) {
    lua_settop(L, 2);
    lua_pushnil(L);
    const int count = TqLua_callChunkFromString(L, lua_tostring(L, 1), lua_tostring(L, 2));
    lua_pushinteger(L, count);
    lua_pushboolean(L, lua_gettop(L) - 1 == 2 + count);
    lua_insert(L, 3);
    lua_insert(L, 3);
    return count + 2;
  });
  // pcallChunk(source, name) -> status, results or message
  lua_register(L, "pcallChunk", [](lua_State *L) {
    lua_settop(L, 2);
    lua_pushnil(L);
    const int status = TqLua_pcallChunkFromString(L, lua_tostring(L, 1), lua_tostring(L, 2));
    lua_pushinteger(L, status);
    lua_insert(L, 3);
    return lua_gettop(L) - 2;
  });
  lua_register(L, "loadOnEmptyStack", [](lua_State *L) {
    lua_settop(L, 0);
    TqLua_loadChunkFromString(L, "return 1", "empty");
    return 0;
  });
}

class ChunksTest : public tqtest::DebuggedUniverseTest {
protected:
  void SetUp() override {
    DebuggedUniverseTest::SetUp();
    sCaptured.clear();
    registerLoaders(L);
  }
};

TEST_F(ChunksTest, EnvironmentSlotChoosesWhereGlobalsGo) {
  EXPECT_EQ(run(L, R"lua(
    local env = {y = "from env"}
    local status, f, grown = loadChunk("x = 5 return y", "env", env)
    assert(status == 0 and grown == 0, grown)
    assert(f() == "from env")
    assert(env.x == 5 and x == nil)
    status, f = loadChunk("x = 6", "globals", nil)
    f()
    assert(x == 6)
  )lua"), "");
  EXPECT_EQ(run(L, "loadChunk('x = 1', 'bad', 5)"),
            "test:1: bad argument #3 to 'loadChunk' (table expected, got number)");
  EXPECT_EQ(run(L, "loadOnEmptyStack()"), "Assertion failed: 0 < environmentIndex");
}

TEST_F(ChunksTest, LoadErrorIsReturnedInTheSlotAndNotLogged) {
  sLogged.clear();
  const TqLuaLogOutput previous = TqLua_setLogOutput(recordLog);
  EXPECT_EQ(run(L, R"lua(
    local status, message, grown = loadChunk("x = = 1", nil)
    assert(status == 3 and grown == 0)
    assert(message == [[[string "< anonymous >"]:1: unexpected symbol near '=']], message)
  )lua"), "");
  TqLua_setLogOutput(previous);
  EXPECT_TRUE(sLogged.empty());
}

TEST_F(ChunksTest, CapturedChunkKeepsExactTextAndReachesTheRealEnvironment) {
  TqLua_setCodeCapturing(&capture, 1);
  EXPECT_EQ(run(L, R"lua(
    local source = "written = 'a\0b' -- \0 in a comment\nreturn type(written)"
    local f = loadAndCaptureChunk(source, "captured.lua")
    earlier = f
    assert(codeChunk(f) == source)
    assert(chunkName(f) == "captured.lua")
    assert(f() == "string")
    assert(written == "a\0b")
    assert(rawget(getfenv(f), "written") == nil)

    local env = {}
    f = loadAndCaptureChunk("z = 1", "own environment", env)
    f()
    assert(env.z == 1 and z == nil)

    local status, unnamed = loadChunk("return 1", nil)
    assert(codeChunk(unnamed) == "return 1" and chunkName(unnamed) == nil)
    assert(codeChunk(print) == nil and codeChunk(function() end) == nil and chunkName("f") == nil)
  )lua"), "");
  // Turning capture off affects only the chunks loaded afterwards.
  EXPECT_EQ(TqLua_setCodeCapturing(&capture, 0), 1);
  EXPECT_EQ(run(L, R"lua(
    before = loadAndCaptureChunk("return 1", "before")
    assert(codeChunk(before) == nil and chunkName(before) == nil)
    assert(chunkName(earlier) == "captured.lua")
  )lua"), "");
}

TEST_F(ChunksTest, CaptureHookSeesEveryLoadedChunk) {
  EXPECT_EQ(TqLua_setCodeCaptureHook(&capture, recordChunk), nullptr);
  EXPECT_EQ(run(L, R"lua(
    local f = loadAndCaptureChunk("return 'a\0b'", "hooked")
    assert(codeChunk(f) == nil)
    loadChunk("return 2", nil)
  )lua"), "");
  ASSERT_EQ(sCaptured.size(), 2u);
  EXPECT_EQ(sCaptured[0].source, std::string("return 'a\0b'", 12));
  EXPECT_EQ(sCaptured[0].chunkName, "hooked");
  EXPECT_FALSE(sCaptured[1].named);
  EXPECT_EQ(TqLua_setCodeCaptureHook(&capture, nullptr), recordChunk);
}

TEST_F(ChunksTest, FailingCaptureStillReturnsTheFunction) {
  TqLua_setCodeCapturing(&capture, 1);
  for (TqLuaCodeCaptureHook hook : {throwingHook, raisingHook}) {
    TqLua_setCodeCaptureHook(&capture, hook);
    EXPECT_EQ(run(L, R"lua(
      local status, f, grown = loadChunk("return 'loaded'", "failing hook")
      assert(status == 0 and grown == 0)
      assert(f() == "loaded")
      assert(codeChunk(f) == "return 'loaded'")
    )lua"), "");
  }
}

TEST_F(ChunksTest, DebuggerSubstituteReplacesTheSourceWhenItCompiles) {
  TqLua_setCodeCapturing(&capture, 1);
  TqLua_setCodeCaptureHook(&capture, recordChunk);
  EXPECT_EQ(run(L, R"lua(
    asked = {}
    debug.getregistry().loadCodeFromDebugger = function(name)
      asked[#asked + 1] = name
      if name == "swapped" then return "return 'substitute'" end
      if name == "broken" then return "return +" end
      if name == "raising" then error("no substitute") end
      if name == "table" then return {} end
    end
  )lua"), "");
  EXPECT_EQ(eval(L, "select(3, callChunk(\"return 'original'\", 'swapped'))"), "substitute");
  ASSERT_EQ(sCaptured.size(), 1u);
  EXPECT_EQ(sCaptured[0].source, "return 'substitute'");
  for (const char *name : {"broken", "raising", "table", "plain"}) {
    EXPECT_EQ(eval(L, std::string("select(3, callChunk(\"return 'original'\", '") + name + "'))"),
              "original") << name;
  }
  EXPECT_EQ(sCaptured.back().source, "return 'original'");
  EXPECT_EQ(eval(L, "select(3, callChunk(\"return 'original'\", nil))"), "original");
  EXPECT_EQ(eval(L, "table.concat(asked, ',')"), "swapped,broken,raising,table,plain");
}

TEST_F(ChunksTest, UniverseWithoutDebuggerNeitherSubstitutesNorCaptures) {
  TqLuaUniverse *plain = TqLuaUniverse_open(nullptr, "plain");
  lua_State *P = TqLuaUniverse_getLuaState(plain);
  TqLuaUniverse_setCodeCapture(plain, &capture);
  TqLua_setCodeCapturing(&capture, 1);
  TqLua_setCodeCaptureHook(&capture, recordChunk);
  registerLoaders(P);
  EXPECT_EQ(run(P, R"lua(
    debug.getregistry().loadCodeFromDebugger = function() asked = true return "return 2" end
    local f = loadAndCaptureChunk("return 1", "plain")
    assert(f() == 1 and not asked and codeChunk(f) == nil)
  )lua"), "");
  EXPECT_TRUE(sCaptured.empty());
  TqLuaUniverse_close(plain);
}

TEST_F(ChunksTest, CallFormsReturnResultsWhereTheSlotStood) {
  EXPECT_EQ(run(L, R"lua(
    local count, inPlace, a, b = callChunk("return 1, 2", "two")
    assert(count == 2 and inPlace and a == 1 and b == 2)
    count, inPlace = callChunk("", "none")
    assert(count == 0 and inPlace)
    assert(select("#", pcallChunk("return 7, 8", "p")) == 3)
    local status, value = pcallChunk("return 7", "p")
    assert(status == 0 and value == 7)
    status, value = pcallChunk("error('boom', 0)", "p")
    assert(status == 2 and value == "boom")
    status, value = pcallChunk("x = =", "p")
    assert(status == 3 and value == [[[string "p"]:1: unexpected symbol near '=']])
  )lua"), "");
  EXPECT_EQ(run(L, "callChunk(\"error('boom', 0)\", 'c')"), "boom");
  EXPECT_EQ(run(L, "callChunk('x = = 1', 'bad')"), "[string \"bad\"]:1: unexpected symbol near '='");
}

TEST_F(ChunksTest, LuaCallableLoaderChecksItsArguments) {
  EXPECT_EQ(run(L, "loadAndCaptureChunk({}, 'n')"),
            "test:1: bad argument #1 to 'loadAndCaptureChunk' (string expected, got table)");
  EXPECT_EQ(run(L, "loadAndCaptureChunk('return +', 'bad')"),
            "[string \"bad\"]:1: unexpected symbol near '+'");
  EXPECT_EQ(run(L, R"lua(
    y = 1
    local f = loadAndCaptureChunk("return y", 7, {y = 2})
    assert(f() == 2 and debug.getinfo(f, "S").source == "7")
  )lua"), "");
}

TEST(CodeCaptureSettings, NullSettingsAreAProgramError) {
  try {
    TqLua_setCodeCapturing(nullptr, 1);
    FAIL() << "no exception";
  } catch (const TqLuaException &e) {
    EXPECT_STREQ(e.message(), "Pointer was null: capture");
    EXPECT_EQ(e.code(), 0);
  }
  EXPECT_THROW(TqLua_setCodeCaptureHook(nullptr, nullptr), TqLuaException);
}

}  // namespace
