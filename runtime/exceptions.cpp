#include <tqkernel/exceptions.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/tq_corelib.h"
#include "runtime/exceptions_internal.h"
#include "runtime/universe_internal.h"

namespace {

TqExceptionsThrowHook sThrowHook = nullptr;
TqExceptionsCatchHook sCatchHook = nullptr;

// Built at library start so that reporting a failed allocation needs no allocation of its
// own ("out of memory" fits the string's inline buffer).
const TqLuaException sOutOfMemory("out of memory", LUA_ERRMEM);

// One buffer per thread: describing runs while an error is being thrown. Describing may
// raise errors of its own (a failing __tostring, no stack left), which are described in
// turn; past a few levels the fallback text ends the recursion.
thread_local char tDescription[2048];
thread_local int tDescribingDepth = 0;
constexpr int kMaxDescribingDepth = 4;

const char *fallbackDescription(int status) {
  return status == LUA_ERRSYNTAX ? "LuaSyntaxException" : "LuaRunException";
}

// Keeps a text up to its first zero byte, truncated to fit; false when that is empty.
bool keepDescription(const char *text) {
  const size_t length = strnlen(text, sizeof tDescription - 1);
  std::memcpy(tDescription, text, length);
  tDescription[length] = '\0';
  return length > 0;
}

// When the tostring on top of the stack is the stock one and the value at index has no
// __tostring metamethod, writes what that tostring would give and returns true. Nearly
// every error value is such, and this spares it a protected call and a new Lua string on
// every raise.
bool describeAsStockTostring(lua_State *L, int index) {
  if (lua_tocfunction(L, -1) != luaB_tostring) return false;
  if (luaL_getmetafield(L, index, "__tostring")) {
    lua_pop(L, 1);
    return false;
  }
  switch (lua_type(L, index)) {
    case LUA_TSTRING: keepDescription(lua_tostring(L, index)); break;
    case LUA_TNUMBER:
      std::snprintf(tDescription, sizeof tDescription, LUA_NUMBER_FMT, lua_tonumber(L, index));
      break;
    case LUA_TBOOLEAN: keepDescription(lua_toboolean(L, index) ? "true" : "false"); break;
    case LUA_TNIL: keepDescription("nil"); break;
    default:
      std::snprintf(tDescription, sizeof tDescription, "%s: %p", luaL_typename(L, index),
                    lua_topointer(L, index));
  }
  return true;
}

// The text of the error value on top of L's stack, through the global tostring.
const char *describeTopValue(lua_State *L, int status) {
  if (!L || lua_gettop(L) == 0 || tDescribingDepth >= kMaxDescribingDepth) {
    return fallbackDescription(status);
  }
  ++tDescribingDepth;
  struct Leave {
    ~Leave() { --tDescribingDepth; }
  } leave;
  const int top = lua_gettop(L);
  luaL_checkstack(L, 10, "exception processing");
  lua_getglobal(L, "tostring");
  bool described;
  if (describeAsStockTostring(L, top)) {
    described = tDescription[0] != '\0';
  } else {
    // A failing tostring may describe errors of its own in the buffer meanwhile.
    lua_pushvalue(L, top);
    described = !lua_isnil(L, -2) && lua_pcall(L, 1, 1, 0) == 0 &&
                lua_type(L, -1) == LUA_TSTRING && keepDescription(lua_tostring(L, -1));
  }
  lua_settop(L, top);
  return described ? tDescription : fallbackDescription(status);
}

int defaultPanicHandler(void *, lua_State *L) {
  int status = lua_status(L);
  if (status == 0) status = LUA_ERRERR;
  const char *text = tq::describeError(L, status);
  if (status != LUA_ERRMEM) TqExceptions_willThrow(L, text);
  throw TqLuaException(text, status);
}

const TqLuaExceptionHandlers sDefaultHandlers = {nullptr, tq::defaultErrorHandler,
                                                 defaultPanicHandler, nullptr};

TQ_NORETURN void raiseText(lua_State *L, const char *text) {
  lua_pushstring(L, text);
  lua_error(L);
  __builtin_unreachable();
}

// gerund: "setting" or "reading"; verb: "set" or "read".
TQ_NORETURN void raiseFieldError(lua_State *L, const char *className, const char *fieldName,
                                 const char *gerund, const char *verb) {
  if (className && fieldName) {
    lua_pushfstring(L, "%s does not support %s field %s.", className, gerund, fieldName);
  } else if (className) {
    lua_pushfstring(L, "%s does not support %s the requested field.", className, gerund);
  } else if (fieldName) {
    lua_pushfstring(L, "Could not %s field %s in the target object.", verb, fieldName);
  } else {
    lua_pushfstring(L, "Could not %s a field in the target object.", verb);
  }
  lua_error(L);
  __builtin_unreachable();
}

}  // namespace

TqLuaException::TqLuaException(const char *message, int code)
    : message_(message ? message : "(no message)"), code_(code) {}

const char *TqLuaException::what() const noexcept { return message_.c_str(); }

const char *tq::describeError(lua_State *L, int status) {
  switch (status) {
    case 0: return "";
    case LUA_ERRRUN:
    case LUA_ERRSYNTAX: return describeTopValue(L, status);
    case LUA_ERRMEM: return "There wasn't enough memory available to complete the operation.";
    case LUA_ERRERR: return "An internal logic error occurred.";
    default: return "An unidentifed error occurred.";
  }
}

void tq::defaultErrorHandler(void *, lua_State *L, int status) { throwDescribedError(L, status); }

const TqLuaExceptionHandlers &tq::defaultExceptionHandlers() { return sDefaultHandlers; }

const TqLuaExceptionHandlers &tq::handlersFor(lua_State *L) {
  TqLuaUniverse *universe = universeWord(L);
  return universe ? universe->exceptionHandlers : sDefaultHandlers;
}

void tq::notifyCatch(lua_State *L, const void *exception) {
  if (sCatchHook) sCatchHook(L, exception);
}

void TqThrowProgramError(const char *message) { throw TqLuaException(message, 0); }

void TqThrowProgramErrorWithFormat(const char *format, ...) {
  char text[2000];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  TqThrowProgramError(text);
}

void TqThrowLogicError(void) { TqThrowProgramError("An internal logic error has occurred."); }

void TqThrowInsufficientMemory(void) { throw TqLuaException(sOutOfMemory); }

void TqLua_throwProgramError(lua_State *L, const char *message) {
  if (!L) TqThrowProgramError(message);
  raiseText(L, message);
}

void TqThrowSetFieldError(lua_State *L, const char *className, const char *fieldName) {
  raiseFieldError(L, className, fieldName, "setting", "set");
}

void TqThrowGetFieldError(lua_State *L, const char *className, const char *fieldName) {
  raiseFieldError(L, className, fieldName, "reading", "read");
}

void TqThrowMissingType(lua_State *L, const char *typeName) {
  if (!typeName) raiseText(L, "No implementation available for this type.");
  lua_pushfstring(L, "No implementation available for %s.", typeName);
  lua_error(L);
  __builtin_unreachable();
}

void TqThrowUnsupportedMethod(lua_State *L, const char *methodName, ...) {
  if (!methodName) raiseText(L, "The target does not implement this method.");
  char name[512];
  va_list args;
  va_start(args, methodName);
  std::vsnprintf(name, sizeof name, methodName, args);
  va_end(args);
  lua_pushfstring(L, "The target does not implement %s.", name);
  lua_error(L);
  __builtin_unreachable();
}

void TqExceptions_setThrowHook(TqExceptionsThrowHook hook) { sThrowHook = hook; }

void TqExceptions_willThrow(lua_State *L, const char *message) {
  if (sThrowHook) sThrowHook(L, message);
}

void TqExceptions_setCatchExceptionHook(TqExceptionsCatchHook hook) { sCatchHook = hook; }
