// Loopback HTTP for tests: a client and a program running in the background.
#ifndef TQ_TESTS_HTTP_H
#define TQ_TESTS_HTTP_H

#include <sys/types.h>

#include <string>

namespace tqtest {

struct HttpResult {
  long status = 0;           // 0 when no answer came
  std::string body;
  std::string contentType;
  std::string error;         // curl's text when the request failed
};

// GET when body is null, else POST with that body. Waits at most timeoutMs.
HttpResult httpRequest(const std::string &url, const std::string *body = nullptr,
                       long timeoutMs = 10000);

// A program started with /bin/sh -c, its standard error read line by line; killed (with its
// process group) when the object goes away.
class BackgroundProcess {
public:
  explicit BackgroundProcess(const std::string &commandLine);
  ~BackgroundProcess();
  BackgroundProcess(const BackgroundProcess &) = delete;
  BackgroundProcess &operator=(const BackgroundProcess &) = delete;

  // Reads standard error until a line contains text; returns that line, or "" when the
  // program closed its standard error or timeoutMs passed first.
  std::string waitForLine(const std::string &text, int timeoutMs = 10000);
  // Everything read from standard error so far.
  const std::string &errorOutput() const { return errors_; }
  // Waits for the program to end; its exit status, 128 + signal, or -1 after timeoutMs.
  int wait(int timeoutMs = 10000);

private:
  bool readSome(int timeoutMs);
  pid_t pid_ = -1;
  int errorFd_ = -1;
  std::string errors_;
  size_t scanned_ = 0;
  int status_ = -1;
};

}  // namespace tqtest

#endif
