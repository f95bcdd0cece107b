// tqhost: the reference host. Starts the library, creates the main universe and runs a
// Lua script in it.
#include <tqkernel/tqkernel.h>

#include <cstdio>
#include <string>

#include "host/options.h"

namespace {

// Message handler: the error with a traceback of where it happened.
int addTraceback(lua_State *L) {
  const char *message = lua_tostring(L, 1);
  TqLua_pushTraceback(L, message ? message : luaL_typename(L, 1), 0, 1);
  return 1;
}

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
  lua_pushcfunction(L, addTraceback);
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
    TqLuaUniverse *main = TqLuaUniverse_createMainUniverse(nullptr);
    const int status = runScript(TqLuaUniverse_getLuaState(main), options);
    TqLuaUniverse_close(main);
    return status;
  } catch (const std::exception &e) {
    std::fprintf(stderr, "tqhost: %s\n", e.what());
    return 1;
  }
}
