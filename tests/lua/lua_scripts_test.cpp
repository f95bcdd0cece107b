// Runs every tests/lua/*.lua script in a fresh secondary universe. A script passes when it
// runs to its end; it fails with its error message otherwise.
#include <dirent.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/lua_fixture.h"

namespace {

std::vector<std::string> luaScripts() {
  std::vector<std::string> names;
  const std::string folder = std::string(TQ_TEST_SOURCE_DIR) + "/lua";
  if (DIR *dir = opendir(folder.c_str())) {
    while (dirent *entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name.size() > 4 && name.compare(name.size() - 4, 4, ".lua") == 0) names.push_back(name);
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

class LuaScript : public tqtest::UniverseTest, public testing::WithParamInterface<std::string> {};

TEST_P(LuaScript, RunsToItsEnd) {
  const std::string path = std::string(TQ_TEST_SOURCE_DIR) + "/lua/" + GetParam();
  lua_pushstring(L, path.c_str());
  lua_setglobal(L, "SCRIPT_PATH");
  ASSERT_EQ(luaL_loadfile(L, path.c_str()), 0) << lua_tostring(L, -1);
  EXPECT_EQ(lua_pcall(L, 0, 0, 0), 0) << lua_tostring(L, -1);
}

INSTANTIATE_TEST_SUITE_P(Scripts, LuaScript, testing::ValuesIn(luaScripts()),
                         [](const testing::TestParamInfo<std::string> &info) {
                           std::string name = info.param.substr(0, info.param.size() - 4);
                           std::replace_if(name.begin(), name.end(),
                                           [](char c) { return !isalnum(static_cast<unsigned char>(c)); }, '_');
                           return name;
                         });

}  // namespace
