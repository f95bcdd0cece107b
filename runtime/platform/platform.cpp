#include "runtime/platform/platform.h"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace tq::platform {

bool Condition::wait(RecursiveMutex &mutex, uint32_t timeoutMs) {
  if (timeoutMs == 0) {
    condition_.wait(mutex.mutex_);
    return false;
  }
  return condition_.wait_for(mutex.mutex_, std::chrono::milliseconds(timeoutMs)) ==
         std::cv_status::timeout;
}

uint32_t currentThreadId() { return static_cast<uint32_t>(::syscall(SYS_gettid)); }

void writeDebugOutput(const char *text) {
  std::fputs(text, stderr);
}

void *loadLibrary(const char *path) { return ::dlopen(path, RTLD_NOW); }

void *librarySymbol(void *library, const char *name) { return ::dlsym(library, name); }

void unloadLibrary(void *library) { ::dlclose(library); }

const char *libraryError() { return ::dlerror(); }

}  // namespace tq::platform
