/* Threads and locks: a recursive mutex, a scoped lock, the common mutex, a condition lock
 * with timed waits, a once-only runner and the record of the main thread. */
#ifndef TQKERNEL_THREADS_H
#define TQKERNEL_THREADS_H

#include <stdint.h>

#include <tqkernel/export.h>

TQ_BEGIN_DECLS

typedef struct TqMutex TqMutex;
typedef struct TqConditionLock TqConditionLock;

/* A recursive mutex; out of memory raises the standard exception. */
TQ_API TqMutex *TqMutex_new(void);
/* NULL allowed. */
TQ_API void TqMutex_delete(TqMutex *mutex);
/* NULL or deleted: nothing happens. Returns the mutex. */
TQ_API TqMutex *TqMutex_lock(TqMutex *mutex);
TQ_API void TqMutex_unlock(TqMutex *mutex);

/* The process-wide recursive mutex for short global sections. */
TQ_API TqMutex *TqThreadUtils_lockCommonMutex(void);
TQ_API void TqThreadUtils_unlockCommonMutex(void);
/* Runs function once per token per process, under the common mutex. The token is
 * recorded before the call: a nested call with the same token returns at once, and a
 * function that fails by exception is never run again. */
TQ_API void TqThreadUtils_doOnce(const void *token, void (*function)(void));
TQ_API int TqThreadUtils_isCurrentThreadMainThread(void);
/* The id of the thread that ran KrInit; 0 before. */
TQ_API uint32_t GetMainThreadID(void);

/* A condition variable whose waiters hold mutex (not owned). */
TQ_API TqConditionLock *TqConditionLock_new(TqMutex *mutex);
TQ_API void TqConditionLock_delete(TqConditionLock *lock);
TQ_API void TqConditionLock_signal(TqConditionLock *lock);
/* Waits at most maxTime seconds; 0 waits for ever (it is not a poll). A wait shorter than
 * a millisecond waits one. Returns 1 on time-out, else 0 (also at once for a deleted
 * lock). maxTime must be >= 0: "Assertion failed: maxTime >= 0". */
TQ_API int TqConditionLock_wait(TqConditionLock *lock, double maxTime);

TQ_END_DECLS

#if defined(__cplusplus)
/* Locks on construction, unlocks on destruction. Assignment copies the pointer only. */
class TQ_API TqMutexScope {
public:
  explicit TqMutexScope(TqMutex *mutex);
  ~TqMutexScope();
  TqMutexScope &operator=(const TqMutexScope &other);
  TqMutexScope(const TqMutexScope &) = delete;

private:
  TqMutex *mutex_;
};
#endif

#endif
