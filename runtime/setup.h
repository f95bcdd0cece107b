// The two ordered lists of setup procedures run on every new state.
#ifndef TQ_RUNTIME_SETUP_H
#define TQ_RUNTIME_SETUP_H

#include <tqkernel/universe.h>

#include <atomic>

namespace tq {

enum class SetupList { kernel, application };

void addSetupProc(SetupList list, int order, const char *name, lua_CFunction proc,
                  unsigned stateKind);

// Runs the kernel list, then (unless the universe is kernel-only) the application list.
// A failing procedure is logged and raised as a Lua error on L.
void runSetupProcs(lua_State *L, unsigned stateKind, TqLuaUniverse *universe);

// Set once the first universe is being created; the lists are frozen from then on.
// Atomic: secondary universes may be created on any thread.
extern std::atomic<bool> sCreatedAnyUniverses;

}  // namespace tq

#endif
