#include <tqkernel/toolkit.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "runtime/platform/platform.h"

namespace {

void writeToConsole(const char *piece) {
  std::printf("%s", piece);
  std::fflush(stdout);
}

// Process-wide and lock-free: lines of different threads may interleave at the level of
// their pieces, and the byte count is advisory.
std::atomic<TqLuaLogOutput> sOutput{tq::platform::writeDebugOutput};
std::atomic<uint64_t> sLogSizeLimit{0};
std::atomic<uint64_t> sBytesLogged{0};

}  // namespace

TqLuaLogOutput TqLua_setLogOutput(TqLuaLogOutput output) {
  return sOutput.exchange(output ? output : tq::platform::writeDebugOutput);
}

int TqLua_setLogToConsole(int toConsole) {
  TqLua_setLogOutput(toConsole ? writeToConsole : nullptr);
  return 0;
}

void TqLua_setLogSizeLimit(uint64_t limit) { sLogSizeLimit = limit; }

void TqLua_alwaysLogString(const char *text) {
  const uint64_t limit = sLogSizeLimit.load(std::memory_order_relaxed);
  if (limit != 0 && sBytesLogged.load(std::memory_order_relaxed) >= limit) return;
  const TqLuaLogOutput output = sOutput.load(std::memory_order_relaxed);
  output("L: ");
  if (text) {
    output(text);
    sBytesLogged.fetch_add(std::strlen(text), std::memory_order_relaxed);
  }
  output("\r\n");
}

void TqLua_debugLogString(const char *) {}

void TqLua_printf(lua_State *L, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const char *text = lua_pushvfstring(L, format, args);
  va_end(args);
  TqLua_alwaysLogString(text);
  lua_pop(L, 1);
}

void TqLua_dprintf(lua_State *, const char *, ...) {}
