#ifndef TQ_RUNTIME_THREADS_INTERNAL_H
#define TQ_RUNTIME_THREADS_INTERNAL_H

namespace tq {

// Records the calling thread as the main thread; a second call is an assertion failure.
void recordMainThread();

}  // namespace tq

#endif
