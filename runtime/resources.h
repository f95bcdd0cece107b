// The Lua scripts compiled into the library, found by name without regard to case.
#ifndef TQ_RUNTIME_RESOURCES_H
#define TQ_RUNTIME_RESOURCES_H

#include <cstddef>

#include <tqkernel/lua_api.h>

namespace tq {

struct EmbeddedScript {
  const char *name;  // the file name without ".lua"
  const char *bytes;
  size_t length;
};

// Ends with an entry whose name is null.
extern const EmbeddedScript embeddedScripts[];

// The script of that name and kind ("lua", the only kind; its resource type is "krlua"),
// or null.
const EmbeddedScript *findResource(const char *name, const char *kind);

// Compiles the named script under chunkName and pushes the function: 0, or a load status
// with the message pushed (a missing script pushes "resource not found: NAME").
int loadResource(lua_State *L, const char *name, const char *chunkName);

// Lua: getResource(name [, kind]) -> the script's text, or nothing when there is none.
int getResource_L(lua_State *L);

}  // namespace tq

#endif
