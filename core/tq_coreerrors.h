// How the patched Lua core raises and catches errors: included by luaconf.h for the core's
// own files only.
#ifndef TQ_COREERRORS_H
#define TQ_COREERRORS_H

#include <exception>

#include <tqkernel/exceptions.h>

#include "runtime/exceptions_internal.h"
#include "runtime/universe_internal.h"

[[noreturn]] void tqcore_abort(const char *reason);

// Hands the error to the state's universe's error handler, which throws. Inline, and the
// default handler's throw inline too: every native frame between the throw and the
// protected call costs the unwinder time on each Lua error.
[[noreturn]] inline void tqcore_throw(lua_State *L, int status) {
  const TqLuaExceptionHandlers &handlers = tq::handlersFor(L);
  if (handlers.errorHandler == tq::defaultErrorHandler) tq::throwDescribedError(L, status);
  if (!handlers.errorHandler) tqcore_abort("Lua error raised with no error handler installed");
  handlers.errorHandler(handlers.context, L, status);
  tqcore_abort("Lua error handler returned instead of throwing");
}

// Map an exception caught at a protected boundary to a Lua status, pushing the error
// value where the exception did not leave one on the stack.
int tqcore_caughtLuaException(lua_State *L, const TqLuaException &e) noexcept;
int tqcore_caughtStdException(lua_State *L, const std::exception &e) noexcept;
int tqcore_caughtUnknownException(lua_State *L) noexcept;

#define TQCORE_CATCH(L, status)                                                             \
  catch (const TqLuaException &tq_e) { status = tqcore_caughtLuaException(L, tq_e); }       \
  catch (const std::exception &tq_e) { status = tqcore_caughtStdException(L, tq_e); }       \
  catch (...) { status = tqcore_caughtUnknownException(L); }

#endif
