// The library's only door to the operating system. A port to another platform replaces
// the files of this folder.
#ifndef TQ_RUNTIME_PLATFORM_H
#define TQ_RUNTIME_PLATFORM_H

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace tq::platform {

// Re-entrant for the thread that holds it.
class RecursiveMutex {
public:
  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }

private:
  friend class Condition;
  std::recursive_mutex mutex_;
};

class Condition {
public:
  // The caller holds mutex once. timeoutMs 0 waits without limit. Returns true when the
  // wait timed out, false when woken (spuriously or not).
  bool wait(RecursiveMutex &mutex, uint32_t timeoutMs);
  void wakeOne() { condition_.notify_one(); }
  void wakeAll() { condition_.notify_all(); }

private:
  std::condition_variable_any condition_;
};

// The operating system's id of the calling thread.
uint32_t currentThreadId();

// Where debugger output goes: standard error here.
void writeDebugOutput(const char *text);

// Native libraries. loadLibrary and librarySymbol give NULL on failure, and libraryError
// then tells why (NULL when the platform gave no reason).
void *loadLibrary(const char *path);
void *librarySymbol(void *library, const char *name);
void unloadLibrary(void *library);
const char *libraryError();

}  // namespace tq::platform

#endif
