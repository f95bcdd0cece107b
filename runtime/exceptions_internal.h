#ifndef TQ_RUNTIME_EXCEPTIONS_INTERNAL_H
#define TQ_RUNTIME_EXCEPTIONS_INTERNAL_H

#include <tqkernel/exceptions.h>
#include <tqkernel/lua_api.h>

namespace tq {

// The text of an error with the given status; for run-time and syntax errors, the global
// tostring of the value on top of L's stack. The result lives until the next call on the
// same thread.
const char *describeError(lua_State *L, int status);

// The default error handler: describes the error, tells the throw hook, throws.
void defaultErrorHandler(void *context, lua_State *L, int status);

// Its body, inline so that the core's raise point can throw without a frame of its own:
// every native frame between a throw and its catch costs the unwinder time twice.
[[noreturn]] inline void throwDescribedError(lua_State *L, int status) {
  if (status == LUA_ERRMEM) TqThrowInsufficientMemory();
  const char *text = describeError(L, status);
  TqExceptions_willThrow(L, text);
  throw TqLuaException(text, status);
}

// Tells the catch hook about a foreign exception (a std::exception, or NULL).
void notifyCatch(lua_State *L, const void *exception);

}  // namespace tq

#endif
