// Runs every tests/lua/*.lua script in a fresh secondary universe with the bindings (T) and
// the helpers of support.lua. A script passes when it runs to its end. Scripts whose name
// holds "debugged" get a universe with a debugger attached (a stand-in: the chunk loader
// only asks whether there is one) and so capture code when T.capture asks for it.
#include <dirent.h>

#include <algorithm>
#include <string>
#include <vector>

#include "lua/bindings.h"

namespace {

const std::string kFolder = std::string(TQ_TEST_SOURCE_DIR) + "/lua/";

std::vector<std::string> luaScripts() {
  std::vector<std::string> names;
  if (DIR *dir = opendir(kFolder.c_str())) {
    while (dirent *entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name.size() > 4 && name.compare(name.size() - 4, 4, ".lua") == 0 && name != "support.lua") {
        names.push_back(name);
      }
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

class LuaScript : public testing::TestWithParam<std::string> {};

TEST_P(LuaScript, RunsToItsEnd) {
  static int debuggerStandIn;
  KrInit();
  const bool debugged = GetParam().find("debugged") != std::string::npos;
  TqLuaUniverse *universe = TqLuaUniverse_open(debugged ? &debuggerStandIn : nullptr, "test");
  ASSERT_NE(universe, nullptr);
  lua_State *L = TqLuaUniverse_getLuaState(universe);
  tqtest::openBindings(L, universe);
  lua_pushstring(L, kFolder.c_str());
  lua_setglobal(L, "SCRIPT_DIR");
  for (const std::string &file : {std::string("support.lua"), GetParam()}) {
    ASSERT_EQ(luaL_loadfile(L, (kFolder + file).c_str()), 0) << lua_tostring(L, -1);
    EXPECT_EQ(lua_pcall(L, 0, 0, 0), 0) << lua_tostring(L, -1);
  }
  tqtest::closeBindings();
  TqLuaUniverse_close(universe);
}

INSTANTIATE_TEST_SUITE_P(Scripts, LuaScript, testing::ValuesIn(luaScripts()),
                         [](const testing::TestParamInfo<std::string> &info) {
                           std::string name = info.param.substr(0, info.param.size() - 4);
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace
