#include "support/process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace tqtest {

ProcessResult runProcess(const std::string &commandLine) {
  FILE *pipe = popen((commandLine + " 2>&1").c_str(), "r");
  if (!pipe) throw std::runtime_error("popen failed: " + commandLine);
  ProcessResult result{0, ""};
  char buffer[4096];
  size_t count;
  while ((count = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) result.output.append(buffer, count);
  const int status = pclose(pipe);
  result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

std::string writeTemporaryFile(const std::string &text, const std::string &suffix) {
  std::string path = "/tmp/tqtest-XXXXXX" + suffix;
  const int fd = mkstemps(path.data(), static_cast<int>(suffix.size()));
  if (fd < 0) throw std::runtime_error("mkstemps failed");
  if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    close(fd);
    throw std::runtime_error("write failed");
  }
  close(fd);
  return path;
}

}  // namespace tqtest
