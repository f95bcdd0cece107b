#include <tqkernel/exceptions.h>
#include <tqkernel/toolkit.h>

#include <atomic>
#include <cstring>

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
  char line[512];
  int length = snprintf(line, sizeof line, "  %3d: %-8s %-30s - ", level, kind ? kind : "",
                        name ? name : "[unnamed]");
  if (ar.currentline >= 1) {
    snprintf(line + length, sizeof line - length, "%s:%d\n", ar.source, ar.currentline);
  } else if (ar.currentpc >= 1 && ar.linedefined != -1) {
    // No line information (stripped code): place it by the function's lines and the pc.
    snprintf(line + length, sizeof line - length, "%d:%d+%d\n", ar.lastlinedefined,
             ar.linedefined, ar.currentpc);
  } else {
    snprintf(line + length, sizeof line - length, "%s\n", ar.what);
  }
  luaL_addstring(buffer, line);
}

}  // namespace

void TqLua_pushTraceback(lua_State *L, const char *message, int, int skipLevels) {
  if (sTracebackBusy.exchange(true)) {
    lua_pushliteral(L, "(push traceback failed due to re-entry!)");
    return;
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
    if (lua_getinfo(L, "Slnuc", &ar) == 0) {
      TqThrowProgramError("Assertion failed: lua_getinfo( L, (\"Slnuc\"), &ar ) != 0");
    }
    addLevelLine(L, &buffer, level, ar);
  }
  luaL_addstring(&buffer, "---------------------------------");
  luaL_pushresult(&buffer);
}

void TqLua_dumpTraceback(lua_State *L, const char *message, int reserved) {
  if (message && std::strstr(message, "<TqErrorID>")) return;
  TqLua_pushTraceback(L, message, reserved, 0);
  TqLua_alwaysLogString(lua_tostring(L, -1));
  lua_pop(L, 1);
}
