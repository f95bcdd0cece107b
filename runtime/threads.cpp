#include <tqkernel/exceptions.h>
#include <tqkernel/threads.h>

#include <cmath>
#include <cstdint>
#include <new>

#include "runtime/platform/platform.h"
#include "runtime/threads_internal.h"

struct TqMutex {
  tq::platform::RecursiveMutex lock;
  uint8_t initialized = 0;
};

struct TqConditionLock {
  tq::platform::Condition condition;
  TqMutex *mutex = nullptr;
  uint8_t valid = 0;
};

namespace {

// Initialised during the library's static initialisation, "deleted" at unload: while the
// flag is 0 locking it does nothing.
struct CommonMutex {
  TqMutex mutex;
  CommonMutex() { mutex.initialized = 1; }
  ~CommonMutex() { mutex.initialized = 0; }
} sCommonMutex;

struct DoneRecord {
  const void *token;
  DoneRecord *next;
};
DoneRecord *sDoneList = nullptr;

uint32_t sMainThread = 0;

// Saturating conversion of a positive wait in seconds to whole milliseconds, at least 1.
uint32_t timeoutMilliseconds(double seconds) {
  const double ms = std::trunc(seconds * 1000.0);
  if (ms >= 4294967295.0) return UINT32_MAX;
  const uint32_t result = static_cast<uint32_t>(ms);
  return result == 0 ? 1 : result;
}

}  // namespace

TqMutex *TqMutex_new(void) {
  TqMutex *mutex = new TqMutex;
  mutex->initialized = 1;
  return mutex;
}

void TqMutex_delete(TqMutex *mutex) {
  if (!mutex) return;
  mutex->initialized = 0;
  delete mutex;
}

TqMutex *TqMutex_lock(TqMutex *mutex) {
  if (mutex && mutex->initialized) mutex->lock.lock();
  return mutex;
}

void TqMutex_unlock(TqMutex *mutex) {
  if (mutex && mutex->initialized) mutex->lock.unlock();
}

TqMutexScope::TqMutexScope(TqMutex *mutex) : mutex_(mutex) {
  if (mutex_->initialized) mutex_->lock.lock();
}

TqMutexScope::~TqMutexScope() {
  if (mutex_->initialized) mutex_->lock.unlock();
}

TqMutexScope &TqMutexScope::operator=(const TqMutexScope &other) {
  mutex_ = other.mutex_;
  return *this;
}

TqMutex *TqThreadUtils_lockCommonMutex(void) { return TqMutex_lock(&sCommonMutex.mutex); }

void TqThreadUtils_unlockCommonMutex(void) { TqMutex_unlock(&sCommonMutex.mutex); }

void TqThreadUtils_doOnce(const void *token, void (*function)(void)) {
  TqMutexScope scope(&sCommonMutex.mutex);
  for (DoneRecord *record = sDoneList; record; record = record->next) {
    if (record->token == token) return;
  }
  sDoneList = new DoneRecord{token, sDoneList};
  function();
}

int TqThreadUtils_isCurrentThreadMainThread(void) {
  return tq::platform::currentThreadId() == sMainThread;
}

uint32_t GetMainThreadID(void) { return sMainThread; }

void tq::recordMainThread() {
  if (sMainThread != 0) TqThrowProgramError("Assertion failed: sMainThread == 0L");
  sMainThread = tq::platform::currentThreadId();
}

TqConditionLock *TqConditionLock_new(TqMutex *mutex) {
  TqConditionLock *lock = new TqConditionLock;
  lock->mutex = mutex;
  lock->valid = 1;
  return lock;
}

void TqConditionLock_delete(TqConditionLock *lock) {
  if (!lock) return;
  lock->valid = 0;
  delete lock;
}

void TqConditionLock_signal(TqConditionLock *lock) {
  if (lock && lock->valid) lock->condition.wakeOne();
}

int TqConditionLock_wait(TqConditionLock *lock, double maxTime) {
  if (!(maxTime >= 0)) TqThrowProgramError("Assertion failed: maxTime >= 0");
  if (!lock || !lock->valid) return 0;
  const uint32_t timeout = maxTime == 0 ? 0 : timeoutMilliseconds(maxTime);
  return lock->condition.wait(lock->mutex->lock, timeout) ? 1 : 0;
}
