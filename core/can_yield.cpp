// Whether the running coroutine may yield: the core's own test in lua_yield, asked ahead.
#include <tqkernel/userdata.h>

#include "lstate.h"

int TqLuaInternal_canYield_L(lua_State *L) {
  // lua_resume records the native call depth in baseCcalls; every native call boundary
  // entered since (a metamethod, pcall, a C function calling Lua) raises nCcalls above it.
  lua_pushboolean(L, L->nCcalls <= L->baseCcalls);
  return 1;
}
