// Transit queue handles: which marks hold a reference, the last release and its report,
// and the native operations around them.
#include <cstring>

#include "transit_support.h"

namespace transit_test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

const char kOrphanReport[] = "Objects orphaned in transit queue\n\"left behind\"\n";

class QueueHandlesTest : public QueueTest {
protected:
  static void enqueueString(TqTransitQueue *queue, const char *text) {
    TqTransitCargo *cargo = TqTransitQueue_newCargo();
    TqTransitCargo_pushString(cargo, text);
    TqTransitQueue_enqueueAndReleaseCargo(queue, cargo);
  }
  // Drops the global and collects; returns what went to standard error meanwhile.
  std::string collect(const char *global) {
    CaptureStderr();
    lua_pushnil(L);
    lua_setglobal(L, global);
    lua_gc(L, LUA_GCCOLLECT, 0);
    return GetCapturedStderr();
  }
  std::string release(TqTransitQueue *queue) {
    CaptureStderr();
    TqTransitQueue_release(queue);
    return GetCapturedStderr();
  }
};

// Only the holder of the last reference destroys the queue, which reports the message it
// still held: so each step below shows whether a handle gave a reference back.
TEST_F(QueueHandlesTest, EveryCountedHandleGivesBackOneReference) {
  TqTransitQueue *created = TqTransitQueue_createQueue(0);
  EXPECT_EQ(viewOf(created).mark, 0xABBABABEu);
  enqueueString(created, "left behind");

  TqTransitQueue_pushQueue_L(L, created);
  EXPECT_EQ(viewOf(queueObjectAt(L, -1)).mark, 0u);
  TqTransitQueue *retained = TqTransitQueue_checkRetainFromLua(L, -1);
  ASSERT_EQ(TqDirectObject_copyFromLuaStateToLuaState(L, -1, L, 0), 1);
  EXPECT_EQ(viewOf(queueObjectAt(L, -1)).mark, 0xABBAACDCu);
  lua_setglobal(L, "copied");
  lua_setglobal(L, "uncounted");

  EXPECT_EQ(release(created), "");
  EXPECT_EQ(release(retained), "");
  EXPECT_EQ(collect("copied"), "");
  // The uncounted object's reference is never given back; moving it into a counted
  // object is the one way to return it.
  lua_getglobal(L, "uncounted");
  ASSERT_EQ(TqDirectObject_copyFromLuaStateToLuaState(L, -1, L, 1), 1);
  lua_setglobal(L, "last");
  EXPECT_EQ(viewOf(queueObjectNamed(L, "uncounted")).mark, 0xDEADACDCu);
  EXPECT_EQ(collect("uncounted"), "");
  EXPECT_EQ(collect("last"), kOrphanReport);
}

TEST_F(QueueHandlesTest, HandlesWithoutAReferenceReleaseNothing) {
  TqTransitQueue *queue = TqTransitQueue_createQueue(0);
  enqueueString(queue, "left behind");
  for (uint32_t mark : {0xDEADABBAu, 0u, 0x12345678u}) {
    // On the stack: a release that freed it would fail under the address sanitizer.
    HandleView stranger{mark, viewOf(queue).core};
    EXPECT_EQ(release(reinterpret_cast<TqTransitQueue *>(&stranger)), "");
  }
  EXPECT_EQ(TqTransitQueue_isEmpty(queue), 0);
  EXPECT_EQ(release(queue), kOrphanReport);
}

TEST_F(QueueHandlesTest, CollectionKillsTheHandleOnce) {
  ASSERT_EQ(tqtest::run(L, "q = newTransitQueue() q:enqueue('left behind')"), "");
  lua_getglobal(L, "q");
  TqTransitQueue *object = queueObjectAt(L, -1);
  lua_pop(L, 1);
  const TqDirectObjectMethod *gc = TqTransitQueue_Class.methods;
  while (gc->name && std::strcmp(gc->name, "__gc") != 0) ++gc;
  ASSERT_NE(gc->name, nullptr);
  CaptureStderr();
  gc->method(object, L);
  EXPECT_EQ(GetCapturedStderr(), kOrphanReport);
  EXPECT_EQ(viewOf(object).mark, 0xDEADABBAu);
  EXPECT_EQ(viewOf(object).core, nullptr);
  EXPECT_EQ(collect("q"), "");
}

TEST_F(QueueHandlesTest, AMovedNativeHandleIsOnlyFreed) {
  TqTransitQueue *carrier = TqTransitQueue_createQueue(0);
  TqTransitQueue *moved = TqTransitQueue_createQueue(0);
  enqueueString(moved, "left behind");
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_pushTransitQueue(cargo, moved, 1);
  TqTransitQueue_enqueueAndReleaseCargo(carrier, cargo);
  EXPECT_EQ(viewOf(moved).mark, 0xDEADACDCu);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(viewOf(moved).core), 0xABBAABB2u);
  EXPECT_EQ(release(moved), "");

  ASSERT_EQ(TqTransitQueue_dequeueToLuaState(L, carrier, 0, 0), 1);
  TqTransitQueue_release(carrier);
  lua_setglobal(L, "arrived");
  EXPECT_EQ(collect("arrived"), kOrphanReport);
}

TEST_F(QueueHandlesTest, TheLastReleaseReportsEveryUndeliveredValueUnlessSilent) {
  TqTransitQueue *queue = TqTransitQueue_createQueue(0);
  ASSERT_EQ(tqtest::run(L, "values = { 1.5, 'text', { a = true } }"), "");
  lua_getglobal(L, "values");
  for (int i = 1; i <= 3; ++i) {
    lua_rawgeti(L, -1, i);
    ASSERT_EQ(TqTransitQueue_enqueueToQueue(L, queue, -1), 1);
    lua_pop(L, 1);
  }
  lua_pop(L, 1);
  EXPECT_EQ(release(queue),
            "Objects orphaned in transit queue\n1.500000\n\"text\"\n{\n\t  [ \"a\" ] = true,\n}\n");

  TqTransitQueue *silent = TqTransitQueue_createQueue(0);
  enqueueString(silent, "left behind");
  CaptureStderr();
  TqTransitQueue_releaseSilent(silent);
  EXPECT_EQ(GetCapturedStderr(), "");
  TqTransitQueue_release(nullptr);
}

TEST_F(QueueHandlesTest, OnlyCargoReachesAClosedQueue) {
  ASSERT_EQ(tqtest::run(L, "q = newTransitQueue() q:close()"), "");
  TqTransitQueue *queue = queueObjectNamed(L, "q");
  EXPECT_EQ(TqTransitQueue_isEmpty(queue), 1);
  lua_pushliteral(L, "refused");
  EXPECT_EQ(TqTransitQueue_enqueueToQueue(L, queue, -1), 0);
  lua_pop(L, 1);
  EXPECT_EQ(TqTransitQueue_isEmpty(queue), 1);
  enqueueString(queue, "carried");
  EXPECT_EQ(TqTransitQueue_isEmpty(queue), 0);
  EXPECT_EQ(tqtest::eval(L, "q:dequeue(false)"), "carried");
  EXPECT_EQ(TqTransitQueue_isEmpty(queue), 1);
}

TEST_F(QueueHandlesTest, StringsComeOutWithoutALuaState) {
  TqTransitQueue *queue = TqTransitQueue_createQueue(0);
  EXPECT_EQ(TqTransitQueue_dequeueCopyOfString(queue, 0, 0), nullptr);
  EXPECT_EQ(TqTransitQueue_dequeueCopyOfString(queue, 1, 0.01), nullptr);
  try {
    TqTransitQueue_dequeueCopyOfString(queue, 1, -1);
    ADD_FAILURE() << "a negative wait was accepted";
  } catch (const TqLuaException &error) {
    EXPECT_STREQ(error.message(), "Assertion failed: maxTime >= 0");
  }

  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_pushLString(cargo, "zero\0inside", 11);
  TqTransitQueue_enqueueAndReleaseCargo(queue, cargo);
  // A message is there: no wait, so the delay is never looked at.
  TqTransitQueueString *string = TqTransitQueue_dequeueCopyOfString(queue, 1, -1);
  ASSERT_NE(string, nullptr);
  size_t length = 0;
  const char *bytes = TqTransitQueue_stringToCString(string, &length);
  EXPECT_EQ(std::string(bytes, length), std::string("zero\0inside", 11));
  EXPECT_EQ(bytes[length], '\0');
  TqTransitQueue_releaseString(string);
  TqTransitQueue_release(queue);
}

TEST_F(QueueHandlesTest, TakingANonStringAsAStringAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        TqTransitQueue *queue = TqTransitQueue_createQueue(0);
        TqTransitCargo *cargo = TqTransitQueue_newCargo();
        TqTransitCargo_pushNumber(cargo, 1);
        TqTransitQueue_enqueueAndReleaseCargo(queue, cargo);
        TqTransitQueue_dequeueCopyOfString(queue, 0, 0);
      },
      "holds another kind");
}

}  // namespace
}  // namespace transit_test
