// Transit queues seen from Lua: order, waiting, closing and the refusals of the methods.
#include <chrono>

#include "transit_support.h"

namespace transit_test {
namespace {

using Clock = std::chrono::steady_clock;

class QueueLuaTest : public QueueTest {};

TEST_F(QueueLuaTest, ValuesComeOutInTheOrderTheyWentIn) {
  ASSERT_EQ(tqtest::run(L, R"(
    q = newTransitQueue()
    q:enqueue(1) q:enqueue('two') q:enqueue({ 3, nested = { 'three' } }) q:enqueue(false)
    q:enqueue(nil)
  )"), "");
  EXPECT_EQ(tqtest::eval(L, "q:dequeue()"), "1");
  EXPECT_EQ(tqtest::eval(L, "q:dequeue(false)"), "two");
  EXPECT_EQ(tqtest::eval(L, "(function(t) return t[1] .. t.nested[1] end)(q:dequeue())"), "3three");
  EXPECT_EQ(tqtest::eval(L, "q:dequeue()"), "false");
  EXPECT_EQ(tqtest::eval(L, "select('#', q:dequeue(false))"), "1");  // the nil
  EXPECT_EQ(tqtest::eval(L, "select('#', q:dequeue(false))"), "0");
}

TEST_F(QueueLuaTest, AnEmptyQueueAnswersNothingAtOnceOrAfterTheTimeLimit) {
  ASSERT_EQ(tqtest::run(L, "q = newTransitQueue()"), "");
  EXPECT_EQ(tqtest::eval(L, "select('#', q:dequeue(false, 1000))"), "0");
  // Wait flags other than booleans leave the default (wait); so do absent delays.
  const auto start = Clock::now();
  EXPECT_EQ(tqtest::eval(L, "select('#', q:dequeue(true, 0.2))"), "0");
  EXPECT_EQ(tqtest::eval(L, "select('#', q:dequeue('yes', '0.05'))"), "0");
  // Less than a millisecond still waits one: it must not turn into waiting for ever.
  EXPECT_EQ(tqtest::eval(L, "select('#', q:dequeue(true, 0.0004))"), "0");
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_GE(seconds, 0.25);
  EXPECT_LT(seconds, 20.0);
}

TEST_F(QueueLuaTest, RefusalsRaiseOnTheCallerAndLeaveTheQueueAsItWas) {
  ASSERT_EQ(tqtest::run(L, "q = newTransitQueue() q:enqueue('kept')"), "");
  testing::internal::CaptureStderr();
  EXPECT_EQ(tqtest::run(L, "q:enqueue({ 1, print })"), "Assertion failed: packed");
  EXPECT_EQ(tqtest::run(L, "q:enqueue(setmetatable({}, {}))"), "Assertion failed: packed");
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(tqtest::run(L, "q:dequeue(true, -1)"), "Assertion failed: delay >= 0");
  EXPECT_EQ(tqtest::run(L, "q:dequeue(false, 0/0)"), "Assertion failed: delay >= 0");
  EXPECT_EQ(tqtest::eval(L, "q:dequeue(false)"), "kept");
  EXPECT_EQ(tqtest::eval(L, "select('#', q:dequeue(false))"), "0");
}

TEST_F(QueueLuaTest, AClosedQueueRefusesValuesButStillDrains) {
  ASSERT_EQ(tqtest::run(L, "q = newTransitQueue() q:enqueue(1) q:enqueue(2)"), "");
  EXPECT_EQ(tqtest::eval(L, "q.closed"), "false");
  ASSERT_EQ(tqtest::run(L, "q:close() q:close()"), "");
  EXPECT_EQ(tqtest::eval(L, "q.closed"), "true");
  EXPECT_EQ(tqtest::run(L, "q:enqueue(3)"), "Assertion failed: !priv->_closed");
  EXPECT_EQ(tqtest::eval(L, "q:dequeue(false)"), "1");
  EXPECT_EQ(tqtest::eval(L, "q:dequeue(false)"), "2");
  EXPECT_EQ(tqtest::eval(L, "select('#', q:dequeue(false))"), "0");
  EXPECT_EQ(tqtest::run(L, "q.closed = false"),
            "Attempt to write to field 'closed' of class 'TransitQueue'. This field does not "
            "support writing.");
}

TEST_F(QueueLuaTest, TheConstructorTakesAnOptionalBooleanMoveFlag) {
  EXPECT_EQ(tqtest::eval(L, "getmetatable(newTransitQueue(nil, nil))"), "< private metatable >");
  EXPECT_EQ(tqtest::run(L, "newTransitQueue(nil, 1)"),
            "test:1: bad argument #2 to 'newTransitQueue' (boolean expected, got number)");
  ASSERT_EQ(tqtest::run(L, "q = newTransitQueue()"), "");
  EXPECT_EQ(viewOf(queueObjectNamed(L, "q")).mark, 0xABBABABEu);
}

// The move flag shows on a queue travelling inside a value: a moved queue object is dead.
TEST_F(QueueLuaTest, TheMoveFlagOfEnqueueOverridesTheQueueDefault) {
  ASSERT_EQ(tqtest::run(L, R"(
    copying, moving = newTransitQueue(nil, false), newTransitQueue(nil, true)
    a, b, c, d = newTransitQueue(), newTransitQueue(), newTransitQueue(), newTransitQueue()
    copying:enqueue({ a })
    copying:enqueue({ b }, true)
    moving:enqueue({ c })
    moving:enqueue({ d }, false)
    moving:enqueue({ d }, 'not a boolean')
  )"), "");
  EXPECT_EQ(viewOf(queueObjectNamed(L, "a")).mark, 0xABBABABEu);
  EXPECT_EQ(viewOf(queueObjectNamed(L, "b")).mark, 0xDEADACDCu);
  EXPECT_EQ(viewOf(queueObjectNamed(L, "c")).mark, 0xDEADACDCu);
  EXPECT_EQ(viewOf(queueObjectNamed(L, "d")).mark, 0xDEADACDCu);
  // Every queue that arrived works; the copies share their queue with the originals.
  EXPECT_EQ(tqtest::run(L, R"(
    local sharers = { a, false, false, false, false }
    for i, q in ipairs({ copying, copying, moving, moving, moving }) do
      local received = q:dequeue(false)[1]
      received:enqueue(i)
      assert((sharers[i] or received):dequeue(false) == i, i)
    end
  )"), "");
}

TEST_F(QueueLuaTest, CheckRetainTakesOnlyQueueObjects) {
  ASSERT_EQ(tqtest::run(L, "q = newTransitQueue() q:enqueue('x')"), "");
  EXPECT_EQ(protect(L,
                    [](lua_State *S) {
                      lua_pushnumber(S, 5);
                      TqTransitQueue_checkRetainFromLua(S, 1);
                    }),
            "Expected object of class TransitQueue at index 1, got value of type number.");
  EXPECT_EQ(protect(L, [](lua_State *S) { TqTransitQueue_checkRetainFromLua(S, 3); }),
            "Expected object of class TransitQueue at index 3, got value of type no value.");
  lua_getglobal(L, "q");
  TqTransitQueue *retained = TqTransitQueue_checkRetainFromLua(L, -1);
  lua_pop(L, 1);
  EXPECT_EQ(viewOf(retained).mark, 0xBEE6EE51u);
  EXPECT_EQ(viewOf(retained).core, viewOf(queueObjectNamed(L, "q")).core);
  TqTransitQueue_release(retained);
  EXPECT_EQ(tqtest::eval(L, "q:dequeue(false)"), "x");
}

}  // namespace
}  // namespace transit_test
