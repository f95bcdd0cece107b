// Transit queues between threads: waking a blocked reader, and many producers and
// consumers over several queues.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "transit_support.h"

namespace transit_test {
namespace {

// One universe per thread, opened and closed by the test's own thread.
class QueueThreadsTest : public ::testing::Test {
protected:
  void SetUp() override { KrInit(); }
  void TearDown() override {
    for (TqLuaUniverse *universe : universes_) TqLuaUniverse_close(universe);
  }
  lua_State *openState(const std::string &name) {
    universes_.push_back(TqLuaUniverse_open(nullptr, name.c_str()));
    return TqLuaUniverse_getLuaState(universes_.back());
  }

private:
  std::vector<TqLuaUniverse *> universes_;
};

TEST_F(QueueThreadsTest, ABlockedReaderWakesOnAnEnqueueFromAnotherThread) {
  lua_State *reader = openState("reader");
  lua_State *writer = openState("writer");
  TqTransitQueue *queue = TqTransitQueue_createQueue(0);
  TqTransitQueue_pushQueue_L(reader, queue);
  lua_setglobal(reader, "q");

  std::promise<void> started;
  std::future<std::string> received = std::async(std::launch::async, [&] {
    started.set_value();
    return tqtest::eval(reader, "q:dequeue()");
  });
  started.get_future().wait();
  lua_pushliteral(writer, "wake up");
  ASSERT_EQ(TqTransitQueue_enqueueToQueue(writer, queue, -1), 1);
  ASSERT_EQ(received.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_EQ(received.get(), "wake up");

  // The reader's object never gives its reference back; move it to a counted one.
  lua_getglobal(reader, "q");
  TqTransitQueue_copyFromLuaStateToLuaState(reader, -1, reader, 1);
  lua_setglobal(reader, "q");
  lua_pop(reader, 1);
  TqTransitQueue_release(queue);
}

// ---- Many producers and consumers ----

// Sanitizers run several times slower; the thread sanitizer most.
#if defined(__SANITIZE_THREAD__)
constexpr int kDefaultMessages = 40000;
#elif defined(__SANITIZE_ADDRESS__)
constexpr int kDefaultMessages = 100000;
#else
constexpr int kDefaultMessages = 200000;
#endif
constexpr int kProducers = 4;
constexpr int kConsumers = 2;
constexpr int kQueues = 3;

int messageCount() {
  const char *configured = std::getenv("TQ_QUEUE_STRESS_MESSAGES");
  return configured ? std::atoi(configured) : kDefaultMessages;
}

// A small deterministic generator: the consumer rebuilds what the producer sent.
class Shapes {
public:
  Shapes(int producer, int queue, int sequence)
      : state_(uint64_t(producer) << 48 ^ uint64_t(queue) << 40 ^ uint64_t(sequence)) {}

  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(next() % bound); }

  // A number, a string or a table, each carrying its identity.
  void pushMessage(lua_State *L, int producer, int queue, int sequence) {
    switch (below(3)) {
      case 0:
        lua_pushnumber(L, static_cast<double>(identity(producer, queue) * 4294967296.0 + sequence));
        break;
      case 1: {
        std::string text = std::to_string(producer) + " " + std::to_string(queue) + " " +
                           std::to_string(sequence) + " ";
        pushBytes(L, text, below(300));
        break;
      }
      default:
        lua_createtable(L, 0, 4);
        lua_pushnumber(L, producer);
        lua_setfield(L, -2, "producer");
        lua_pushnumber(L, queue);
        lua_setfield(L, -2, "queue");
        lua_pushnumber(L, sequence);
        lua_setfield(L, -2, "sequence");
        pushTree(L, 0);
        lua_setfield(L, -2, "payload");
    }
  }

  static uint64_t identity(int producer, int queue) { return uint64_t(producer) * kQueues + queue; }

private:
  uint64_t next() {  // splitmix64
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }

  // Appends length pseudo-random bytes, zeros among them.
  void pushBytes(lua_State *L, std::string text, uint32_t length) {
    for (uint32_t i = 0; i < length; ++i) text.push_back(static_cast<char>(below(256)));
    lua_pushlstring(L, text.data(), text.size());
  }

  void pushTree(lua_State *L, int depth) {
    switch (below(depth < 3 ? 6 : 4)) {
      case 0:
        lua_pushnumber(L, static_cast<double>(next() >> 11) / 1024.0);
        break;
      case 1:
        lua_pushboolean(L, below(2));
        break;
      case 2:
        pushBytes(L, "", below(40));
        break;
      case 3:
        lua_pushnil(L);  // absent from a table, and a plain nil elsewhere
        break;
      case 4: {
        const int count = static_cast<int>(below(12));
        lua_createtable(L, count, 0);
        for (int i = 1; i <= count; ++i) {
          pushTree(L, depth + 1);
          lua_rawseti(L, -2, i);
        }
        break;
      }
      default: {
        const int count = static_cast<int>(below(8));
        lua_createtable(L, 0, count);
        for (int i = 0; i < count; ++i) {
          pushBytes(L, "k", below(6));
          pushTree(L, depth + 1);
          lua_rawset(L, -3);
        }
      }
    }
  }

  uint64_t state_;
};

// Deep equality of two values without metatables.
bool sameValue(lua_State *L, int a, int b) {
  a = TqLua_normalize(L, a);
  b = TqLua_normalize(L, b);
  if (lua_type(L, a) != lua_type(L, b)) return false;
  if (!lua_istable(L, a)) return lua_rawequal(L, a, b);
  int pairs = 0;
  lua_pushnil(L);
  while (lua_next(L, a)) {
    ++pairs;
    lua_pushvalue(L, -2);
    lua_rawget(L, b);
    const bool same = sameValue(L, -1, -2);
    lua_pop(L, 2);
    if (!same) {
      lua_pop(L, 1);
      return false;
    }
  }
  lua_pushnil(L);
  while (lua_next(L, b)) {
    --pairs;
    lua_pop(L, 1);
  }
  return pairs == 0;
}

struct Identity {
  int producer, queue, sequence;
};

// Reads the identity that pushMessage put into the value on top of L.
Identity identify(lua_State *L) {
  Identity id{-1, -1, -1};
  if (lua_type(L, -1) == LUA_TNUMBER) {
    const double value = lua_tonumber(L, -1);
    const auto key = static_cast<uint64_t>(value / 4294967296.0);
    id = {static_cast<int>(key / kQueues), static_cast<int>(key % kQueues),
          static_cast<int>(value - static_cast<double>(key) * 4294967296.0)};
  } else if (lua_type(L, -1) == LUA_TSTRING) {
    std::sscanf(lua_tostring(L, -1), "%d %d %d", &id.producer, &id.queue, &id.sequence);
  } else if (lua_istable(L, -1)) {
    id = {static_cast<int>(TqLuaTable_toNumber(L, -1, "producer")),
          static_cast<int>(TqLuaTable_toNumber(L, -1, "queue")),
          static_cast<int>(TqLuaTable_toNumber(L, -1, "sequence"))};
  }
  return id;
}

struct StressRun {
  explicit StressRun(int messages)
      : perProducer(messages / kProducers), seen(size_t(kProducers) * kQueues * perProducer) {}

  std::atomic<uint8_t> &seenFlag(const Identity &id) {
    return seen[(size_t(id.producer) * kQueues + id.queue) * perProducer + id.sequence];
  }
  void fail(const std::string &why) {
    std::lock_guard<std::mutex> guard(failureLock);
    if (failures++ == 0) firstFailure = why;
  }

  const int perProducer;
  std::vector<std::atomic<uint8_t>> seen;
  std::atomic<int> received{0};
  std::atomic<bool> stop{false};  // set when messages went missing
  std::promise<void> allReceived;
  int sent[kProducers][kQueues] = {};
  std::mutex failureLock;
  int failures = 0;
  std::string firstFailure;
};

void produce(lua_State *L, int producer, TqTransitQueue *const *queues, StressRun &run) {
  Shapes chooser(producer, kQueues, 0);
  for (int i = 0; i < run.perProducer; ++i) {
    const int queue = static_cast<int>(chooser.below(kQueues));
    const int sequence = run.sent[producer][queue]++;
    Shapes(producer, queue, sequence).pushMessage(L, producer, queue, sequence);
    if (TqTransitQueue_enqueueToQueue(L, queues[queue], -1) != 1) run.fail("enqueue refused");
    lua_pop(L, 1);
  }
}

// Checks each arrival against its rebuilt original, its order per producer and queue in
// this consumer's stream, and that it is the first arrival of its identity.
class Consumer {
public:
  Consumer(lua_State *L, int consumer, TqTransitQueue *const *queues, StressRun &run, int total)
      : L_(L), first_(consumer), queues_(queues), run_(run), total_(total) {
    for (auto &row : lastSequence_) std::fill(std::begin(row), std::end(row), -1);
  }

  // Serves queues first_ and first_ + 1: drains them without waiting, and waits a little on
  // one of them, in turns, when both were empty.
  void operator()() {
    for (int round = 0; !run_.stop.load() && run_.received.load() < total_; ++round) {
      bool tookAny = false;
      for (int queue = first_; queue <= first_ + 1; ++queue) {
        while (take(queue, false)) tookAny = true;
      }
      if (!tookAny) take(first_ + round % 2, true);
    }
  }

private:
  bool take(int queue, bool wait) {
    if (!TqTransitQueue_dequeueToLuaState(L_, queues_[queue], wait, 0.002)) return false;
    check(queue);
    lua_pop(L_, 1);
    if (run_.received.fetch_add(1) + 1 == total_) run_.allReceived.set_value();
    return true;
  }

  void check(int queue) {
    const Identity id = identify(L_);
    if (id.producer < 0 || id.producer >= kProducers || id.queue != queue || id.sequence < 0 ||
        id.sequence >= run_.perProducer) {
      run_.fail("unrecognised message on queue " + std::to_string(queue));
      return;
    }
    Shapes(id.producer, id.queue, id.sequence).pushMessage(L_, id.producer, id.queue, id.sequence);
    if (!sameValue(L_, -1, -2)) run_.fail("message changed in transit");
    lua_pop(L_, 1);
    int &last = lastSequence_[id.producer][id.queue];
    if (id.sequence <= last) run_.fail("message out of order");
    last = id.sequence;
    if (run_.seenFlag(id).exchange(1)) run_.fail("message delivered twice");
  }

  lua_State *L_;
  const int first_;
  TqTransitQueue *const *queues_;
  StressRun &run_;
  const int total_;
  int lastSequence_[kProducers][kQueues];
};

TEST_F(QueueThreadsTest, EveryMessageArrivesOnceAndInOrderPerProducer) {
  const int total = messageCount() / kProducers * kProducers;
  StressRun run(total);
  TqTransitQueue *queues[kQueues];
  for (TqTransitQueue *&queue : queues) queue = TqTransitQueue_createQueue(0);

  std::vector<std::thread> consumers, producers;
  for (int consumer = 0; consumer < kConsumers; ++consumer) {
    lua_State *L = openState("consumer " + std::to_string(consumer));
    consumers.emplace_back(Consumer(L, consumer, queues, run, total));
  }
  for (int producer = 0; producer < kProducers; ++producer) {
    lua_State *L = openState("producer " + std::to_string(producer));
    producers.emplace_back(produce, L, producer, queues, std::ref(run));
  }
  for (std::thread &thread : producers) thread.join();
  // A generous bound, so that lost messages fail the test instead of hanging it.
  EXPECT_EQ(run.allReceived.get_future().wait_for(std::chrono::seconds(90)),
            std::future_status::ready);
  run.stop.store(true);
  for (std::thread &thread : consumers) thread.join();

  EXPECT_EQ(run.failures, 0) << run.firstFailure;
  EXPECT_EQ(run.received.load(), total);
  for (int producer = 0; producer < kProducers; ++producer) {
    for (int queue = 0; queue < kQueues; ++queue) {
      for (int sequence = 0; sequence < run.sent[producer][queue]; ++sequence) {
        if (!run.seenFlag({producer, queue, sequence}).load()) {
          ADD_FAILURE() << "lost " << producer << " " << queue << " " << sequence;
          break;
        }
      }
    }
  }
  for (TqTransitQueue *queue : queues) {
    EXPECT_EQ(TqTransitQueue_isEmpty(queue), 1);
    TqTransitQueue_release(queue);
  }
}

}  // namespace
}  // namespace transit_test
