// Universes and states: the setup lists, the main universe's life, threads, raw states.
// Tests of process-wide state run in a fresh process each.
#include <string>
#include <vector>

#include "support/lua_fixture.h"

namespace {

using tqtest::programErrorOf;
using tqtest::UniverseTest;

std::string sRan, sThrown;
void recordThrow(lua_State *, const char *text) { sThrown = text; }

// Records its name (a template argument) and whether it runs on a main state or a thread.
template <const char *Name>
int recordingProc(lua_State *L) {
  sRan += std::string(Name) + (lua_pushthread(L) ? ":main " : ":thread ");
  return 0;
}
const char kFirst[] = "first", kSecond[] = "second", kLater[] = "later", kThread[] = "thread";
bool sFailThreads = false;
int failingThreadProc(lua_State *L) { return sFailThreads ? (lua_pushboolean(L, 1), lua_error(L)) : 0; }

int seesStandardLibraries(lua_State *L) {
  lua_getglobal(L, "string");
  sRan += lua_istable(L, -1) ? "libraries " : "no libraries ";
  return 0;
}

TEST(Universe, SetupProcsRunInOrderOnTheirKindOfStateUntilTheListsFreeze) {
  tqtest::inFreshProcess([] {
    EXPECT_EQ(programErrorOf([] { TqLuaState_addSetupProc(0, nullptr, recordingProc<kFirst>, 0); }),
              "Assertion failed: name");
    EXPECT_EQ(programErrorOf([] { TqLuaState_addSetupProc(0, "x", nullptr, 0); }), "Assertion failed: setupProc");
    KrInit();
    TqLuaState_addSetupProc(10, "second", recordingProc<kSecond>, TqLuaSetupProc_mainState);
    TqLuaState_addSetupProc(5, "thread", recordingProc<kThread>, TqLuaSetupProc_thread);
    TqLuaState_addSetupProc(5, "first", recordingProc<kFirst>, TqLuaSetupProc_mainState);
    TqLuaState_addSetupProc(-1000, "libs", seesStandardLibraries, TqLuaSetupProc_mainState);
    TqLuaState_addSetupProc(10, "later", recordingProc<kLater>, TqLuaSetupProc_mainState);
    TqLuaState_addSetupProc(0, "thread setup", failingThreadProc, TqLuaSetupProc_thread);
    TqLuaUniverse *universe = TqLuaUniverse_open(nullptr, "u");
    ASSERT_NE(universe, nullptr);
    lua_State *thread = TqLuaState_open(universe);
    TqLuaState_open(universe);
    EXPECT_EQ(sRan, "libraries first:main second:main later:main thread:thread thread:thread ");
    TqLuaState_close(thread);
    // A thread whose setup fails (with a non-string error) is not opened.
    sFailThreads = true;
    TqExceptions_setThrowHook(recordThrow);
    testing::internal::CaptureStderr();
    EXPECT_EQ(TqLuaState_open(universe), nullptr);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(sThrown, "Lua state setup proc \"thread setup\" failed");
    TqLuaUniverse_close(universe);
    EXPECT_EQ(programErrorOf([] { TqLuaState_addSetupProc(0, "late", recordingProc<kFirst>, 0); }),
              "Assertion failed: !sCreatedAnyUniverses");
  });
}

int sCollected = 0;
int collect(lua_State *) { return ++sCollected, 0; }
int failingProc(lua_State *L) {
  // Leaves a finaliser behind to show that the half-made universe gets closed.
  lua_newuserdata(L, 1);
  lua_newtable(L);
  lua_pushcfunction(L, collect);
  lua_setfield(L, -2, "__gc");
  lua_setmetatable(L, -2);
  lua_setglobal(L, "witness");
  return luaL_error(L, "no database");
}

TEST(Universe, FailingSetupProcsAreReportedAndYieldNull) {
  tqtest::inFreshProcess([] {
    KrInit();
    TqLuaState_addSetupProc(0, std::string(60, 'n').c_str(), failingProc, TqLuaSetupProc_mainState);
    TqExceptions_setThrowHook(recordThrow);
    testing::internal::CaptureStderr();
    EXPECT_EQ(TqLuaUniverse_open(nullptr, "broken"), nullptr);
    const std::string name(47, 'n');
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "L: Lua state setup proc " + name + " failed\r\n");
    EXPECT_EQ(sThrown, "Lua state setup proc \"" + name + "\" failed: no database");
    EXPECT_EQ(sCollected, 1);
    EXPECT_EQ(programErrorOf([] { TqLuaUniverse_createMainUniverse(nullptr); }), "Pointer was null: sMainLuaUniverse");
    // Closing the half-made main universe counts as the main universe having closed.
    EXPECT_TRUE(TqLuaUniverse_mainClosed());
    EXPECT_EQ(programErrorOf([] { TqLuaUniverse_createMainUniverse(nullptr); }),
              "Assertion failed: !sMainLuaUniverse && !sMainLuaUniverseClosed");
  });
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
    EXPECT_EQ(tqtest::run(L, "assert(debug.getregistry().universeName == 'main')"), "");
    EXPECT_TRUE(TqLuaState_isMainUniverse(L));
    TqLuaState_checkMainUniverse(L);
    EXPECT_EQ(programErrorOf([] { TqLuaUniverse_createMainUniverse(nullptr); }),
              "Assertion failed: !sMainLuaUniverse && !sMainLuaUniverseClosed");
    EXPECT_FALSE(TqLuaUniverse_mainClosing());
    TqLuaUniverse_close(main);
    EXPECT_TRUE(TqLuaUniverse_mainClosing() && TqLuaUniverse_mainClosed());
    EXPECT_EQ(programErrorOf([] { TqLuaUniverse_createMainUniverse(nullptr); }),
              "Assertion failed: !sMainLuaUniverse && !sMainLuaUniverseClosed");
  });
}

int createsMainUniverse(lua_State *) { return TqLuaUniverse_createMainUniverse(nullptr), 0; }

TEST(Universe, MainUniverseCannotBeCreatedFromItsOwnSetup) {
  tqtest::inFreshProcess([] {
    KrInit();
    TqLuaState_addSetupProc(0, "recursive", createsMainUniverse, TqLuaSetupProc_mainState);
    TqExceptions_setThrowHook(recordThrow);
    testing::internal::CaptureStderr();
    EXPECT_EQ(programErrorOf([] { TqLuaUniverse_createMainUniverse(nullptr); }), "Pointer was null: sMainLuaUniverse");
    testing::internal::GetCapturedStderr();
    EXPECT_NE(sThrown.find("recursive attempt to create main universe"), std::string::npos) << sThrown;
  });
}

TEST_F(UniverseTest, SecondaryUniverseThreadsAndTheUniverseWord) {
  EXPECT_EQ(tqtest::run(L, "assert(debug.getregistry().universeName == 'test')"), "");
  EXPECT_FALSE(TqLuaUniverse_isMain(universe));
  testing::internal::CaptureStderr();
  EXPECT_EQ(programErrorOf([&] { TqLuaState_checkMainUniverse(L); }), "Not operating in main universe.");
  const std::string printed = testing::internal::GetCapturedStderr();
  EXPECT_NE(printed.find("TqLuaState_checkMainUniverse failed: "), std::string::npos);
  EXPECT_NE(printed.find("L: Not operating in main universe.\n"), std::string::npos);
  // Threads and their coroutines carry the universe word; a thread is anchored until closed.
  lua_State *thread = TqLuaState_open(universe);
  EXPECT_EQ(TqLuaState_getUniverse(thread), universe);
  EXPECT_EQ(TqLuaState_getUniverse(lua_newthread(thread)), universe);
  lua_pushlightuserdata(L, thread);
  lua_rawget(L, LUA_REGISTRYINDEX);
  EXPECT_EQ(lua_tothread(L, -1), thread);
  TqLuaState_close(thread);
  lua_pushlightuserdata(L, thread);
  lua_rawget(L, LUA_REGISTRYINDEX);
  EXPECT_TRUE(lua_isnil(L, -1));
  lua_settop(L, 0);
  // The collector is tuned: pause at most 150, step multiplier times 1.1.
  EXPECT_EQ(lua_gc(L, LUA_GCSETPAUSE, 100), 150);
  EXPECT_EQ(lua_gc(L, LUA_GCSETSTEPMUL, 200), 220);
}

TEST(Universe, AdoptedAndRawStates) {
  KrInit();
  lua_State *L = luaL_newstate();
  lua_gc(L, LUA_GCSETPAUSE, 120);
  lua_gc(L, LUA_GCSETSTEPMUL, 300);
  int data = 0;
  TqLuaUniverse *universe = TqLuaUniverse_attachToLuaState(L, &data, nullptr, "adopted");
  ASSERT_NE(universe, nullptr);
  EXPECT_EQ(TqLuaUniverse_getApplicationData(universe), &data);
  EXPECT_EQ(lua_gc(L, LUA_GCSETPAUSE, 120), 120);  // a lower pause is kept
  EXPECT_EQ(lua_gc(L, LUA_GCSETSTEPMUL, 330), 330);
  EXPECT_EQ(tqtest::run(L, "assert(string)"), "");  // the setup lists ran on it
  TqLuaUniverse_close(universe);
  L = TqRawLuaState_open();
  EXPECT_EQ(TqLuaState_getUniverse(L), nullptr);
  EXPECT_EQ(TqLuaUniverse_getConfiguration(L, 1), nullptr);
  TqLuaState_close(L);  // no universe: nothing to do
  EXPECT_EQ(lua_gc(L, LUA_GCSETPAUSE, 150), 150);
  TqRawLuaState_close(L);
  TqRawLuaState_close(nullptr);
  EXPECT_EQ(TqLuaUniverse_close(nullptr), 0);
  EXPECT_FALSE(TqLuaUniverse_isMain(nullptr));
  EXPECT_EQ(TqLuaUniverse_getApplicationData(nullptr), nullptr);
  EXPECT_EQ(TqLuaUniverse_getDebugger(nullptr), nullptr);
  EXPECT_EQ(programErrorOf([] { TqLuaState_open(nullptr); }), "Assertion failed: universe");
  EXPECT_EQ(programErrorOf([] { TqLuaState_close(nullptr); }), "Assertion failed: L");
}

void *answerConfiguration(lua_State *, va_list arguments) {
  return reinterpret_cast<void *>(static_cast<intptr_t>(va_arg(arguments, int) * 2));
}
lua_State *sHooked = nullptr;
int contextWord;
int customPanic(void *context, lua_State *) { throw TqLuaException(context == &contextWord ? "custom panic" : "?", 2); }

bool sShutDown = false;
int shutdown(lua_State *) { return sShutDown = true, 0; }

TEST_F(UniverseTest, HandlersHooksAndClosing) {
  EXPECT_EQ(TqLuaUniverse_getConfiguration(L, 21), nullptr);
  TqLuaUniverse_setConfigurationHandler(universe, answerConfiguration);
  EXPECT_EQ(TqLuaUniverse_getConfiguration(L, 21), reinterpret_cast<void *>(42));
  TqLuaUniverse_setDebugHook(universe, [](lua_State *S) { sHooked = S; });
  EXPECT_EQ(sHooked, L);
  TqLuaExceptionHandlers custom = TqLuaUniverse_getExceptionHandlers(universe);
  const TqLuaExceptionHandlers saved = custom;
  custom.context = &contextWord;
  custom.panicHandler = customPanic;
  TqLuaUniverse_setExceptionHandlers(universe, &custom);
  EXPECT_EQ(TqLuaUniverse_getExceptionHandlers(universe).context, &contextWord);
  lua_pushstring(L, "unprotected");
  EXPECT_EQ(programErrorOf([&] { lua_error(L); }), "custom panic");
  TqLuaUniverse_setExceptionHandlers(universe, &saved);
  // Closing calls the shutdown global unprotected and the coverage global protected.
  ASSERT_EQ(tqtest::run(L, "_G['TqDebugger.shutdown'] = function() end\n"
                           "_G['TqLuaCoverage.dumpCoverage'] = function() error('ignored') end"), "");
  lua_pushcfunction(L, shutdown);
  lua_setglobal(L, "TqDebugger.shutdown");
  TqLuaUniverse_close(universe);
  universe = nullptr;
  EXPECT_TRUE(sShutDown);
}

}  // namespace
