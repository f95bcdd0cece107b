// The core's global hooks: the prototype hook and the trigger, the one thing another thread
// may do to a running state.
#define LUA_CORE

#include <atomic>

#include "lua.h"

#include "ldo.h"
#include "lstate.h"

#include "tq_corecalls.h"
#include "tq_corelib.h"

LUA_API void lua_setprotohook(lua_State *L, lua_ProtoHook hook) { G(L)->protohook = hook; }

LUA_API void lua_trigger(lua_State *L) {
  // Release: whatever the caller prepared for the state (a queued message) is visible to
  // the hook that takes the count.
  G(L)->triggercount.fetch_add(1, std::memory_order_release);
}

void tqcore_triggerhook(lua_State *L) {
  std::atomic<lu_int32> &count = G(L)->triggercount;
  if (count.load(std::memory_order_relaxed) == 0) return;  // the usual case: no locked exchange
  const lu_int32 taken = count.exchange(0, std::memory_order_acquire);
  if (taken != 0) luaD_callhook(L, LUA_HOOKTRIGGER, static_cast<int>(taken));
}

int tqcore_db_trigger(lua_State *L) {
  lua_trigger(L);
  return 0;
}
