// Triggers from another thread reach the running state's hook, on the state's own thread.
// The rest of the trigger is tested by tests/lua/core_hooks.lua.
#include <atomic>
#include <thread>

#include "support/lua_fixture.h"

namespace {

using tqtest::UniverseTest;

const int kTriggers = 1000;
int sCounted = 0;
std::thread::id sThread;
std::atomic<bool> sLooping{false};

// Counts trigger events; raises "all triggers seen" once they add up to kTriggers.
void triggerHook(lua_State *L, lua_Debug *ar) {
  sLooping = true;
  if (ar->event != LUA_HOOKTRIGGER) return;
  sCounted += ar->currentline;
  sThread = std::this_thread::get_id();
  if (sCounted >= kTriggers) luaL_error(L, "all triggers seen");
}

TEST_F(UniverseTest, TriggersFromAnotherThreadReachTheRunningState) {
  lua_sethook(L, triggerHook, LUA_MASKTRIGGER | LUA_MASKCOUNT, 1000);
  std::thread triggering([&] {
    while (!sLooping) std::this_thread::yield();
    for (int k = 0; k < kTriggers; k++) lua_trigger(L);
  });
  // The clock bounds the loop only so that a lost trigger fails instead of hanging.
  const std::string result = tqtest::run(L, R"(
    local deadline, i = os.clock() + 60, 0
    while true do
      i = i + 1
      if i % 1000000 == 0 and os.clock() > deadline then error("no trigger event", 0) end
    end)");
  triggering.join();
  lua_sethook(L, nullptr, 0, 0);
  EXPECT_NE(result.find("all triggers seen"), std::string::npos) << result;
  EXPECT_EQ(sCounted, kTriggers);
  EXPECT_EQ(sThread, std::this_thread::get_id());
}

}  // namespace
