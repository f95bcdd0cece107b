// One producer thread and one consumer thread moving values through a transit queue,
// against two baselines measured in the same run:
//   - the same byte counts as std::string through a minimal mutex-and-condition queue;
//   - for tables, one Lua state deep-copying them with a Lua function through a Lua FIFO.
//
// Usage: tq_queue_bench [repetitions [sample]]   (default 5 repetitions, every sample; each
// figure is the median)
#include <tqkernel/tqkernel.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Sample {
  const char *name;
  const char *code;  // returns the value
  int messages;      // bounded so that a queue that runs ahead stays in memory
  bool table;
};

const Sample kSamples[] = {
    {"number", "return 3.25", 400000, false},
    {"string 1 KiB", "return string.rep('x', 1024)", 200000, false},
    {"table 100 entries", "local t = {} for i = 1, 100 do t['key' .. i] = i end return t", 20000,
     true},
    {"nested table 52 leaves",
     "local t = {} for i = 1, 4 do local a = { name = 'branch' .. i } "
     "for j = 1, 3 do local b = {} for k = 1, 4 do b[k] = i * 100 + j * 10 + k end a[j] = b end "
     "t[i] = a end return t",
     40000, true},
};

struct Timing {
  double wallSeconds;
  double cpuSeconds;  // of the whole process: both threads
};

Timing measure(const std::function<void()> &run) {
  const auto wallStart = std::chrono::steady_clock::now();
  const std::clock_t cpuStart = std::clock();
  run();
  const double cpu = double(std::clock() - cpuStart) / CLOCKS_PER_SEC;
  return {std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count(), cpu};
}

Timing median(std::vector<Timing> timings) {
  auto middle = timings.begin() + timings.size() / 2;
  std::nth_element(timings.begin(), middle, timings.end(),
                   [](const Timing &a, const Timing &b) { return a.wallSeconds < b.wallSeconds; });
  return *middle;
}

lua_State *openState(std::vector<TqLuaUniverse *> &universes, const char *name) {
  universes.push_back(TqLuaUniverse_open(nullptr, name));
  return TqLuaUniverse_getLuaState(universes.back());
}

void pushSample(lua_State *L, const Sample &sample) {
  if (luaL_dostring(L, sample.code) != 0) {
    std::fprintf(stderr, "%s: %s\n", sample.name, lua_tostring(L, -1));
    std::abort();
  }
}

Timing throughTransitQueue(lua_State *producer, lua_State *consumer, const Sample &sample) {
  TqTransitQueue *queue = TqTransitQueue_createQueue(0);
  lua_settop(producer, 0);
  pushSample(producer, sample);
  const Timing timing = measure([&] {
    std::thread reader([&] {
      for (int i = 0; i < sample.messages; ++i) {
        TqTransitQueue_dequeueToLuaState(consumer, queue, 1, 0);
        lua_settop(consumer, 0);
      }
    });
    for (int i = 0; i < sample.messages; ++i) TqTransitQueue_enqueueToQueue(producer, queue, 1);
    reader.join();
  });
  TqTransitQueue_release(queue);
  lua_gc(consumer, LUA_GCCOLLECT, 0);
  return timing;
}

// The least a thread-safe queue of byte strings can do.
class MinimalQueue {
public:
  void push(std::string bytes) {
    std::lock_guard<std::mutex> guard(mutex_);
    items_.push_back(std::move(bytes));
    condition_.notify_one();
  }
  std::string pop() {
    std::unique_lock<std::mutex> lock(mutex_);
    condition_.wait(lock, [this] { return !items_.empty(); });
    std::string bytes = std::move(items_.front());
    items_.pop_front();
    return bytes;
  }

private:
  std::mutex mutex_;
  std::condition_variable condition_;
  std::deque<std::string> items_;
};

Timing throughMinimalQueue(const std::string &bytes, int messages) {
  MinimalQueue queue;
  return measure([&] {
    std::thread reader([&] {
      size_t total = 0;
      for (int i = 0; i < messages; ++i) total += queue.pop().size();
      if (total != bytes.size() * messages) std::abort();
    });
    for (int i = 0; i < messages; ++i) queue.push(std::string(bytes.data(), bytes.size()));
    reader.join();
  });
}

const char kLuaCopyThroughFifo[] = R"(
  local value, messages = ...
  local function copy(v)
    if type(v) ~= 'table' then return v end
    local t = {}
    for k, x in pairs(v) do t[copy(k)] = copy(x) end
    return t
  end
  local fifo, first, last = {}, 1, 0
  for i = 1, messages do
    last = last + 1
    fifo[last] = copy(value)
    local received = fifo[first]
    fifo[first] = nil
    first = first + 1
  end
)";

Timing throughLuaCopy(lua_State *L, const Sample &sample) {
  lua_settop(L, 0);
  if (luaL_loadstring(L, kLuaCopyThroughFifo) != 0) std::abort();
  pushSample(L, sample);
  lua_pushinteger(L, sample.messages);
  const Timing timing = measure([&] {
    if (lua_pcall(L, 2, 0, 0) != 0) {
      std::fprintf(stderr, "%s\n", lua_tostring(L, -1));
      std::abort();
    }
  });
  lua_gc(L, LUA_GCCOLLECT, 0);
  return timing;
}

// The packed bytes of the sample: what the minimal queue carries instead.
std::string packedBytes(lua_State *L, const Sample &sample) {
  lua_settop(L, 0);
  pushSample(L, sample);
  TqTransitMessage *message = TqTransitMessage_fromLuaValue(L, 1, 0);
  std::string bytes(static_cast<const char *>(TqTransitMessage_packedValue(message)), message->size);
  TqTransitMessage_free(message);
  return bytes;
}

void printRow(const char *what, const Timing &timing, int messages) {
  std::printf("  %-26s %12.0f msg/s %10.0f ns wall/msg %10.0f ns CPU/msg\n", what,
              messages / timing.wallSeconds, timing.wallSeconds * 1e9 / messages,
              timing.cpuSeconds * 1e9 / messages);
}

}  // namespace

int main(int argc, char **argv) {
  const int repetitions = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  const char *only = argc > 2 ? argv[2] : nullptr;
  KrInit();
  std::vector<TqLuaUniverse *> universes;
  lua_State *producer = openState(universes, "producer");
  lua_State *consumer = openState(universes, "consumer");
  lua_State *single = openState(universes, "single");

  std::printf("one producer and one consumer thread; medians of %d runs\n", repetitions);
  for (const Sample &sample : kSamples) {
    if (only && std::strcmp(only, sample.name) != 0) continue;
    const std::string bytes = packedBytes(producer, sample);
    std::vector<Timing> transit, minimal, luaCopy;
    for (int run = 0; run < repetitions; ++run) {
      transit.push_back(throughTransitQueue(producer, consumer, sample));
      minimal.push_back(throughMinimalQueue(bytes, sample.messages));
      if (sample.table) luaCopy.push_back(throughLuaCopy(single, sample));
    }
    const Timing transitTime = median(transit), minimalTime = median(minimal);
    std::printf("\n%s (%zu packed bytes, %d messages)\n", sample.name, bytes.size(), sample.messages);
    printRow("transit queue", transitTime, sample.messages);
    printRow("minimal std::string queue", minimalTime, sample.messages);
    std::printf("  transit / minimal: %.2fx wall, %.2fx CPU\n",
                transitTime.wallSeconds / minimalTime.wallSeconds,
                transitTime.cpuSeconds / minimalTime.cpuSeconds);
    if (sample.table) {
      const Timing luaTime = median(luaCopy);
      printRow("Lua deep copy, one state", luaTime, sample.messages);
      std::printf("  transit / Lua deep copy: %.2fx wall, %.2fx CPU\n",
                  transitTime.wallSeconds / luaTime.wallSeconds,
                  transitTime.cpuSeconds / luaTime.cpuSeconds);
    }
  }

  for (TqLuaUniverse *universe : universes) TqLuaUniverse_close(universe);
  return 0;
}
