// Transit queue cores and handles: creation, references and the last release.
#include <cstdio>
#include <cstdlib>

#include "transit/queue_internal.h"

namespace {

using namespace tq::queue_mark;

bool holdsReference(uint32_t mark) {
  return mark == kRetained || mark == kCreated || mark == kCopied;
}

// Undelivered messages are freed as memory only: a direct object inside one is not
// disposed of.
void freeMessages(tq::QueueCore *core, bool reportOrphans) {
  if (reportOrphans && core->first) std::fputs("Objects orphaned in transit queue\n", stderr);
  for (TqTransitMessage *message = core->first; message;) {
    TqTransitMessage *next = message->next;
    if (reportOrphans) {
      TqTransitValue_dump(TqTransitMessage_packedValue(message));
      std::fputc('\n', stderr);
    }
    TqTransitMessage_free(message);
    message = next;
  }
}

// Called with the lock held by the last reference.
void destroyQueueCore(tq::QueueCore *core, bool reportOrphans) {
  freeMessages(core, reportOrphans);
  TqConditionLock_delete(core->condition);
  TqMutex_unlock(core->lock);
  TqMutex_delete(core->lock);
  delete core;
}

TqTransitQueue *newHandle(uint32_t mark, tq::QueueCore *core) {
  auto *queue = static_cast<TqTransitQueue *>(std::malloc(sizeof(TqTransitQueue)));
  if (queue) *queue = TqTransitQueue{mark, core};
  return queue;
}

void releaseNativeHandle(TqTransitQueue *queue, bool reportOrphans) {
  if (!queue) return;
  // A moved-from native handle holds no reference, but its memory is still the caller's.
  if (tq::releaseQueueHandle(queue, reportOrphans) || queue->mark == kMovedFrom) std::free(queue);
}

}  // namespace

tq::QueueCore *tq::newQueueCore(int canUseMoveSemantics) {
  auto *core = new QueueCore;
  core->canUseMoveSemantics = canUseMoveSemantics;
  core->empty.store(1, std::memory_order_relaxed);
  core->lock = TqMutex_new();
  core->referenceCount.store(1, std::memory_order_relaxed);
  core->_closed.store(0, std::memory_order_relaxed);
  core->last = nullptr;
  core->first = nullptr;
  core->condition = TqConditionLock_new(core->lock);
  return core;
}

tq::QueueCore *tq::retainQueueCore(QueueCore *core) {
  TqMutexScope scope(core->lock);
  core->referenceCount.fetch_add(1, std::memory_order_relaxed);
  return core;
}

bool tq::releaseQueueHandle(TqTransitQueue *queue, bool reportOrphans) {
  if (!holdsReference(queue->mark)) return false;
  QueueCore *core = queue->core;
  TqMutex_lock(core->lock);
  if (core->referenceCount.fetch_sub(1, std::memory_order_acq_rel) > 1) {
    TqMutex_unlock(core->lock);
  } else {
    destroyQueueCore(core, reportOrphans);
  }
  return true;
}

TqTransitQueue *TqTransitQueue_createQueue(int canUseMoveSemantics) {
  TqTransitQueue *queue = newHandle(kCreated, nullptr);
  if (queue) queue->core = tq::newQueueCore(canUseMoveSemantics);
  return queue;
}

TqTransitQueue *TqTransitQueue_checkRetainFromLua(lua_State *L, int index) {
  auto *object =
      static_cast<TqTransitQueue *>(TqDirectObject_checkFromLua(L, index, &TqTransitQueue_Class));
  TqTransitQueue *queue = newHandle(kRetained, nullptr);
  if (queue) queue->core = tq::retainQueueCore(object->core);
  return queue;
}

int TqTransitQueue_pushQueue_L(lua_State *L, TqTransitQueue *queue) {
  auto *object =
      static_cast<TqTransitQueue *>(TqDirectObject_checkPushAllocToLua(L, &TqTransitQueue_Class));
  // This reference is never given back: the queue outlives every object made this way.
  object->mark = kUncounted;
  object->core = tq::retainQueueCore(queue->core);
  return 1;
}

void TqTransitQueue_release(TqTransitQueue *queue) { releaseNativeHandle(queue, true); }

void TqTransitQueue_releaseSilent(TqTransitQueue *queue) { releaseNativeHandle(queue, false); }

int TqTransitQueue_isEmpty(TqTransitQueue *queue) {
  return queue->core->empty.load(std::memory_order_relaxed);
}
