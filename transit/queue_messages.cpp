// Linking messages into a transit queue and taking them out. The lock is held only for
// linking and unlinking: values are packed before and unpacked after.
#include <cstdint>
#include <cstdlib>

#include "toolkit/assert.h"
#include "transit/packed_format.h"
#include "transit/queue_internal.h"

struct TqTransitQueueString {
  TqTransitMessage *message;
  const char *bytes;
  size_t length;
};

namespace {

using tq::QueueCore;

void linkMessage(QueueCore *core, TqTransitMessage *message) {
  TqMutexScope scope(core->lock);
  if (core->last) {
    core->last->next = message;
  } else {
    core->first = message;
  }
  core->last = message;
  core->empty.store(0, std::memory_order_relaxed);
  TqConditionLock_signal(core->condition);
}

int32_t kindOf(TqTransitMessage *message) {
  return tq::packed::kind(static_cast<unsigned char *>(TqTransitMessage_packedValue(message)));
}

// The first message, unlinked, or null when none came. With wait, an empty queue is slept
// on for the full delay at each round (0: without limit). With stringsOnly, a first
// message of another kind aborts the process.
TqTransitMessage *takeMessage(QueueCore *core, bool wait, double delay, bool stringsOnly) {
  TqMutexScope scope(core->lock);
  if (!wait && core->empty.load(std::memory_order_relaxed)) return nullptr;
  while (core->empty.load(std::memory_order_relaxed)) {
    if (TqConditionLock_wait(core->condition, delay)) return nullptr;
  }
  TqTransitMessage *message = core->first;
  if (stringsOnly && kindOf(message) != TqTransitKind_string) {
    TqMutex_unlock(core->lock);
    tq::packed::abortTransit("Transit queue: the message to take as a string holds another kind\n");
  }
  if (message == core->last) {
    if (message->next) {
      TqMutex_unlock(core->lock);
      tq::packed::abortTransit("Transit queue corrupt: its last message has a successor\n");
    }
    core->first = nullptr;
    core->last = nullptr;
    core->empty.store(1, std::memory_order_relaxed);
  } else {
    core->first = message->next;
  }
  return message;
}

}  // namespace

int tq::enqueueLuaValue(lua_State *L, QueueCore *priv, int index, int canUseMoveSemantics) {
  if (priv->_closed) return 0;
  TqTransitMessage *packed = TqTransitMessage_fromLuaValue(L, index, canUseMoveSemantics);
  TQ_ASSERT(L, packed);
  linkMessage(priv, packed);
  return 1;
}

int TqTransitQueue_enqueueToQueue(lua_State *L, TqTransitQueue *queue, int index) {
  return tq::enqueueLuaValue(L, queue->core, index, queue->core->canUseMoveSemantics);
}

void TqTransitQueue_enqueueAndReleaseCargo(TqTransitQueue *queue, TqTransitCargo *cargo) {
  // Cargo goes in whether the queue is closed or not.
  if (TqTransitMessage *message = TqTransitMessage_fromCargo(cargo)) {
    linkMessage(queue->core, message);
  } else {
    TqTransitCargo_releaseCargo(cargo);
  }
}

int TqTransitQueue_dequeueToLuaState(lua_State *L, TqTransitQueue *queue, int wait, double delay) {
  TQ_ASSERT(L, delay >= 0);
  tq::packed::MessagePtr message(takeMessage(queue->core, wait, delay, false));
  if (!message) return 0;
  TqTransitValue_unpack(L, TqTransitMessage_packedValue(message.get()));
  return 1;
}

TqTransitQueueString *TqTransitQueue_dequeueCopyOfString(TqTransitQueue *queue, int wait,
                                                         double delay) {
  TqTransitMessage *message = takeMessage(queue->core, wait, delay, true);
  if (!message) return nullptr;
  auto *packed = static_cast<unsigned char *>(TqTransitMessage_packedValue(message));
  auto *string = static_cast<TqTransitQueueString *>(std::malloc(sizeof(TqTransitQueueString)));
  string->message = message;
  string->bytes = reinterpret_cast<const char *>(packed + tq::packed::kContentOffset);
  string->length = tq::packed::read<uint64_t>(packed + tq::packed::kPayloadOffset);
  return string;
}

const char *TqTransitQueue_stringToCString(TqTransitQueueString *string, size_t *length) {
  *length = string->length;
  return string->bytes;
}

void TqTransitQueue_releaseString(TqTransitQueueString *string) {
  TqTransitMessage_free(string->message);
  constexpr uintptr_t kReleased = 0xdead0b0e;
  string->message = reinterpret_cast<TqTransitMessage *>(kReleased);
  string->bytes = reinterpret_cast<const char *>(kReleased);
  string->length = kReleased;
  std::free(string);
}
