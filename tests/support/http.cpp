#include "support/http.h"

#include <curl/curl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

namespace tqtest {

namespace {

size_t collect(char *data, size_t size, size_t count, void *target) {
  static_cast<std::string *>(target)->append(data, size * count);
  return size * count;
}

int remainingMs(std::chrono::steady_clock::time_point deadline) {
  const auto left = deadline - std::chrono::steady_clock::now();
  return static_cast<int>(std::max<long>(
      0, std::chrono::duration_cast<std::chrono::milliseconds>(left).count()));
}

}  // namespace

HttpResult httpRequest(const std::string &url, const std::string *body, long timeoutMs) {
  HttpResult result;
  CURL *curl = curl_easy_init();
  if (!curl) throw std::runtime_error("curl_easy_init failed");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, timeoutMs);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &result.body);
  if (body) {
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body->data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
  }
  const CURLcode code = curl_easy_perform(curl);
  if (code == CURLE_OK) {
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &result.status);
    char *type = nullptr;
    curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &type);
    if (type) result.contentType = type;
  } else {
    result.error = curl_easy_strerror(code);
  }
  curl_easy_cleanup(curl);
  return result;
}

BackgroundProcess::BackgroundProcess(const std::string &commandLine) {
  int fds[2];
  if (pipe(fds) != 0) throw std::runtime_error("pipe failed");
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) {
    setpgid(0, 0);
    dup2(fds[1], 2);
    close(fds[0]);
    close(fds[1]);
    execl("/bin/sh", "sh", "-c", commandLine.c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  setpgid(pid_, pid_);
  close(fds[1]);
  errorFd_ = fds[0];
}

BackgroundProcess::~BackgroundProcess() {
  if (status_ < 0 && pid_ > 0) {
    kill(-pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (errorFd_ >= 0) close(errorFd_);
}

bool BackgroundProcess::readSome(int timeoutMs) {
  pollfd entry{errorFd_, POLLIN, 0};
  if (poll(&entry, 1, timeoutMs) <= 0) return false;
  char buffer[4096];
  const ssize_t count = read(errorFd_, buffer, sizeof buffer);
  if (count <= 0) return false;
  errors_.append(buffer, static_cast<size_t>(count));
  return true;
}

std::string BackgroundProcess::waitForLine(const std::string &text, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    size_t end;
    while ((end = errors_.find('\n', scanned_)) != std::string::npos) {
      const std::string line = errors_.substr(scanned_, end - scanned_);
      scanned_ = end + 1;
      if (line.find(text) != std::string::npos) return line;
    }
    if (!readSome(remainingMs(deadline))) return "";
  }
}

int BackgroundProcess::wait(int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (status_ < 0) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      break;
    }
    if (remainingMs(deadline) == 0) return -1;
    if (!readSome(std::min(50, remainingMs(deadline)))) usleep(10000);
  }
  while (readSome(0)) {
  }
  return status_;
}

}  // namespace tqtest
