// The trigger: counted requests, from any thread, for a hook event on the state's thread.
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "support/lua_fixture.h"

namespace {

using tqtest::run;

struct TriggerLog {
  std::vector<int> counts;  // the count of each trigger event
  int otherEvents = 0;
  std::thread::id thread;
  int wanted = 0;  // when the counts add up to this, the hook raises "all triggers seen"
};
TriggerLog sLog;

void triggerHook(lua_State *L, lua_Debug *ar) {
  if (ar->event != LUA_HOOKTRIGGER) {
    sLog.otherEvents++;
    return;
  }
  sLog.counts.push_back(ar->currentline);
  sLog.thread = std::this_thread::get_id();
  int sum = 0;
  for (int count : sLog.counts) sum += count;
  if (sLog.wanted != 0 && sum >= sLog.wanted) luaL_error(L, "all triggers seen");
}

int triggerThrice(lua_State *L) {
  for (int k = 0; k < 3; k++) lua_trigger(L);
  return 0;
}

class TriggerTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    tqtest::UniverseTest::SetUp();
    sLog = TriggerLog();
    lua_register(L, "triggerthrice", triggerThrice);
  }
  void TearDown() override {
    lua_sethook(L, nullptr, 0, 0);
    tqtest::UniverseTest::TearDown();
  }
};

TEST_F(TriggerTest, TriggersBeforeTheNextInstructionMakeOneEvent) {
  lua_sethook(L, triggerHook, LUA_MASKTRIGGER, 0);
  ASSERT_EQ(run(L, "triggerthrice(); local x = 1; x = x + 1"), "");
  EXPECT_EQ(sLog.counts, std::vector<int>{3});
  ASSERT_EQ(run(L, "debug.trigger(); local x = 1"), "");
  EXPECT_EQ(sLog.counts, (std::vector<int>{3, 1}));
  EXPECT_EQ(sLog.otherEvents, 0);
}

TEST_F(TriggerTest, SettingOrClearingTheHookDropsPendingTriggers) {
  lua_trigger(L);
  lua_sethook(L, triggerHook, LUA_MASKTRIGGER, 0);
  ASSERT_EQ(run(L, "local x = 1"), "");
  EXPECT_TRUE(sLog.counts.empty());

  lua_trigger(L);
  lua_sethook(L, nullptr, 0, 0);
  lua_sethook(L, triggerHook, LUA_MASKTRIGGER, 0);
  ASSERT_EQ(run(L, "local x = 1"), "");
  EXPECT_TRUE(sLog.counts.empty());
}

TEST_F(TriggerTest, OnlyAHookAskingForTriggersGetsThem) {
  lua_sethook(L, triggerHook, LUA_MASKLINE, 0);
  ASSERT_EQ(run(L, "debug.trigger(); local x = 1"), "");
  EXPECT_TRUE(sLog.counts.empty());
  EXPECT_GT(sLog.otherEvents, 0);
}

TEST_F(TriggerTest, TriggersFromAnotherThreadReachTheRunningState) {
  const int kTriggers = 1000;
  sLog.wanted = kTriggers;
  lua_sethook(L, triggerHook, LUA_MASKTRIGGER, 0);

  std::mutex mutex;
  std::condition_variable loopStarted;
  bool started = false;
  lua_pushlightuserdata(L, &started);
  lua_pushlightuserdata(L, &mutex);
  lua_pushlightuserdata(L, &loopStarted);
  lua_pushcclosure(L, [](lua_State *L) -> int {
    std::lock_guard<std::mutex> lock(*static_cast<std::mutex *>(lua_touserdata(L, lua_upvalueindex(2))));
    *static_cast<bool *>(lua_touserdata(L, lua_upvalueindex(1))) = true;
    static_cast<std::condition_variable *>(lua_touserdata(L, lua_upvalueindex(3)))->notify_one();
    return 0;
  }, 3);
  lua_setglobal(L, "started");

  std::thread triggering([&] {
    {
      std::unique_lock<std::mutex> lock(mutex);
      loopStarted.wait(lock, [&] { return started; });
    }
    for (int k = 0; k < kTriggers; k++) lua_trigger(L);
  });
  // The clock bounds the loop only so that a lost trigger fails instead of hanging.
  const std::string result = run(L, R"(
    started()
    local deadline = os.clock() + 60
    local i = 0
    while true do
      i = i + 1
      if i % 1000000 == 0 and os.clock() > deadline then error("no trigger event", 0) end
    end)");
  triggering.join();

  EXPECT_NE(result.find("all triggers seen"), std::string::npos) << result;
  int sum = 0;
  for (int count : sLog.counts) sum += count;
  EXPECT_EQ(sum, kTriggers);
  EXPECT_EQ(sLog.thread, std::this_thread::get_id());
}

}  // namespace
