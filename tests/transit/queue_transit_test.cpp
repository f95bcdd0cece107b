// Queues travelling to other universes inside values: copies share the messages, moves
// hand the only reference over.
#include "transit_support.h"

namespace transit_test {
namespace {

class QueueTransitTest : public TwoStatesTest {
protected:
  void SetUp() override {
    TwoStatesTest::SetUp();
    lua_register(source, "newTransitQueue", TqTransitQueue_new_L);
  }
  // Copies the source's global into the destination's global of the same name.
  void send(const char *global, int canUseMoveSemantics) {
    lua_getglobal(source, global);
    TqTransitQueue_copyFromLuaStateToLuaState(source, -1, destination, canUseMoveSemantics);
    lua_pop(source, 1);
    lua_setglobal(destination, global);
  }
};

TEST_F(QueueTransitTest, ACopiedQueueIsOneStreamOnBothSides) {
  ASSERT_EQ(tqtest::run(source, "requests = newTransitQueue() mine = { reply = newTransitQueue() }"),
            "");
  send("requests", 0);
  send("mine", 0);
  ASSERT_EQ(tqtest::run(destination, "mine.reply:enqueue('first') mine.reply:enqueue('second')"), "");
  ASSERT_EQ(tqtest::run(source, "mine.reply:enqueue('third')"), "");
  EXPECT_EQ(tqtest::eval(source, "mine.reply:dequeue(false)"), "first");
  EXPECT_EQ(tqtest::eval(destination, "mine.reply:dequeue(false)"), "second");
  EXPECT_EQ(tqtest::eval(destination, "mine.reply:dequeue(false)"), "third");

  // A request carrying its own reply queue, answered on the other side.
  ASSERT_EQ(tqtest::run(source, R"(
    answers = newTransitQueue()
    requests:enqueue({ question = 6, reply = answers })
  )"), "");
  ASSERT_EQ(tqtest::run(destination, R"(
    local request = requests:dequeue(false)
    request.reply:enqueue(request.question * 7)
  )"), "");
  EXPECT_EQ(tqtest::eval(source, "answers:dequeue(false)"), "42");
  ASSERT_EQ(tqtest::run(source, "requests:close()"), "");
  EXPECT_EQ(tqtest::eval(destination, "requests.closed"), "true");
}

TEST_F(QueueTransitTest, AMovedQueueLeavesTheSenderADeadHandle) {
  ASSERT_EQ(tqtest::run(source, "carrier = newTransitQueue() q = newTransitQueue()"), "");
  send("carrier", 0);
  ASSERT_EQ(tqtest::run(source, "carrier:enqueue({ q = q }, true)"), "");
  EXPECT_EQ(viewOf(queueObjectNamed(source, "q")).mark, 0xDEADACDCu);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(viewOf(queueObjectNamed(source, "q")).core), 0xABBAABB2u);
  ASSERT_EQ(tqtest::run(destination, "q = carrier:dequeue(false).q q:enqueue('left behind')"), "");
  EXPECT_EQ(viewOf(queueObjectNamed(destination, "q")).mark, 0xABBAACDCu);

  // The sender's collection gives nothing back; the receiver's object was the last holder.
  ASSERT_EQ(tqtest::run(source, "q = nil collectgarbage()"), "");
  testing::internal::CaptureStderr();
  ASSERT_EQ(tqtest::run(destination, "q = nil collectgarbage()"), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Objects orphaned in transit queue\n\"left behind\"\n");
}

}  // namespace
}  // namespace transit_test
