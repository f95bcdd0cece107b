// A native function reading four arguments with the toolkit's checks, against the same
// function using the auxiliary library's, both called from the same Lua loop. Prints the
// ratio of the fastest CPU times (toolkit / auxiliary library) measured in this run.
#include <benchmark/benchmark.h>
#include <tqkernel/tqkernel.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr int kCallsPerLoop = 10000;

int readWithToolkit(lua_State *L) {
  benchmark::DoNotOptimize(TqLua_checkNumber(L, 1));
  benchmark::DoNotOptimize(TqLua_checkInteger(L, 2));
  benchmark::DoNotOptimize(TqLua_checkString(L, 3));
  benchmark::DoNotOptimize(TqLua_optNumber(L, 4, 0));
  return 0;
}

int readWithAuxiliary(lua_State *L) {
  benchmark::DoNotOptimize(luaL_checknumber(L, 1));
  benchmark::DoNotOptimize(luaL_checkinteger(L, 2));
  benchmark::DoNotOptimize(luaL_checkstring(L, 3));
  benchmark::DoNotOptimize(luaL_optnumber(L, 4, 0));
  return 0;
}

void callFromLuaLoop(benchmark::State &state, lua_CFunction reader) {
  lua_State *L = TqRawLuaState_open();
  const char *loop = "local f = ... for i = 1, 10000 do f(1.5, 42, 'text', 2.5) end";
  if (luaL_loadstring(L, loop) != 0) state.SkipWithError("loop did not compile");
  for (auto _ : state) {
    lua_pushvalue(L, 1);
    lua_pushcfunction(L, reader);
    if (lua_pcall(L, 1, 0, 0) != 0) state.SkipWithError(lua_tostring(L, -1));
  }
  state.SetItemsProcessed(state.iterations() * kCallsPerLoop);
  TqRawLuaState_close(L);
}

void BM_ToolkitChecks(benchmark::State &state) { callFromLuaLoop(state, readWithToolkit); }
void BM_AuxiliaryChecks(benchmark::State &state) { callFromLuaLoop(state, readWithAuxiliary); }

// Many short interleaved repetitions: their fastest is the least disturbed by other load
// on the machine.
double fastest(const std::vector<double> &times) { return *std::min_element(times.begin(), times.end()); }

BENCHMARK(BM_AuxiliaryChecks)->Repetitions(40)->MinTime(0.02)->ComputeStatistics("min", fastest)->ReportAggregatesOnly(true);
BENCHMARK(BM_ToolkitChecks)->Repetitions(40)->MinTime(0.02)->ComputeStatistics("min", fastest)->ReportAggregatesOnly(true);

// Keeps the fastest CPU time of each benchmark for the ratio.
class FastestReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.aggregate_name == "min") fastest[run.run_name.function_name] = run.GetAdjustedCPUTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> fastest;
};

}  // namespace

int main(int argc, char **argv) {
  // Interleaved repetitions, so that a change of machine load hits both sides alike.
  std::vector<char *> arguments(argv, argv + argc);
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  arguments.insert(arguments.begin() + 1, interleave);
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  FastestReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const double toolkit = reporter.fastest["BM_ToolkitChecks"];
  const double auxiliary = reporter.fastest["BM_AuxiliaryChecks"];
  if (toolkit > 0 && auxiliary > 0) {
    std::printf("toolkit checks / auxiliary library checks: %.3f (target <= 1.10)\n", toolkit / auxiliary);
  }
  benchmark::Shutdown();
  return 0;
}
