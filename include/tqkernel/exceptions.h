/* Exceptions and error hooks.
 *
 * Lua errors travel as TqLuaException objects instead of long jumps. The Lua core raises
 * an error by calling the universe's error handler (inside a protected call) or panic
 * handler (outside any), and every protected entry of the core (lua_pcall, lua_cpcall,
 * lua_resume, lua_load, ...) maps what it catches back to a Lua status:
 *   TqLuaException with code 2..5   -> that status (the error value is on the stack)
 *   TqLuaException with code 0      -> 2, the message pushed as the error value
 *   other std::exception            -> 2, what() pushed ("(std::exception with NULL message?!)")
 *   anything else                   -> 2, "(unknown C++ exception)" pushed
 * The catch hook is told about the last two kinds first. */
#ifndef TQKERNEL_EXCEPTIONS_H
#define TQKERNEL_EXCEPTIONS_H

#include <tqkernel/export.h>
#include <tqkernel/lua_api.h>

TQ_BEGIN_DECLS

/* Called by a debugger's handlers before they pass an error on. */
typedef void (*TqLuaErrorNotifier)(lua_State *L, int status);
/* Raises the error as a native exception; never returns. */
typedef void (*TqLuaErrorHandler)(void *context, lua_State *L, int status);
/* Raises an unprotected error as a native exception; a return ends the process. */
typedef int (*TqLuaPanicHandler)(void *context, lua_State *L);

/* The four words of a universe through which its errors leave Lua. The default set is
 * {undefined, default error handler, default panic handler, NULL}; the notifier of the
 * default set is never called. */
typedef struct TqLuaExceptionHandlers {
  TqLuaErrorNotifier notifier;
  TqLuaErrorHandler errorHandler;
  TqLuaPanicHandler panicHandler;
  void *context;
} TqLuaExceptionHandlers;

/* Told before an error is thrown: (L, description). */
typedef void (*TqExceptionsThrowHook)(lua_State *L, const char *message);
/* Told when a foreign native exception reaches a protected call: (L, the
 * std::exception, or NULL for anything else). */
typedef void (*TqExceptionsCatchHook)(lua_State *L, const void *exception);

/* Program errors: TqLuaException with code 0. A NULL message reads "(no message)". */
TQ_API TQ_NORETURN void TqThrowProgramError(const char *message);
/* Formats into at most 2000 characters, then as TqThrowProgramError. */
TQ_API TQ_NORETURN void TqThrowProgramErrorWithFormat(const char *format, ...) TQ_PRINTF(1, 2);
/* "An internal logic error has occurred." */
TQ_API TQ_NORETURN void TqThrowLogicError(void);
/* A copy of the static exception "out of memory", code 4. */
TQ_API TQ_NORETURN void TqThrowInsufficientMemory(void);
/* With L NULL as TqThrowProgramError; else raises the message as a Lua error. */
TQ_API TQ_NORETURN void TqLua_throwProgramError(lua_State *L, const char *message);

/* Lua errors about fields, types and methods; className, fieldName, typeName and
 * methodName may each be NULL, which selects a more general text. The error value is
 * the text itself, with no position prefix. */
TQ_API TQ_NORETURN void TqThrowSetFieldError(lua_State *L, const char *className, const char *fieldName);
TQ_API TQ_NORETURN void TqThrowGetFieldError(lua_State *L, const char *className, const char *fieldName);
TQ_API TQ_NORETURN void TqThrowMissingType(lua_State *L, const char *typeName);
/* methodName is a printf format for the optional further arguments. */
TQ_API TQ_NORETURN void TqThrowUnsupportedMethod(lua_State *L, const char *methodName, ...);

/* Process-wide hooks; NULL clears them. */
TQ_API void TqExceptions_setThrowHook(TqExceptionsThrowHook hook);
TQ_API void TqExceptions_willThrow(lua_State *L, const char *message);
TQ_API void TqExceptions_setCatchExceptionHook(TqExceptionsCatchHook hook);

TQ_END_DECLS

#if defined(__cplusplus)
#include <exception>
#include <string>

/* The library's one exception kind: an owned message and a code (0 for a program error,
 * otherwise the Lua status 2..5). */
class TQ_API TqLuaException : public std::exception {
public:
  TqLuaException(const char *message, int code);
  const char *what() const noexcept override;
  const char *message() const noexcept { return message_.c_str(); }
  int code() const noexcept { return code_; }

private:
  std::string message_;
  int code_;
};
#endif

#endif
