// tqhost: the reference host. Starts the library, creates the main universe and runs a
// Lua script in it.
#include <tqkernel/tqkernel.h>

#include <cstdio>
#include <string>

#include "host/options.h"
#include "host/universes.h"

namespace {

void setArguments(lua_State *L, const tqhost::Options &options) {
  lua_createtable(L, static_cast<int>(options.scriptArguments.size()), 1);
  lua_pushstring(L, options.script.c_str());
  lua_rawseti(L, -2, 0);
  int index = 1;
  for (const std::string &argument : options.scriptArguments) {
    lua_pushstring(L, argument.c_str());
    lua_rawseti(L, -2, index++);
  }
  lua_setglobal(L, "arg");
}

// Runs the script; returns the process's exit status.
int runScript(lua_State *L, const tqhost::Options &options) {
  FILE *probe = std::fopen(options.script.c_str(), "r");
  if (!probe) {
    std::fprintf(stderr, "tqhost: cannot open script '%s'\n", options.script.c_str());
    return 2;
  }
  std::fclose(probe);
  setArguments(L, options);
  lua_pushcfunction(L, tqhost::addTraceback);
  if (luaL_loadfile(L, options.script.c_str()) != 0) {
    std::fprintf(stderr, "tqhost: %s\n", lua_tostring(L, -1));
    return 1;
  }
  for (const std::string &argument : options.scriptArguments) {
    lua_pushstring(L, argument.c_str());
  }
  if (lua_pcall(L, static_cast<int>(options.scriptArguments.size()), 0, 1) != 0) {
    std::fprintf(stderr, "tqhost: %s\n", lua_tostring(L, -1));
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  tqhost::Options options;
  std::string error;
  if (!tqhost::parseOptions(argc, argv, options, error)) {
    std::fprintf(stderr, "tqhost: %s\n%s", error.c_str(), tqhost::kUsage);
    return 2;
  }
  if (options.help) {
    std::fputs(tqhost::kUsage, stdout);
    return 0;
  }
  try {
    KrInit();
    tqhost::addHostSetupProc();
    TqLua_setLogToConsole(1);
    TqLuaUniverse *main = TqLuaUniverse_createMainUniverse(nullptr);
    int status = runScript(TqLuaUniverse_getLuaState(main), options);
    // Spawned universes may still use queues made here: they finish first.
    if (!tqhost::joinSpawnedUniverses() && status == 0) status = 1;
    TqLuaUniverse_close(main);
    return status;
  } catch (const std::exception &e) {
    std::fprintf(stderr, "tqhost: %s\n", e.what());
    return 1;
  }
}
