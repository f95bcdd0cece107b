// The trigger: counted requests, from any thread, for a hook event on the state's thread.
#include <atomic>
#include <thread>
#include <vector>

#include "support/lua_fixture.h"

namespace {

using tqtest::run;

std::vector<int> sCounts;  // the count of each trigger event
int sOtherEvents = 0, sWanted = 0;
std::thread::id sThread;
std::atomic<bool> sLooping{false};

// Records trigger events; raises "all triggers seen" once their counts add up to sWanted.
void triggerHook(lua_State *L, lua_Debug *ar) {
  sLooping = true;
  if (ar->event != LUA_HOOKTRIGGER) return void(sOtherEvents++);
  sCounts.push_back(ar->currentline);
  sThread = std::this_thread::get_id();
  int sum = 0;
  for (int count : sCounts) sum += count;
  if (sWanted != 0 && sum >= sWanted) luaL_error(L, "all triggers seen");
}

int triggerThrice(lua_State *L) {
  for (int k = 0; k < 3; k++) lua_trigger(L);
  return 0;
}

class TriggerTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    sCounts.clear();
    sOtherEvents = sWanted = 0;
    lua_register(L, "triggerThrice", triggerThrice);
  }
  void TearDown() override { lua_sethook(L, nullptr, 0, 0), UniverseTest::TearDown(); }
};

TEST_F(TriggerTest, TriggersBeforeTheNextInstructionMakeOneEvent) {
  lua_sethook(L, triggerHook, LUA_MASKTRIGGER, 0);
  ASSERT_EQ(run(L, "triggerThrice(); local x = 1; x = x + 1"), "");
  ASSERT_EQ(run(L, "debug.trigger(); local x = 1"), "");
  EXPECT_EQ(sCounts, (std::vector<int>{3, 1}));
  EXPECT_EQ(sOtherEvents, 0);
}

TEST_F(TriggerTest, SettingOrClearingTheHookDropsPendingTriggersAndOnlyATriggerMaskGetsThem) {
  lua_trigger(L);
  lua_sethook(L, triggerHook, LUA_MASKTRIGGER, 0);
  ASSERT_EQ(run(L, "local x = 1"), "");
  lua_trigger(L);
  lua_sethook(L, nullptr, 0, 0);
  lua_sethook(L, triggerHook, LUA_MASKTRIGGER, 0);
  ASSERT_EQ(run(L, "local x = 1"), "");
  lua_sethook(L, triggerHook, LUA_MASKLINE, 0);
  ASSERT_EQ(run(L, "debug.trigger(); local x = 1"), "");
  EXPECT_TRUE(sCounts.empty());
  EXPECT_GT(sOtherEvents, 0);
}

TEST_F(TriggerTest, TriggersFromAnotherThreadReachTheRunningState) {
  const int kTriggers = 1000;
  sWanted = kTriggers;
  sLooping = false;
  lua_sethook(L, triggerHook, LUA_MASKTRIGGER | LUA_MASKCOUNT, 1000);
  std::thread triggering([&] {
    while (!sLooping) std::this_thread::yield();
    for (int k = 0; k < kTriggers; k++) lua_trigger(L);
  });
  // The clock bounds the loop only so that a lost trigger fails instead of hanging.
  const std::string result = run(L, R"(
    local deadline, i = os.clock() + 60, 0
    while true do
      i = i + 1
      if i % 1000000 == 0 and os.clock() > deadline then error("no trigger event", 0) end
    end)");
  triggering.join();
  EXPECT_NE(result.find("all triggers seen"), std::string::npos) << result;
  int sum = 0;
  for (int count : sCounts) sum += count;
  EXPECT_EQ(sum, kTriggers);
  EXPECT_EQ(sThread, std::this_thread::get_id());
}

}  // namespace
