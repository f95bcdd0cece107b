// Recursive mutexes, condition locks with timed waits, once-only runs, the main thread.
#include <atomic>
#include <cmath>
#include <stdexcept>
#include <thread>
#include <vector>

#include "support/lua_fixture.h"

namespace {

using tqtest::programErrorOf;

TEST(Threads, MainThreadIsUnknownBeforeKrInitAndRecordedOnce) {
  tqtest::inFreshProcess([] {
    EXPECT_EQ(GetMainThreadID(), 0u);
    std::thread([] { EXPECT_FALSE(TqThreadUtils_isCurrentThreadMainThread()); }).join();
    KrInit();
    KrInit();  // once only: no second recording
    EXPECT_NE(GetMainThreadID(), 0u);
    EXPECT_TRUE(TqThreadUtils_isCurrentThreadMainThread());
    std::thread([] { EXPECT_FALSE(TqThreadUtils_isCurrentThreadMainThread()); }).join();
  });
}

TEST(Threads, MutexIsRecursiveAndNullSafe) {
  TqMutex *mutex = TqMutex_new();
  EXPECT_EQ(TqMutex_lock(mutex), mutex);
  TqMutex_lock(mutex);
  TqMutex_unlock(mutex);
  std::atomic<bool> acquired{false};
  std::thread other([&] {
    TqMutexScope scope(mutex);
    acquired = true;
  });
  TqMutex_unlock(mutex);  // the second unlock lets the other thread in
  other.join();
  EXPECT_TRUE(acquired.load());
  EXPECT_EQ(TqMutex_lock(nullptr), nullptr);
  TqMutex_unlock(nullptr);
  TqMutex_delete(nullptr);
  TqMutex_delete(mutex);
}

TEST(Threads, ConditionWaitsForASignalForeverOrTimesOut) {
  TqMutex *mutex = TqMutex_new();
  TqConditionLock *condition = TqConditionLock_new(mutex);
  bool ready = false;
  std::thread signaller([&] {
    TqMutexScope scope(mutex);
    ready = true;
    TqConditionLock_signal(condition);
  });
  {
    TqMutexScope scope(mutex);
    while (!ready) EXPECT_EQ(TqConditionLock_wait(condition, 0), 0);  // 0: no time limit
    // Spurious wake-ups return 0; a time-out (of at least 1 ms) shows up within a few tries.
    int result = 0;
    for (int tries = 0; tries < 100 && result == 0; ++tries) result = TqConditionLock_wait(condition, 0.0004);
    EXPECT_EQ(result, 1);
  }
  signaller.join();
  EXPECT_EQ(programErrorOf([&] { TqConditionLock_wait(condition, -1); }), "Assertion failed: maxTime >= 0");
  EXPECT_EQ(programErrorOf([&] { TqConditionLock_wait(condition, std::nan("")); }), "Assertion failed: maxTime >= 0");
  TqConditionLock_delete(condition);
  TqConditionLock_delete(nullptr);
  TqMutex_delete(mutex);
}

int sOnceRuns = 0;
const char sToken = 0, sFailingToken = 0;
void nestedOnce() {
  ++sOnceRuns;
  TqThreadUtils_doOnce(&sToken, nestedOnce);  // re-entry with the same token returns at once
}
void failingOnce() {
  ++sOnceRuns;
  throw std::runtime_error("failed once");
}

TEST(Threads, DoOnceRecordsTheTokenBeforeRunningAndRunsOnceAcrossThreads) {
  TqThreadUtils_doOnce(&sToken, nestedOnce);
  TqThreadUtils_doOnce(&sToken, nestedOnce);
  EXPECT_THROW(TqThreadUtils_doOnce(&sFailingToken, failingOnce), std::runtime_error);
  TqThreadUtils_doOnce(&sFailingToken, failingOnce);
  EXPECT_EQ(sOnceRuns, 2);
  static std::atomic<int> runs{0};
  static const char token = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back([] { TqThreadUtils_doOnce(&token, [] { ++runs; }); });
  for (auto &t : threads) t.join();  // the common mutex was released as the exception passed
  EXPECT_EQ(runs.load(), 1);
  TqThreadUtils_lockCommonMutex();
  TqThreadUtils_unlockCommonMutex();
}

}  // namespace
