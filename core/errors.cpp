// The Lua core's raise and catch points, as the patched luaconf.h routes them.
#define LUA_CORE

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lua.h"

#include "ldo.h"
#include "lobject.h"
#include "lstate.h"
#include "lstring.h"
#include "tq_coreerrors.h"

#include "runtime/exceptions_internal.h"
#include "runtime/universe_internal.h"

namespace {

// Pushes an error text; if even that fails, the error becomes a memory error, whose
// message luaD_seterrorobj supplies without allocating.
int pushErrorText(lua_State *L, const char *text) noexcept {
  try {
    setsvalue2s(L, L->top, luaS_new(L, text));
    L->top++;  // the stack keeps EXTRA_STACK free slots beyond its last one
    return LUA_ERRRUN;
  } catch (...) {
    return LUA_ERRMEM;
  }
}

}  // namespace

void tqcore_abort(const char *reason) {
  std::fprintf(stderr, "%s\n", reason);
  std::abort();
}

int tqcore_caughtLuaException(lua_State *L, const TqLuaException &e) noexcept {
  if (e.code() != 0) return e.code();
  return pushErrorText(L, e.message());
}

int tqcore_caughtStdException(lua_State *L, const std::exception &e) noexcept {
  tq::notifyCatch(L, &e);
  const char *text = e.what();
  return pushErrorText(L, text ? text : "(std::exception with NULL message?!)");
}

int tqcore_caughtUnknownException(lua_State *L) noexcept {
  tq::notifyCatch(L, nullptr);
  return pushErrorText(L, "(unknown C++ exception)");
}
