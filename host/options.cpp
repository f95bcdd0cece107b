#include "host/options.h"

#include <cstring>

namespace tqhost {

const char kUsage[] =
    "usage: tqhost [--help] SCRIPT.lua [ARGS...]\n"
    "\n"
    "Runs SCRIPT.lua in the main universe of TqKernel. The script's extra arguments\n"
    "are passed to it as '...' and in the global table 'arg' (arg[0] is the script).\n"
    "\n"
    "Besides Lua's standard libraries, every universe has:\n"
    "  print(...)                         logs one line to standard output\n"
    "  newTransitQueue()                  a queue that any universe may use\n"
    "  spawnUniverse(name, source, ...)   runs source in a new universe on its own\n"
    "                                     thread; the extra arguments travel by transit\n"
    "  elapsedSeconds()                   wall-clock seconds since tqhost started\n"
    "tqhost waits for every spawned universe before it ends.\n"
    "\n"
    "Exit status: 0 on success, 1 when the script or a spawned universe raises an\n"
    "error, 2 on a usage error or when the script cannot be read.\n";

bool parseOptions(int argc, char **argv, Options &options, std::string &error) {
  int i = 1;
  for (; i < argc && argv[i][0] == '-' && argv[i][1] != '\0'; ++i) {
    if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
      options.help = true;
      return true;
    }
    if (std::strcmp(argv[i], "--") == 0) {
      ++i;
      break;
    }
    error = std::string("unknown option '") + argv[i] + "'";
    return false;
  }
  if (i >= argc) {
    error = "no script given";
    return false;
  }
  options.script = argv[i++];
  options.scriptArguments.assign(argv + i, argv + argc);
  return true;
}

}  // namespace tqhost
