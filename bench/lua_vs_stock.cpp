// Runs the scripts under bench/lua/ on tqlua and on Debian's stock Lua 5.1 interpreter,
// in back-to-back pairs, and prints the best CPU time (user + system) of each and the
// median of the pairs' ratios, which shared machines disturb less than a ratio of bests.
// Exits 1 when a ratio exceeds its limit or the two interpreters disagree on a script's
// output.
//
//   tq_bench_lua [--runs N] [--stock PATH] [--tqlua PATH] [SCRIPT...]

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern char **environ;

namespace {

struct Script {
  const char *name;
  double limit;  // largest acceptable ratio of our time to the stock time
};

// Raising and catching costs a native exception per error where the stock interpreter
// long-jumps, hence the wider limit of the error loop.
const Script kScripts[] = {
    {"fib", 1.05},        // recursion
    {"tables", 1.05},     // insert, read, sort
    {"strings", 1.05},    // concatenation, gsub, format
    {"closures", 1.05},   // creating and calling closures
    {"mandelbrot", 1.05}, // floating point
    {"nbody", 1.05},      // floating point with table fields
    {"errors", 15.0},     // pcall of error with string and table values
};

struct Options {
  int runs = 7;
  std::string stock = "/usr/bin/lua5.1";
  std::string tqlua = TQ_BENCH_TQLUA;
  std::vector<std::string> only;
};

struct Run {
  double seconds = 0;
  std::string output;
};

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs `interpreter script` with its standard output in a temporary file and returns
// the child's CPU time and output; exits the program if the child fails.
Run runOnce(const std::string &interpreter, const std::string &script) {
  char outputPath[] = "/tmp/tq_bench_lua_XXXXXX";
  const int fd = mkstemp(outputPath);
  if (fd < 0) {
    std::perror("mkstemp");
    std::exit(2);
  }
  close(fd);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputPath, O_WRONLY | O_TRUNC, 0);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  std::vector<char *> argv = {const_cast<char *>(interpreter.c_str()),
                              const_cast<char *>(script.c_str()), nullptr};
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, interpreter.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) {
    std::fprintf(stderr, "cannot run %s: %s\n", interpreter.c_str(), std::strerror(spawned));
    std::exit(2);
  }
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "%s %s failed (wait status %d)\n", interpreter.c_str(), script.c_str(), status);
    std::exit(2);
  }
  Run run;
  run.seconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  run.output = readFile(outputPath);
  unlink(outputPath);
  return run;
}

Options parseOptions(int argc, char **argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--runs" && hasValue) {
      options.runs = std::max(1, std::atoi(argv[++i]));
    } else if (arg == "--stock" && hasValue) {
      options.stock = argv[++i];
    } else if (arg == "--tqlua" && hasValue) {
      options.tqlua = argv[++i];
    } else if (arg.rfind("--", 0) == 0) {
      std::fprintf(stderr, "usage: %s [--runs N] [--stock PATH] [--tqlua PATH] [SCRIPT...]\n", argv[0]);
      std::exit(2);
    } else {
      options.only.push_back(arg);
    }
  }
  return options;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

bool selected(const Options &options, const char *name) {
  return options.only.empty() ||
         std::find(options.only.begin(), options.only.end(), name) != options.only.end();
}

}  // namespace

int main(int argc, char **argv) {
  const Options options = parseOptions(argc, argv);
  if (access(options.stock.c_str(), X_OK) != 0) {
    std::fprintf(stderr, "stock interpreter %s not found (Debian package lua5.1)\n", options.stock.c_str());
    return 2;
  }
  std::printf("%d runs of each interpreter, alternating; CPU time (user + system) in seconds\n",
              options.runs);
  std::printf("%-12s %10s %10s %8s %8s\n", "script", "stock best", "tqlua best", "ratio", "limit");
  bool allWithinLimits = true;
  for (const Script &script : kScripts) {
    if (!selected(options, script.name)) continue;
    const std::string path = std::string(TQ_BENCH_SCRIPT_DIR) + "/" + script.name + ".lua";
    double bestStock = 1e9;
    double bestOurs = 1e9;
    std::vector<double> ratios;
    for (int run = 0; run < options.runs; ++run) {
      // Each pair runs back to back, in alternating order, so that both see the same load.
      const bool stockFirst = run % 2 == 0;
      const Run first = runOnce(stockFirst ? options.stock : options.tqlua, path);
      const Run second = runOnce(stockFirst ? options.tqlua : options.stock, path);
      const Run &stock = stockFirst ? first : second;
      const Run &ours = stockFirst ? second : first;
      if (stock.output != ours.output) {
        std::fprintf(stderr, "%s: outputs differ\nstock: %stqlua: %s", script.name,
                     stock.output.c_str(), ours.output.c_str());
        return 1;
      }
      bestStock = std::min(bestStock, stock.seconds);
      bestOurs = std::min(bestOurs, ours.seconds);
      ratios.push_back(ours.seconds / std::max(stock.seconds, 1e-6));
    }
    const double ratio = median(ratios);
    const bool withinLimit = ratio <= script.limit;
    allWithinLimits = allWithinLimits && withinLimit;
    std::printf("%-12s %10.3f %10.3f %8.2f %8.2f%s\n", script.name, bestStock, bestOurs, ratio,
                script.limit, withinLimit ? "" : "  OVER");
    std::fflush(stdout);
  }
  return allWithinLimits ? 0 : 1;
}
