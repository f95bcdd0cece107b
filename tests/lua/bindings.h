// The library's native operations offered to the Lua test scripts as the global table T.
#ifndef TQ_TESTS_LUA_BINDINGS_H
#define TQ_TESTS_LUA_BINDINGS_H

#include "support/lua_fixture.h"

namespace tqtest {

// Registers T in L, attaches the scripts' code-capture settings to the universe and sends
// the log to T.logged(); closeBindings puts the process-wide settings back.
void openBindings(lua_State *L, TqLuaUniverse *universe);
void closeBindings();
// Adds the direct-object classes of classes.cpp to T.
void openClasses(lua_State *L);

}  // namespace tqtest

#endif
