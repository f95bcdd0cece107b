// Command line of tqhost.
#ifndef TQ_HOST_OPTIONS_H
#define TQ_HOST_OPTIONS_H

#include <string>
#include <vector>

namespace tqhost {

struct Options {
  std::string script;
  std::vector<std::string> scriptArguments;
  bool help = false;
};

// Parses argv; on a usage error returns false with the reason in error.
bool parseOptions(int argc, char **argv, Options &options, std::string &error);

extern const char kUsage[];

}  // namespace tqhost

#endif
