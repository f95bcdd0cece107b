// Running the project's programs from tests.
#ifndef TQ_TESTS_PROCESS_H
#define TQ_TESTS_PROCESS_H

#include <string>

namespace tqtest {

struct ProcessResult {
  int exitStatus;
  std::string output;  // standard output and standard error, interleaved
};

// Runs a shell command line and collects its output and exit status.
ProcessResult runProcess(const std::string &commandLine);

// Writes text to a new temporary file with the given suffix and returns its path.
std::string writeTemporaryFile(const std::string &text, const std::string &suffix);

}  // namespace tqtest

#endif
