#include <string>
#include <vector>

#include "support/lua_fixture.h"

namespace {

using tqtest::UniverseTest;

using tqtest::programErrorOf;

std::vector<std::string> sRan;

template <const char *Name>
int recordingProc(lua_State *L) {
  sRan.push_back(std::string(Name) + (lua_pushthread(L) ? ":main" : ":thread"));
  lua_pop(L, 1);
  return 0;
}
const char kFirst[] = "first", kSecond[] = "second", kEarly[] = "early", kThread[] = "thread";

int seesStandardLibraries(lua_State *L) {
  lua_getglobal(L, "string");
  sRan.push_back(lua_istable(L, -1) ? "string library open" : "no string library");
  return 0;
}

TEST(Universe, SetupProcsRunInOrderOnTheirKindOfState) {
  tqtest::inFreshProcess([] {
    KrInit();
    TqLuaState_addSetupProc(10, "second", recordingProc<kSecond>, TqLuaSetupProc_mainState);
    TqLuaState_addSetupProc(5, "thread", recordingProc<kThread>, TqLuaSetupProc_thread);
    TqLuaState_addSetupProc(5, "first", recordingProc<kFirst>, TqLuaSetupProc_mainState);
    TqLuaState_addSetupProc(-1000, "libs", seesStandardLibraries, TqLuaSetupProc_mainState);
    TqLuaState_addSetupProc(10, "second again", recordingProc<kEarly>, TqLuaSetupProc_mainState);
    TqLuaUniverse *universe = TqLuaUniverse_open(nullptr, "u");
    ASSERT_NE(universe, nullptr);
    EXPECT_EQ(sRan, (std::vector<std::string>{"string library open", "first:main", "second:main",
                                              "early:main"}));
    sRan.clear();
    lua_State *thread = TqLuaState_open(universe);
    ASSERT_NE(thread, nullptr);
    TqLuaState_open(universe);
    EXPECT_EQ(sRan, (std::vector<std::string>{"thread:thread", "thread:thread"}));
    TqLuaState_close(thread);
    TqLuaUniverse_close(universe);
  });
}

TEST(Universe, SetupListsFreezeAtTheFirstUniverse) {
  tqtest::inFreshProcess([] {
    KrInit();
    TqLuaUniverse_close(TqLuaUniverse_open(nullptr, "gone"));
    EXPECT_EQ(programErrorOf([] {
                TqLuaState_addSetupProc(0, "late", recordingProc<kFirst>, TqLuaSetupProc_mainState);
              }),
              "Assertion failed: !sCreatedAnyUniverses");
  });
}

TEST(Universe, SetupProcArgumentsAreChecked) {
  tqtest::inFreshProcess([] {
    EXPECT_EQ(programErrorOf([] { TqLuaState_addSetupProc(0, nullptr, recordingProc<kFirst>, 0); }),
              "Assertion failed: name");
    EXPECT_EQ(programErrorOf([] { TqLuaState_addSetupProc(0, "x", nullptr, 0); }),
              "Assertion failed: setupProc");
  });
}

int sCollected = 0;
int failingProc(lua_State *L) {
  // Leaves a finaliser behind to show that the half-made universe gets closed.
  lua_newuserdata(L, 1);
  lua_newtable(L);
  lua_pushcfunction(L, [](lua_State *) -> int {
    ++sCollected;
    return 0;
  });
  lua_setfield(L, -2, "__gc");
  lua_setmetatable(L, -2);
  lua_setglobal(L, "witness");
  return luaL_error(L, "no database");
}

std::vector<std::string> sThrown;

TEST(Universe, FailingSetupProcReportsAndYieldsNull) {
  tqtest::inFreshProcess([] {
    KrInit();
    const std::string longName(60, 'n');
    TqLuaState_addSetupProc(0, longName.c_str(), failingProc, TqLuaSetupProc_mainState);
    TqExceptions_setThrowHook([](lua_State *, const char *text) { sThrown.push_back(text); });
    testing::internal::CaptureStderr();
    EXPECT_EQ(TqLuaUniverse_open(nullptr, "broken"), nullptr);
    const std::string log = testing::internal::GetCapturedStderr();
    const std::string name(47, 'n');
    EXPECT_EQ(log, "L: Lua state setup proc " + name + " failed\r\n");
    ASSERT_FALSE(sThrown.empty());
    EXPECT_EQ(sThrown.back(), "Lua state setup proc \"" + name + "\" failed: no database");
    EXPECT_EQ(sCollected, 1);
    EXPECT_EQ(programErrorOf([] { TqLuaUniverse_createMainUniverse(nullptr); }),
              "Pointer was null: sMainLuaUniverse");
    // Closing the half-made main universe counts as the main universe having closed.
    EXPECT_TRUE(TqLuaUniverse_mainClosed());
    EXPECT_EQ(programErrorOf([] { TqLuaUniverse_createMainUniverse(nullptr); }),
              "Assertion failed: !sMainLuaUniverse && !sMainLuaUniverseClosed");
  });
}

int failingThreadProc(lua_State *L) {
  lua_pushboolean(L, 1);  // a non-string error value
  return lua_error(L);
}

TEST(Universe, FailingThreadSetupYieldsNullThread) {
  tqtest::inFreshProcess([] {
    KrInit();
    TqLuaState_addSetupProc(0, "thread setup", failingThreadProc, TqLuaSetupProc_thread);
    TqLuaUniverse *universe = TqLuaUniverse_open(nullptr, "u");
    ASSERT_NE(universe, nullptr);
    TqExceptions_setThrowHook([](lua_State *, const char *text) { sThrown.push_back(text); });
    testing::internal::CaptureStderr();
    EXPECT_EQ(TqLuaState_open(universe), nullptr);
    testing::internal::GetCapturedStderr();
    ASSERT_FALSE(sThrown.empty());
    EXPECT_EQ(sThrown.back(), "Lua state setup proc \"thread setup\" failed");
    TqLuaUniverse_close(universe);
  });
}

int createsMainUniverse(lua_State *) {
  TqLuaUniverse_createMainUniverse(nullptr);
  return 0;
}

TEST(Universe, MainUniverseLifecycle) {
  tqtest::inFreshProcess([] {
    KrInit();
    EXPECT_EQ(TqLuaUniverse_getMain(), nullptr);
    TqLuaUniverse *main = TqLuaUniverse_createMainUniverse(nullptr);
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(TqLuaUniverse_getMain(), main);
    EXPECT_TRUE(TqLuaUniverse_isMain(main));
    lua_State *L = TqLuaUniverse_getLuaState(main);
    EXPECT_EQ(tqtest::eval(L, "debug.getregistry().universeName"), "main");
    EXPECT_TRUE(TqLuaState_isMainUniverse(L));
    TqLuaState_checkMainUniverse(L);
    EXPECT_EQ(programErrorOf([] { TqLuaUniverse_createMainUniverse(nullptr); }),
              "Assertion failed: !sMainLuaUniverse && !sMainLuaUniverseClosed");
    EXPECT_FALSE(TqLuaUniverse_mainClosing());
    TqLuaUniverse_close(main);
    EXPECT_TRUE(TqLuaUniverse_mainClosing());
    EXPECT_TRUE(TqLuaUniverse_mainClosed());
    EXPECT_EQ(programErrorOf([] { TqLuaUniverse_createMainUniverse(nullptr); }),
              "Assertion failed: !sMainLuaUniverse && !sMainLuaUniverseClosed");
  });
}

TEST(Universe, MainUniverseCannotBeCreatedFromItsOwnSetup) {
  tqtest::inFreshProcess([] {
    KrInit();
    TqLuaState_addSetupProc(0, "recursive", createsMainUniverse, TqLuaSetupProc_mainState);
    testing::internal::CaptureStderr();
    EXPECT_EQ(programErrorOf([] { TqLuaUniverse_createMainUniverse(nullptr); }),
              "Pointer was null: sMainLuaUniverse");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("recursive failed"), std::string::npos);
  });
}

TEST_F(UniverseTest, SecondaryUniverseIsNamedAndNotMain) {
  EXPECT_EQ(tqtest::eval(L, "debug.getregistry().universeName"), "test");
  EXPECT_FALSE(TqLuaUniverse_isMain(universe));
  EXPECT_EQ(TqLuaState_getUniverse(L), universe);
  testing::internal::CaptureStderr();
  EXPECT_EQ(programErrorOf([&] { TqLuaState_checkMainUniverse(L); }),
            "Not operating in main universe.");
  const std::string printed = testing::internal::GetCapturedStderr();
  EXPECT_NE(printed.find("TqLuaState_checkMainUniverse failed: "), std::string::npos);
  EXPECT_NE(printed.find("L: Not operating in main universe.\n"), std::string::npos);
}

TEST_F(UniverseTest, ThreadsAndCoroutinesInheritTheUniverseWord) {
  lua_State *thread = TqLuaState_open(universe);
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(TqLuaState_getUniverse(thread), universe);
  lua_State *coroutine = lua_newthread(thread);
  EXPECT_EQ(TqLuaState_getUniverse(coroutine), universe);
  lua_pop(thread, 1);
  // The thread is anchored in the registry under its own address until closed.
  lua_pushlightuserdata(L, thread);
  lua_rawget(L, LUA_REGISTRYINDEX);
  EXPECT_EQ(lua_tothread(L, -1), thread);
  lua_pop(L, 1);
  TqLuaState_close(thread);
  lua_pushlightuserdata(L, thread);
  lua_rawget(L, LUA_REGISTRYINDEX);
  EXPECT_TRUE(lua_isnil(L, -1));
  lua_pop(L, 1);
  EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(UniverseTest, CollectorIsTunedAtCreation) {
  EXPECT_EQ(lua_gc(L, LUA_GCSETPAUSE, 100), 150);
  lua_gc(L, LUA_GCSETSTEPMUL, 220);
  EXPECT_EQ(lua_gc(L, LUA_GCSETSTEPMUL, 200), 220);
}

TEST(Universe, AttachedStateKeepsALowerPause) {
  KrInit();
  lua_State *L = luaL_newstate();
  lua_gc(L, LUA_GCSETPAUSE, 120);
  lua_gc(L, LUA_GCSETSTEPMUL, 300);
  int data = 0;
  TqLuaUniverse *universe = TqLuaUniverse_attachToLuaState(L, &data, nullptr, "adopted");
  ASSERT_NE(universe, nullptr);
  EXPECT_EQ(TqLuaUniverse_getApplicationData(universe), &data);
  EXPECT_EQ(lua_gc(L, LUA_GCSETPAUSE, 120), 120);
  EXPECT_EQ(lua_gc(L, LUA_GCSETSTEPMUL, 330), 330);
  EXPECT_EQ(tqtest::eval(L, "type(string)"), "table");  // the setup lists ran on it
  TqLuaUniverse_close(universe);
}

TEST(Universe, RawStatesHaveNoUniverse) {
  lua_State *L = TqRawLuaState_open();
  EXPECT_EQ(TqLuaState_getUniverse(L), nullptr);
  EXPECT_EQ(TqLuaUniverse_getConfiguration(L, 1), nullptr);
  TqLuaState_close(L);  // no universe: nothing to do
  EXPECT_EQ(lua_gc(L, LUA_GCSETPAUSE, 150), 150);
  luaL_openlibs(L);
  EXPECT_EQ(tqtest::run(L, "error('raw')"), "test:1: raw");
  TqRawLuaState_close(L);
  TqRawLuaState_close(nullptr);
}

TEST(Universe, NullArgumentsAreHandledOrRefused) {
  EXPECT_EQ(TqLuaUniverse_close(nullptr), 0);
  EXPECT_FALSE(TqLuaUniverse_isMain(nullptr));
  EXPECT_EQ(TqLuaUniverse_getApplicationData(nullptr), nullptr);
  EXPECT_EQ(TqLuaUniverse_getDebugger(nullptr), nullptr);
  EXPECT_EQ(programErrorOf([] { TqLuaState_open(nullptr); }), "Assertion failed: universe");
  EXPECT_EQ(programErrorOf([] { TqLuaState_close(nullptr); }), "Assertion failed: L");
}

void *answerConfiguration(lua_State *, va_list arguments) {
  const int key = va_arg(arguments, int);
  return reinterpret_cast<void *>(static_cast<intptr_t>(key * 2));
}

lua_State *sHooked = nullptr;

TEST_F(UniverseTest, ConfigurationHandlerAndDebugHook) {
  EXPECT_EQ(TqLuaUniverse_getConfiguration(L, 21), nullptr);
  TqLuaUniverse_setConfigurationHandler(universe, answerConfiguration);
  EXPECT_EQ(TqLuaUniverse_getConfiguration(L, 21), reinterpret_cast<void *>(42));
  TqLuaUniverse_setDebugHook(universe, [](lua_State *L) { sHooked = L; });
  EXPECT_EQ(sHooked, L);
}

TEST_F(UniverseTest, ExceptionHandlersAreCopiedWhole) {
  static int context;
  TqLuaExceptionHandlers custom = TqLuaUniverse_getExceptionHandlers(universe);
  const TqLuaExceptionHandlers saved = custom;
  custom.context = &context;
  custom.panicHandler = [](void *ctx, lua_State *) -> int {
    throw TqLuaException(ctx == &context ? "custom panic" : "wrong context", 2);
  };
  TqLuaUniverse_setExceptionHandlers(universe, &custom);
  EXPECT_EQ(TqLuaUniverse_getExceptionHandlers(universe).context, &context);
  lua_pushstring(L, "unprotected");
  EXPECT_EQ(programErrorOf([&] { lua_error(L); }), "custom panic");
  TqLuaUniverse_setExceptionHandlers(universe, &saved);
}

TEST_F(UniverseTest, CloseRunsShutdownAndCoverageGlobals) {
  ASSERT_EQ(tqtest::run(L, "_G['TqDebugger.shutdown'] = function() shutdownRan = true end\n"
                           "_G['TqLuaCoverage.dumpCoverage'] = function() error('ignored') end"),
            "");
  static bool ran = false;
  lua_pushcfunction(L, [](lua_State *) -> int {
    ran = true;
    return 0;
  });
  lua_setglobal(L, "TqDebugger.shutdown");
  TqLuaUniverse_close(universe);
  universe = nullptr;
  EXPECT_TRUE(ran);
}

}  // namespace
