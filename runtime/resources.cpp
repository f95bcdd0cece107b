// Lookup of the Lua scripts compiled into the library (see cmake/EmbedScripts.cmake).
#include "runtime/resources.h"

#include <strings.h>

#include <tqkernel/toolkit.h>

namespace tq {

const EmbeddedScript *findResource(const char *name, const char *kind) {
  // Every script is of type "krlua": the kind given, with the library's "kr" in front.
  if (!name || !kind || strcasecmp(kind, "lua") != 0) return nullptr;
  for (const EmbeddedScript *script = embeddedScripts; script->name; ++script) {
    if (strcasecmp(script->name, name) == 0) return script;
  }
  return nullptr;
}

int loadResource(lua_State *L, const char *name, const char *chunkName) {
  const EmbeddedScript *script = findResource(name, "lua");
  if (!script) {
    lua_pushfstring(L, "resource not found: %s", name);
    return LUA_ERRFILE;
  }
  return luaL_loadbuffer(L, script->bytes, script->length, chunkName);
}

int getResource_L(lua_State *L) {
  const EmbeddedScript *script =
      findResource(TqLua_checkString(L, 1), TqLua_optString(L, 2, "lua"));
  if (!script) return 0;
  lua_pushlstring(L, script->bytes, script->length);
  return 1;
}

}  // namespace tq
