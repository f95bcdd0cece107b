#include <tqkernel/exceptions.h>
#include <tqkernel/threads.h>
#include <tqkernel/toolkit.h>
#include <tqkernel/universe.h>

#include <cstdio>
#include <cstdlib>
#include <new>

#include "runtime/setup.h"
#include "runtime/threads_internal.h"
#include "runtime/universe_internal.h"

namespace {

TqLuaUniverse *sMainLuaUniverse = nullptr;
bool sMainLuaUniverseClosing = false;
bool sMainLuaUniverseClosed = false;
bool sCreatingMainUniverse = false;

void *allocate(void *, void *block, size_t, size_t size) {
  if (size == 0) {
    std::free(block);
    return nullptr;
  }
  return std::realloc(block, size);
}

int panicDispatcher(lua_State *L) {
  const TqLuaExceptionHandlers &handlers = tq::handlersFor(L);
  if (!handlers.panicHandler) return -1;
  return handlers.panicHandler(handlers.context, L);
}

// Collector tuning of every state the library makes: a pause of at most 150 and a step
// multiplier 10% above Lua's.
void tuneCollector(lua_State *L) {
  const int pause = lua_gc(L, LUA_GCSETPAUSE, 150);
  if (pause < 150) lua_gc(L, LUA_GCSETPAUSE, pause);
  const int stepmul = lua_gc(L, LUA_GCSETSTEPMUL, 0);
  lua_gc(L, LUA_GCSETSTEPMUL, static_cast<int>(stepmul * 1.1));
}

// Makes L the library's: its universe word, collector tuning and panic dispatcher.
lua_State *adoptLuaState(lua_State *L, TqLuaUniverse *universe) {
  tq::universeWord(L) = universe;
  tuneCollector(L);
  lua_atpanic(L, panicDispatcher);
  return L;
}

lua_State *newLuaState(TqLuaUniverse *universe) {
  lua_State *L = lua_newstate(allocate, nullptr);
  if (!L) TqThrowInsufficientMemory();
  return adoptLuaState(L, universe);
}

int openStandardLibraries(lua_State *L) {
  luaL_openlibs(L);
  return 0;
}

// Attaches the debugger to a debugged universe's states; nothing to do without one.
int debuggerSupport(lua_State *) { return 0; }

void registerBuiltInSetupProcs() {
  if (tq::sCreatedAnyUniverses) TqThrowProgramError("Assertion failed: !sCreatedAnyUniverses");
  tq::addSetupProc(tq::SetupList::kernel, -1000, "Lua standard libraries", openStandardLibraries,
                   TqLuaSetupProc_mainState);
  tq::addSetupProc(tq::SetupList::application, -900, "Debugger Support", debuggerSupport,
                   TqLuaSetupProc_mainState);
  tq::recordMainThread();
}

TqLuaUniverse *createUniverse(lua_State *existing, void *applicationData, void *debugger,
                              bool isMain, const char *name, bool kernelOnly) {
  tq::sCreatedAnyUniverses = true;
  TqLuaUniverse *universe = new (std::nothrow) TqLuaUniverse();
  if (!universe) TqThrowInsufficientMemory();
  universe->debugger = debugger;
  universe->isMain = isMain;
  universe->kernelOnly = kernelOnly;
  universe->applicationData = applicationData;
  // The handlers come first: anything below may raise through them.
  universe->exceptionHandlers = tq::defaultExceptionHandlers();
  try {
    lua_State *L = existing ? adoptLuaState(existing, universe) : newLuaState(universe);
    universe->luaState = L;
    lua_pushstring(L, name);
    lua_setfield(L, LUA_REGISTRYINDEX, "universeName");
    tq::runSetupProcs(L, TqLuaSetupProc_mainState, universe);
  } catch (...) {
    TqLuaUniverse_close(universe);
    return nullptr;
  }
  return universe;
}

void callGlobalIfFunction(lua_State *L, const char *name, bool isProtected) {
  lua_getglobal(L, name);
  if (!lua_isfunction(L, -1)) {
    lua_pop(L, 1);
  } else if (isProtected) {
    if (lua_pcall(L, 0, 0, 0) != 0) lua_pop(L, 1);
  } else {
    lua_call(L, 0, 0);
  }
}

}  // namespace

void KrInit(void) {
  static const char sInitToken = 0;
  TqThreadUtils_doOnce(&sInitToken, registerBuiltInSetupProcs);
}

TqLuaUniverse *TqLuaUniverse_createMainUniverse(void *debugger) {
  if (sMainLuaUniverse || sMainLuaUniverseClosed) {
    TqThrowProgramError("Assertion failed: !sMainLuaUniverse && !sMainLuaUniverseClosed");
  }
  if (sCreatingMainUniverse) TqThrowProgramError("recursive attempt to create main universe");
  sCreatingMainUniverse = true;
  sMainLuaUniverse = createUniverse(nullptr, nullptr, debugger, true, "main", false);
  if (!sMainLuaUniverse) TqThrowProgramError("Pointer was null: sMainLuaUniverse");
  sCreatingMainUniverse = false;
  return sMainLuaUniverse;
}

TqLuaUniverse *TqLuaUniverse_open(void *debugger, const char *name) {
  return createUniverse(nullptr, nullptr, debugger, false, name, false);
}

TqLuaUniverse *TqLuaUniverse_attachToLuaState(lua_State *L, void *applicationData,
                                              void *debugger, const char *name) {
  return createUniverse(L, applicationData, debugger, false, name, false);
}

int TqLuaUniverse_close(TqLuaUniverse *universe) {
  if (!universe) return 0;
  if (lua_State *L = universe->luaState) {
    lua_settop(L, 0);
    callGlobalIfFunction(L, "TqDebugger.shutdown", false);
    callGlobalIfFunction(L, "TqLuaCoverage.dumpCoverage", true);
    if (universe->isMain) sMainLuaUniverseClosing = true;
    lua_close(L);
    if (universe->isMain) sMainLuaUniverseClosed = true;
  }
  TqLuaInternalProtos_deleteProtos(universe->protos);
  delete universe;
  return 0;
}

TqLuaUniverse *TqLuaUniverse_getMain(void) { return sMainLuaUniverse; }

lua_State *TqLuaUniverse_getLuaState(TqLuaUniverse *universe) {
  return universe ? universe->luaState : nullptr;
}
int TqLuaUniverse_isMain(TqLuaUniverse *universe) { return universe && universe->isMain; }
int TqLuaUniverse_mainClosing(void) { return sMainLuaUniverseClosing; }
int TqLuaUniverse_mainClosed(void) { return sMainLuaUniverseClosed; }

void *TqLuaUniverse_getApplicationData(TqLuaUniverse *universe) {
  return universe ? universe->applicationData : nullptr;
}

void *TqLuaUniverse_getDebugger(TqLuaUniverse *universe) {
  return universe ? universe->debugger : nullptr;
}

void TqLuaUniverse_setProtos(TqLuaUniverse *universe, TqLuaInternalProtos *protos) {
  universe->protos = protos;
}

TqLuaInternalProtos *TqLuaUniverse_getProtos(TqLuaUniverse *universe) { return universe->protos; }

void TqLuaUniverse_setExceptionHandlers(TqLuaUniverse *universe,
                                        const TqLuaExceptionHandlers *handlers) {
  universe->exceptionHandlers = *handlers;
}

TqLuaExceptionHandlers TqLuaUniverse_getExceptionHandlers(TqLuaUniverse *universe) {
  return universe->exceptionHandlers;
}

void TqLuaUniverse_setConfigurationHandler(TqLuaUniverse *universe,
                                           TqLuaConfigurationHandler handler) {
  universe->configurationHandler = handler;
}

void *TqLuaUniverse_getConfiguration(lua_State *L, ...) {
  TqLuaUniverse *universe = tq::universeWord(L);
  if (!universe || !universe->configurationHandler) return nullptr;
  va_list arguments;
  va_start(arguments, L);
  void *result = universe->configurationHandler(L, arguments);
  va_end(arguments);
  return result;
}

void TqLuaUniverse_setDebugHook(TqLuaUniverse *universe, TqLuaDebugHook hook) {
  universe->debugHook = hook;
  if (hook) hook(universe->luaState);
}

lua_State *TqLuaState_open(TqLuaUniverse *universe) {
  if (!universe) TqThrowProgramError("Assertion failed: universe");
  lua_State *main = universe->luaState;
  if (!main) TqThrowProgramError("Assertion failed: L");
  lua_State *thread = lua_newthread(main);
  lua_pushlightuserdata(main, thread);
  lua_insert(main, -2);
  lua_rawset(main, LUA_REGISTRYINDEX);
  try {
    tq::runSetupProcs(thread, TqLuaSetupProc_thread, universe);
    if (universe->debugger && universe->debugHook) universe->debugHook(thread);
  } catch (...) {
    TqLuaState_close(thread);
    return nullptr;
  }
  return thread;
}

void TqLuaState_close(lua_State *L) {
  if (!L) TqThrowProgramError("Assertion failed: L");
  TqLuaUniverse *universe = tq::universeWord(L);
  if (!universe) return;
  lua_State *main = universe->luaState;
  lua_pushlightuserdata(main, L);
  lua_pushnil(main);
  lua_rawset(main, LUA_REGISTRYINDEX);
}

TqLuaUniverse *TqLuaState_getUniverse(lua_State *L) { return tq::universeWord(L); }

int TqLuaState_isMainUniverse(lua_State *L) {
  TqLuaUniverse *universe = tq::universeWord(L);
  return universe && universe->isMain;
}

void TqLuaState_checkMainUniverse(lua_State *L) {
  if (TqLuaState_isMainUniverse(L)) return;
  std::fprintf(stderr, "TqLuaState_checkMainUniverse failed: %p -> %p\n", static_cast<void *>(L),
               static_cast<void *>(tq::universeWord(L)));
  TqLua_dumpTraceback(L, "Not operating in main universe.", 0);
  TqThrowProgramError("Not operating in main universe.");
}

lua_State *TqRawLuaState_open(void) { return newLuaState(nullptr); }

void TqRawLuaState_close(lua_State *L) {
  if (L) lua_close(L);
}
