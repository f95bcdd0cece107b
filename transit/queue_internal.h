// The shared core of a transit queue and the handles that hold it.
#ifndef TQ_TRANSIT_QUEUE_INTERNAL_H
#define TQ_TRANSIT_QUEUE_INTERNAL_H

#include <atomic>
#include <cstdint>

#include <tqkernel/threads.h>
#include <tqkernel/transit.h>

namespace tq {

// Shared by every handle of one queue. The lock guards first, last and the writes of
// empty; it is held only while messages are linked or unlinked.
struct QueueCore {
  int32_t canUseMoveSemantics;
  std::atomic<int32_t> empty;  // also read without the lock, as a hint
  TqMutex *lock;
  std::atomic<int32_t> referenceCount;
  std::atomic<int32_t> _closed;  // incremented by closing
  TqTransitMessage *last;
  TqTransitMessage *first;
  TqConditionLock *condition;
};

namespace queue_mark {
constexpr uint32_t kCreated = 0xABBABABE;
constexpr uint32_t kCopied = 0xABBAACDC;
constexpr uint32_t kRetained = 0xBEE6EE51;
constexpr uint32_t kMovedFrom = 0xDEADACDC;  // its core pointer is 0xABBAABB2
constexpr uint32_t kCollected = 0xDEADABBA;
constexpr uint32_t kUncounted = 0;
}  // namespace queue_mark

// A fresh core holding one reference.
QueueCore *newQueueCore(int canUseMoveSemantics);
// Takes one more reference, under the lock so that it cannot race the last release.
QueueCore *retainQueueCore(QueueCore *core);
// Gives back the handle's reference when its mark says it holds one; the last reference
// destroys the queue, reporting undelivered messages when asked. False when the mark
// holds no reference.
bool releaseQueueHandle(TqTransitQueue *queue, bool reportOrphans);
// Packs the value at index and links it in; 0 without packing when the queue is closed.
// A value that cannot be packed raises "Assertion failed: packed".
int enqueueLuaValue(lua_State *L, QueueCore *priv, int index, int canUseMoveSemantics);

}  // namespace tq

struct TqTransitQueue {
  uint32_t mark;
  tq::QueueCore *core;
};

static_assert(sizeof(TqTransitQueue) == 16, "a queue object's instance is one handle");

#endif
