// Lua functions shared between our code and the patched standard libraries.
#ifndef TQ_CORELIB_H
#define TQ_CORELIB_H

#include "lua.h"

// debug.trigger(): lua_trigger on the calling state.
int tqcore_db_trigger(lua_State *L);
// debug.getvarargs([thread,] level): lua_getvarargs for that level.
int tqcore_db_getvarargs(lua_State *L);
// string.replace(s, find, repl [, n]): plain replacement, see stringreplace.cpp.
int tqcore_str_replace(lua_State *L);

// The base library's own tostring, which error descriptions recognise.
int luaB_tostring(lua_State *L);

#endif
