#ifndef TQ_RUNTIME_EXCEPTIONS_INTERNAL_H
#define TQ_RUNTIME_EXCEPTIONS_INTERNAL_H

#include <tqkernel/lua_api.h>

namespace tq {

// The text of an error with the given status; for run-time and syntax errors, the global
// tostring of the value on top of L's stack. The result lives until the next call on the
// same thread.
const char *describeError(lua_State *L, int status);

// Tells the catch hook about a foreign exception (a std::exception, or NULL).
void notifyCatch(lua_State *L, const void *exception);

}  // namespace tq

#endif
