// Packing and unpacking values for transit, against a plain memcpy of the same bytes.
#include <benchmark/benchmark.h>
#include <tqkernel/tqkernel.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

struct Sample {
  const char *name;
  const char *code;  // returns the value
};

const Sample kSamples[] = {
    {"number", "return 3.25"},
    {"string1KiB", "return string.rep('x', 1024)"},
    {"flatTable100", "local t = {} for i = 1, 100 do t['key' .. i] = i end return t"},
    {"nestedTable3x50",
     "local t = {} for i = 1, 4 do local a = { name = 'branch' .. i } "
     "for j = 1, 3 do local b = {} for k = 1, 4 do b[k] = i * 100 + j * 10 + k end a[j] = b end "
     "t[i] = a end return t"},
};

lua_State *sSource = nullptr;
lua_State *sDestination = nullptr;

void pushSample(lua_State *L, const Sample &sample) {
  if (luaL_dostring(L, sample.code) != 0) {
    std::fprintf(stderr, "%s: %s\n", sample.name, lua_tostring(L, -1));
    std::abort();
  }
}

void packValue(benchmark::State &state, const Sample &sample) {
  lua_settop(sSource, 0);
  pushSample(sSource, sample);
  for (auto _ : state) {
    TqTransitMessage *message = TqTransitMessage_fromLuaValue(sSource, 1, 0);
    benchmark::DoNotOptimize(message);
    TqTransitMessage_free(message);
  }
}

void unpackValue(benchmark::State &state, const Sample &sample) {
  lua_settop(sSource, 0);
  pushSample(sSource, sample);
  TqTransitMessage *message = TqTransitMessage_fromLuaValue(sSource, 1, 0);
  for (auto _ : state) {
    TqTransitValue_unpack(sDestination, TqTransitMessage_packedValue(message));
    lua_settop(sDestination, 0);
  }
  TqTransitMessage_free(message);
}

void copyBytes(benchmark::State &state) {
  std::vector<char> from(1024, 'x'), to(1024);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
}

// Keeps each benchmark's nanoseconds per iteration for the summary: the median when runs
// are repeated.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median") continue;
      nanoseconds[run.run_name.function_name] = run.GetAdjustedRealTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> nanoseconds;
};

}  // namespace

int main(int argc, char **argv) {
  KrInit();
  TqLuaUniverse *source = TqLuaUniverse_open(nullptr, "source");
  TqLuaUniverse *destination = TqLuaUniverse_open(nullptr, "destination");
  sSource = TqLuaUniverse_getLuaState(source);
  sDestination = TqLuaUniverse_getLuaState(destination);

  for (const Sample &sample : kSamples) {
    benchmark::RegisterBenchmark((std::string("pack/") + sample.name).c_str(), packValue, sample);
    benchmark::RegisterBenchmark((std::string("unpack/") + sample.name).c_str(), unpackValue, sample);
  }
  benchmark::RegisterBenchmark("memcpy/1KiB", copyBytes);

  benchmark::Initialize(&argc, argv);
  RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  std::printf("\n%-28s %12s\n", "value", "ns per value");
  for (const auto &[name, ns] : reporter.nanoseconds) std::printf("%-28s %12.1f\n", name.c_str(), ns);
  const double copy = reporter.nanoseconds["memcpy/1KiB"];
  if (copy > 0) {
    std::printf("\n1 KiB string, against memcpy of the same bytes: pack %.1fx, unpack %.1fx\n",
                reporter.nanoseconds["pack/string1KiB"] / copy,
                reporter.nanoseconds["unpack/string1KiB"] / copy);
  }

  TqLuaUniverse_close(source);
  TqLuaUniverse_close(destination);
  benchmark::Shutdown();
  return 0;
}
