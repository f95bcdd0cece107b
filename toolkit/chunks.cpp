// The one loader of Lua source, with the caller's environment, the debugger's substitute
// text and code capture; the call shortcuts and the Lua-callable loader built on it.
#include <tqkernel/toolkit.h>

#include <cstring>

#include "runtime/universe_internal.h"
#include "toolkit/assert.h"

namespace {

constexpr char kAnonymous[] = "< anonymous >";
constexpr char kCodeChunkKey[] = "< code chunk >";
constexpr char kChunkNameKey[] = "< chunk name >";

struct Source {
  const char *bytes;
  size_t size;
};

// lua_load's reader: the whole text in one piece.
const char *readWhole(lua_State *, void *data, size_t *size) {
  Source *source = static_cast<Source *>(data);
  *size = source->size;
  source->size = 0;
  return *size ? source->bytes : nullptr;
}

int load(lua_State *L, Source source, const char *chunkName) {
  return lua_load(L, readWhole, &source, chunkName);
}

// Asks the debugger's "loadCodeFromDebugger" for a substitute of the chunk. When one
// compiles, leaves its text and then its function on top, points source at the text and
// returns true; otherwise leaves nothing.
bool loadSubstitute(lua_State *L, const char *chunkName, Source &source) {
  const int top = lua_gettop(L);
  lua_getfield(L, LUA_REGISTRYINDEX, "loadCodeFromDebugger");
  lua_pushstring(L, chunkName);
  if (lua_pcall(L, 1, 1, 0) == 0 && lua_isstring(L, -1)) {
    Source substitute{};
    substitute.bytes = lua_tolstring(L, -1, &substitute.size);
    if (load(L, substitute, chunkName) == 0) {
      source = substitute;
      return true;
    }
  }
  lua_settop(L, top);
  return false;
}

void applyEnvironment(lua_State *L, int environmentIndex) {
  TQ_ASSERT(L, !lua_iscfunction( L, -1 ));
  if (lua_isnil(L, environmentIndex)) return;
  luaL_checktype(L, environmentIndex, LUA_TTABLE);
  lua_pushvalue(L, environmentIndex);
  if (!lua_setfenv(L, -2)) TqThrowProgramError("Could not set function environment.");
}

struct Capture {
  const TqLuaCodeCapture *settings;
  Source source;
  const char *chunkName;
};

// (function, capture): wraps the function's environment in the captured-code environment
// and tells the hook.
int captureCode_L(lua_State *L) {
  const Capture &capture = *static_cast<const Capture *>(lua_touserdata(L, 2));
  if (capture.settings->capturing) {
    lua_newtable(L);
    lua_pushlstring(L, capture.source.bytes, capture.source.size);
    lua_setfield(L, 3, kCodeChunkKey);
    if (capture.chunkName) {
      lua_pushstring(L, capture.chunkName);
      lua_setfield(L, 3, kChunkNameKey);
    }
    lua_newtable(L);
    lua_getfenv(L, 1);
    lua_pushvalue(L, -1);
    lua_setfield(L, 4, "__index");
    lua_setfield(L, 4, "__newindex");
    lua_setmetatable(L, 3);
    lua_setfenv(L, 1);
  }
  if (capture.settings->hook) {
    capture.settings->hook(L, capture.source.bytes, capture.source.size, capture.chunkName);
  }
  return 0;
}

// Capture of the function on top. Protected, so that a failure here costs only the
// capture: the function stays as loaded.
void captureCode(lua_State *L, const TqLuaCodeCapture *settings, Source source,
                 const char *chunkName) {
  if (!settings || !(settings->hook || settings->capturing)) return;
  if (!lua_checkstack(L, 5)) return;
  const int top = lua_gettop(L);
  Capture capture{settings, source, chunkName};
  lua_pushcfunction(L, captureCode_L);
  lua_pushvalue(L, top);
  lua_pushlightuserdata(L, &capture);
  lua_pcall(L, 2, 0, 0);
  lua_settop(L, top);
}

// Pushes the raw entry of a Lua function's environment, returning 1; or nothing and 0.
int pushEnvironmentEntry(lua_State *L, int index, const char *key) {
  if (!lua_isfunction(L, index) || lua_iscfunction(L, index)) return 0;
  lua_getfenv(L, index);
  if (lua_isnil(L, -1)) {
    lua_pop(L, 1);
    return 0;
  }
  lua_pushstring(L, key);
  lua_rawget(L, -2);
  lua_remove(L, -2);
  if (!lua_isnil(L, -1)) return 1;
  lua_pop(L, 1);
  return 0;
}

}  // namespace

TqLuaCodeCaptureHook TqLua_setCodeCaptureHook(TqLuaCodeCapture *capture,
                                              TqLuaCodeCaptureHook hook) {
  if (!capture) TqThrowProgramError("Pointer was null: capture");
  const TqLuaCodeCaptureHook previous = capture->hook;
  capture->hook = hook;
  return previous;
}

int TqLua_setCodeCapturing(TqLuaCodeCapture *capture, int capturing) {
  if (!capture) TqThrowProgramError("Pointer was null: capture");
  const int previous = capture->capturing;
  capture->capturing = capturing;
  return previous;
}

void TqLuaUniverse_setCodeCapture(TqLuaUniverse *universe, TqLuaCodeCapture *capture) {
  universe->codeCapture = capture;
}

int TqLua_loadChunkFromBuffer(lua_State *L, const char *source, size_t size,
                              const char *chunkName) {
  const int environmentIndex = lua_gettop(L);
  TQ_ASSERT(L, 0 < environmentIndex);
  const TqLuaUniverse *universe = tq::universeWord(L);
  const bool debugged = universe && universe->debugger;
  Source loaded{source, size};
  int status = 0;
  if (!debugged || !chunkName || !loadSubstitute(L, chunkName, loaded)) {
    status = load(L, loaded, chunkName ? chunkName : kAnonymous);
  }
  if (status == 0) {
    applyEnvironment(L, environmentIndex);
    if (debugged) captureCode(L, universe->codeCapture, loaded, chunkName);
  } else {
    TqLua_dprintf(L, "TqLua_loadChunkFromBuffer( chunkName = \"%s\" ) failed with error %s",
                  chunkName, lua_tostring(L, -1));
  }
  lua_replace(L, environmentIndex);
  lua_settop(L, environmentIndex);
  return status;
}

int TqLua_loadChunkFromString(lua_State *L, const char *source, const char *chunkName) {
  return TqLua_loadChunkFromBuffer(L, source, std::strlen(source), chunkName);
}

int TqLua_pcallChunkFromBuffer(lua_State *L, const char *source, size_t size,
                               const char *chunkName) {
  const int status = TqLua_loadChunkFromBuffer(L, source, size, chunkName);
  if (status != 0) return status;
  return lua_pcall(L, 0, LUA_MULTRET, 0);
}

int TqLua_pcallChunkFromString(lua_State *L, const char *source, const char *chunkName) {
  return TqLua_pcallChunkFromBuffer(L, source, std::strlen(source), chunkName);
}

int TqLua_callChunkFromBuffer(lua_State *L, const char *source, size_t size,
                              const char *chunkName) {
  const int heightBefore = lua_gettop(L);
  if (TqLua_pcallChunkFromBuffer(L, source, size, chunkName) != 0) lua_error(L);
  return lua_gettop(L) - heightBefore + 1;
}

int TqLua_callChunkFromString(lua_State *L, const char *source, const char *chunkName) {
  return TqLua_callChunkFromBuffer(L, source, std::strlen(source), chunkName);
}

int TqLua_loadAndCaptureChunk_L(lua_State *L) {
  size_t size = 0;
  const char *source = luaL_checklstring(L, 1, &size);
  const char *chunkName = luaL_checkstring(L, 2);
  if (lua_gettop(L) == 2) lua_pushvalue(L, LUA_GLOBALSINDEX);
  if (TqLua_loadChunkFromBuffer(L, source, size, chunkName) != 0) lua_error(L);
  return 1;
}

int TqLua_getFunctionChunkName(lua_State *L, int index) {
  return pushEnvironmentEntry(L, index, kChunkNameKey);
}

int TqLua_getFunctionCodeChunk(lua_State *L, int index) {
  return pushEnvironmentEntry(L, index, kCodeChunkKey);
}
