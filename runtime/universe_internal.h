// The universe record and the process-wide start-up state, shared inside the library.
#ifndef TQ_RUNTIME_UNIVERSE_INTERNAL_H
#define TQ_RUNTIME_UNIVERSE_INTERNAL_H

#include <cstdint>

#include <tqkernel/universe.h>

struct TqLuaUniverse {
  lua_State *luaState;
  void *debugger;
  int32_t isMain;
  TqLuaInternalProtos *protos;
  TqLuaExceptionHandlers exceptionHandlers;
  TqLuaConfigurationHandler configurationHandler;
  TqLuaDebugHook debugHook;
  int32_t kernelOnly;
  void *applicationData;
  // The attached debugger's code-capture settings, or null.
  struct TqLuaCodeCapture *codeCapture;
};

namespace tq {

// The universe word that the patched core keeps in front of every lua_State.
inline TqLuaUniverse *&universeWord(lua_State *L) {
  return *reinterpret_cast<TqLuaUniverse **>(reinterpret_cast<char *>(L) - sizeof(void *));
}

// The handlers that apply to L: its universe's, or the defaults for a raw state.
const TqLuaExceptionHandlers &handlersFor(lua_State *L);
const TqLuaExceptionHandlers &defaultExceptionHandlers();

}  // namespace tq

#endif
