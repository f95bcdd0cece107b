// The Lua class TransitQueue: queue objects whose instance is one handle, their methods,
// the constructor, and the copy that lets a queue travel inside a message.
#include <tqkernel/toolkit.h>

#include "toolkit/assert.h"
#include "transit/queue_internal.h"

namespace {

using namespace tq::queue_mark;

TqTransitQueue *handleOf(void *instance) { return static_cast<TqTransitQueue *>(instance); }

int enqueue(void *instance, lua_State *L) {
  tq::QueueCore *priv = handleOf(instance)->core;
  TQ_ASSERT(L, !priv->_closed);
  const int canUseMoveSemantics =
      lua_isboolean(L, 3) ? lua_toboolean(L, 3) : priv->canUseMoveSemantics;
  tq::enqueueLuaValue(L, priv, 2, canUseMoveSemantics);
  return 0;
}

int dequeue(void *instance, lua_State *L) {
  const int wait = lua_isboolean(L, 2) ? lua_toboolean(L, 2) : 1;
  const double delay = lua_isnumber(L, 3) ? lua_tonumber(L, 3) : 0;
  return TqTransitQueue_dequeueToLuaState(L, handleOf(instance), wait, delay);
}

int close(void *instance, lua_State *) {
  handleOf(instance)->core->_closed.fetch_add(1);
  return 0;
}

// Also disposes of packed copies, without a state.
int collect(void *instance, lua_State *) {
  TqTransitQueue *queue = handleOf(instance);
  tq::releaseQueueHandle(queue, true);
  queue->mark = kCollected;
  queue->core = nullptr;
  return 0;
}

int readClosed(void *instance, lua_State *L) {
  lua_pushboolean(L, handleOf(instance)->core->_closed != 0);
  return 1;
}

// Under the source's lock, so that a copy cannot race the last release. A move passes the
// source's reference on; a copy takes one more.
void copyHandle(void *destination, void *source, size_t, int canUseMoveSemantics) {
  TqTransitQueue *to = handleOf(destination);
  TqTransitQueue *from = handleOf(source);
  tq::QueueCore *core = from->core;
  TqMutexScope scope(core->lock);
  to->core = core;
  to->mark = kCopied;
  if (canUseMoveSemantics) {
    from->mark = kMovedFrom;
    from->core = reinterpret_cast<tq::QueueCore *>(uintptr_t{0xABBAABB2});
  } else {
    core->referenceCount.fetch_add(1, std::memory_order_relaxed);
  }
}

const TqDirectObjectMethod kMethods[] = {{"enqueue", enqueue},
                                         {"dequeue", dequeue},
                                         {"close", close},
                                         {"__gc", collect},
                                         {nullptr, nullptr}};

const TqDirectObjectProperty kProperties[] = {{"closed", readClosed, nullptr},
                                              {nullptr, nullptr, nullptr}};

}  // namespace

const TqDirectObjectClass TqTransitQueue_Class = {
    nullptr, "TransitQueue", sizeof(TqTransitQueue), nullptr, nullptr, copyHandle,
    kMethods, kProperties};

int TqTransitQueue_new_L(lua_State *L) {
  const int canUseMoveSemantics = lua_isnoneornil(L, 2) ? 0 : TqLua_checkBoolean(L, 2);
  auto *result =
      static_cast<TqTransitQueue *>(TqDirectObject_checkPushAllocToLua(L, &TqTransitQueue_Class));
  TQ_ASSERT(L, result);
  result->core = tq::newQueueCore(canUseMoveSemantics);
  result->mark = kCreated;
  return 1;
}
