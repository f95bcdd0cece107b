// What tqhost offers to Lua beyond the standard libraries, and the universes it spawns.
#ifndef TQ_HOST_UNIVERSES_H
#define TQ_HOST_UNIVERSES_H

#include <tqkernel/tqkernel.h>

namespace tqhost {

// Adds the setup procedure that gives every universe print (on the log channel),
// newTransitQueue, spawnUniverse and elapsedSeconds. Call between KrInit and the first universe.
void addHostSetupProc();

// Message handler for lua_pcall: the error with a traceback of where it happened.
int addTraceback(lua_State *L);

// Waits until every spawned universe (including those spawned by spawned ones) has
// finished. Returns false when any of them failed.
bool joinSpawnedUniverses();

}  // namespace tqhost

#endif
