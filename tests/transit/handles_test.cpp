// Queue handles: which marks hold a reference, the last release and its report, the native
// queue operations. What scripts see of queues is tested by tests/lua/transit.lua.
#include <cstring>
#include <string>

#include "support/lua_fixture.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

const char kOrphanReport[] = "Objects orphaned in transit queue\n\"left behind\"\n";

struct HandleView {  // a queue handle as it lies in memory
  uint32_t mark;
  const void *core;
};
const HandleView &viewOf(const void *handle) { return *static_cast<const HandleView *>(handle); }
TqTransitQueue *queueAt(lua_State *L, int index) {
  return static_cast<TqTransitQueue *>(TqDirectObject_fromLua(L, index, &TqTransitQueue_Class));
}

void enqueueString(TqTransitQueue *queue, const char *text) {
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_pushString(cargo, text);
  TqTransitQueue_enqueueAndReleaseCargo(queue, cargo);
}

class HandlesTest : public tqtest::UniverseTest {
protected:
  void SetUp() override { UniverseTest::SetUp(), lua_register(L, "newTransitQueue", TqTransitQueue_new_L); }
  // What went to standard error while f ran.
  template <typename F> static std::string printed(F f) { return CaptureStderr(), f(), GetCapturedStderr(); }
  std::string collect(const char *global) {
    return printed([&] { lua_pushnil(L), lua_setglobal(L, global), lua_gc(L, LUA_GCCOLLECT, 0); });
  }
};

// Only the holder of the last reference destroys the queue and reports the message it still
// held: so each step shows whether a handle gave a reference back.
TEST_F(HandlesTest, EveryCountedHandleGivesBackOneReference) {
  TqTransitQueue *created = TqTransitQueue_createQueue(0);
  EXPECT_EQ(viewOf(created).mark, 0xABBABABEu);
  enqueueString(created, "left behind");
  TqTransitQueue_pushQueue_L(L, created);
  EXPECT_EQ(viewOf(queueAt(L, -1)).mark, 0u);
  TqTransitQueue *retained = TqTransitQueue_checkRetainFromLua(L, -1);
  EXPECT_EQ(viewOf(retained).mark, 0xBEE6EE51u);
  ASSERT_EQ(TqDirectObject_copyFromLuaStateToLuaState(L, -1, L, 0), 1);
  lua_setglobal(L, "copied");
  lua_setglobal(L, "uncounted");
  for (uint32_t mark : {0xDEADABBAu, 0u, 0x12345678u}) {
    HandleView stranger{mark, viewOf(created).core};  // a release that freed it would fail under ASan
    EXPECT_EQ(printed([&] { TqTransitQueue_release(reinterpret_cast<TqTransitQueue *>(&stranger)); }), "");
  }
  EXPECT_EQ(printed([&] { TqTransitQueue_release(created); }), "");
  EXPECT_EQ(printed([&] { TqTransitQueue_release(retained); }), "");
  EXPECT_EQ(collect("copied"), "");
  // The uncounted object's reference is never given back; moving it into a counted object
  // is the one way to return it.
  lua_getglobal(L, "uncounted");
  ASSERT_EQ(TqDirectObject_copyFromLuaStateToLuaState(L, -1, L, 1), 1);
  EXPECT_EQ(viewOf(queueAt(L, -2)).mark, 0xDEADACDCu);
  lua_setglobal(L, "last");
  EXPECT_EQ(collect("uncounted"), "");
  EXPECT_EQ(collect("last"), kOrphanReport);
  TqTransitQueue_release(nullptr);
}

TEST_F(HandlesTest, CollectionMovesAndTheLastReleasesReport) {
  ASSERT_EQ(tqtest::run(L, "q = newTransitQueue() q:enqueue('left behind')"), "");
  lua_getglobal(L, "q");
  TqTransitQueue *object = queueAt(L, -1);
  lua_pop(L, 1);
  const TqDirectObjectMethod *gc = TqTransitQueue_Class.methods;
  while (std::strcmp(gc->name, "__gc") != 0) ++gc;
  EXPECT_EQ(printed([&] { gc->method(object, L); }), kOrphanReport);
  EXPECT_EQ(viewOf(object).mark, 0xDEADABBAu);
  EXPECT_EQ(viewOf(object).core, nullptr);
  EXPECT_EQ(collect("q"), "");  // collected once only

  TqTransitQueue *carrier = TqTransitQueue_createQueue(0), *moved = TqTransitQueue_createQueue(0);
  enqueueString(moved, "left behind");
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_pushTransitQueue(cargo, moved, 1);
  TqTransitQueue_enqueueAndReleaseCargo(carrier, cargo);
  EXPECT_EQ(viewOf(moved).mark, 0xDEADACDCu);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(viewOf(moved).core), 0xABBAABB2u);
  EXPECT_EQ(printed([&] { TqTransitQueue_release(moved); }), "");
  ASSERT_EQ(TqTransitQueue_dequeueToLuaState(L, carrier, 0, 0), 1);
  lua_setglobal(L, "arrived");
  EXPECT_EQ(collect("arrived"), kOrphanReport);

  ASSERT_EQ(tqtest::run(L, "values = {1.5, 'text', {a = true}}"), "");
  lua_getglobal(L, "values");
  for (int i = 1; i <= 3; ++i) lua_rawgeti(L, -1, i), TqTransitQueue_enqueueToQueue(L, carrier, -1), lua_pop(L, 1);
  EXPECT_EQ(printed([&] { TqTransitQueue_release(carrier); }),
            "Objects orphaned in transit queue\n1.500000\n\"text\"\n{\n\t  [ \"a\" ] = true,\n}\n");
  TqTransitQueue *silent = TqTransitQueue_createQueue(0);
  enqueueString(silent, "left behind");
  EXPECT_EQ(printed([&] { TqTransitQueue_releaseSilent(silent); }), "");
}

TEST_F(HandlesTest, OnlyCargoReachesAClosedQueue) {
  ASSERT_EQ(tqtest::run(L, "q = newTransitQueue() q:close()"), "");
  lua_getglobal(L, "q");
  TqTransitQueue *queue = queueAt(L, -1);
  EXPECT_EQ(TqTransitQueue_enqueueToQueue(L, queue, -1), 0);
  EXPECT_EQ(TqTransitQueue_isEmpty(queue), 1);
  enqueueString(queue, "carried");
  EXPECT_EQ(TqTransitQueue_isEmpty(queue), 0);
  EXPECT_EQ(tqtest::eval(L, "q:dequeue(false)"), "carried");
  EXPECT_EQ(TqTransitQueue_isEmpty(queue), 1);
  EXPECT_EQ(tqtest::protect(L, [](lua_State *S) { TqTransitQueue_checkRetainFromLua(S, 5); }),
            "Expected object of class TransitQueue at index 5, got value of type no value.");
}

TEST(Handles, StringsComeOutWithoutALuaState) {
  TqTransitQueue *queue = TqTransitQueue_createQueue(0);
  EXPECT_EQ(TqTransitQueue_dequeueCopyOfString(queue, 0, 0), nullptr);
  EXPECT_EQ(TqTransitQueue_dequeueCopyOfString(queue, 1, 0.01), nullptr);
  EXPECT_EQ(tqtest::programErrorOf([&] { TqTransitQueue_dequeueCopyOfString(queue, 1, -1); }),
            "Assertion failed: maxTime >= 0");
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_pushLString(cargo, "zero\0inside", 11);
  TqTransitQueue_enqueueAndReleaseCargo(queue, cargo);
  TqTransitQueueString *string = TqTransitQueue_dequeueCopyOfString(queue, 1, -1);  // no wait: delay unread
  ASSERT_NE(string, nullptr);
  size_t length = 0;
  const char *bytes = TqTransitQueue_stringToCString(string, &length);
  EXPECT_EQ(std::string(bytes, length + 1), std::string("zero\0inside", 12));
  TqTransitQueue_releaseString(string);
  TqTransitQueue_release(queue);
}

}  // namespace
