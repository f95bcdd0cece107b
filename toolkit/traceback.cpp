// Tracebacks: one line per call level, naming functions held in upvalues of their callers.
#include <tqkernel/toolkit.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "toolkit/assert.h"

namespace {

// Shared by all threads: a traceback built on one thread makes a simultaneous one on
// another report re-entry.
std::atomic<bool> sTracebackBusy{false};

// The name of the function at the top of the stack among the upvalues of the function
// at the top - 1, or NULL.
const char *upvalueNameOf(lua_State *L) {
  for (int n = 1;; ++n) {
    const char *name = lua_getupvalue(L, -2, n);
    if (!name) return nullptr;
    const bool same = lua_rawequal(L, -1, -2);
    lua_pop(L, 1);
    if (same) return name;
  }
}

void addLevelLine(lua_State *L, luaL_Buffer *buffer, int level, lua_Debug &ar) {
  const char *kind = ar.namewhat && *ar.namewhat ? ar.namewhat : nullptr;
  const char *name = ar.name;
  lua_Debug caller;
  if (!name && lua_getstack(L, level + 1, &caller)) {
    lua_getinfo(L, "f", &caller);
    lua_getinfo(L, "f", &ar);
    if ((name = upvalueNameOf(L)) != nullptr) kind = "upval";
    lua_pop(L, 2);
  }
  char number[64];
  std::snprintf(number, sizeof number, "  %3d: %-8s ", level, kind ? kind : "");
  luaL_addstring(buffer, number);
  const char *shownName = name ? name : "[unnamed]";
  luaL_addstring(buffer, shownName);
  for (size_t width = std::strlen(shownName); width < 30; ++width) luaL_addchar(buffer, ' ');
  luaL_addstring(buffer, " - ");
  if (ar.currentline >= 1) {
    luaL_addstring(buffer, ar.source);
    std::snprintf(number, sizeof number, ":%d\n", ar.currentline);
  } else if (ar.currentpc >= 1 && ar.linedefined != -1) {
    // No line information (stripped code): place it by the function's lines and the pc.
    std::snprintf(number, sizeof number, "%d:%d+%d\n", ar.lastlinedefined, ar.linedefined,
                  ar.currentpc);
  } else {
    std::snprintf(number, sizeof number, "%s\n", ar.what);
  }
  luaL_addstring(buffer, number);
}

}  // namespace

int TqLua_pushTraceback(lua_State *L, const char *message, int, int skipLevels) {
  if (sTracebackBusy.exchange(true)) {
    lua_pushliteral(L, "(push traceback failed due to re-entry!)");
    return 1;
  }
  struct Release {
    ~Release() { sTracebackBusy = false; }
  } release;
  luaL_Buffer buffer;
  luaL_buffinit(L, &buffer);
  if (message) {
    luaL_addstring(&buffer, message);
    luaL_addchar(&buffer, '\n');
  }
  lua_Debug ar;
  for (int level = skipLevels; lua_getstack(L, level, &ar); ++level) {
    TQ_ASSERT(nullptr, lua_getinfo( L, ("Slnuc"), &ar ) != 0);
    addLevelLine(L, &buffer, level, ar);
  }
  luaL_addstring(&buffer, "---------------------------------");
  luaL_pushresult(&buffer);
  return 1;
}

void TqLua_dumpTraceback(lua_State *L, const char *message, int) {
  TqLua_dumpTracebackSkippingLevels(L, message, 0);
}

void TqLua_dumpTracebackVerbose(lua_State *L, const char *message, int reserved) {
  TqLua_dumpTraceback(L, message, reserved);
}

void TqLua_dumpTracebackSkippingLevels(lua_State *L, const char *message, int skipLevels) {
  if (message && std::strstr(message, "<TqErrorID>")) return;
  TqLua_pushTraceback(L, message, 0, skipLevels);
  TqLua_alwaysLogString(lua_tostring(L, -1));
  lua_pop(L, 1);
}

void dumpTrace(lua_State *L) { TqLua_dumpTraceback(L, "", 0); }
