// The library exports the Lua C API and its own API, and nothing else.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "support/process.h"

namespace {

TEST(Exports, OnlyTheLuaAndTqKernelInterfacesAreVisible) {
  const auto result = tqtest::runProcess(std::string("nm -D --defined-only ") + TQ_LIBRARY);
  ASSERT_EQ(result.exitStatus, 0) << result.output;
  const std::regex allowed(
      "(lua_|luaL_|luaopen_|Tq|Kr|GetMainThreadID$|dumpValue$|dumpTrace$|dumpState$|mg_|"
      "activateRemoteLuaDebugger_L$|deactivateRemoteLuaDebugger_L$|"
      "_ZN12TqMutexScope|_ZN14TqLuaException|_ZNK14TqLuaException|_ZT[ISV]14TqLuaException).*");
  std::istringstream lines(result.output);
  std::string line;
  int exported = 0;
  bool sawLuaApi = false, sawOwnApi = false;
  while (std::getline(lines, line)) {
    const std::string symbol = line.substr(line.rfind(' ') + 1);
    EXPECT_TRUE(std::regex_match(symbol, allowed)) << "unexpected export: " << symbol;
    sawLuaApi = sawLuaApi || symbol == "lua_pcall";
    sawOwnApi = sawOwnApi || symbol == "KrInit";
    ++exported;
  }
  EXPECT_GT(exported, 100);
  EXPECT_TRUE(sawLuaApi);
  EXPECT_TRUE(sawOwnApi);
}

}  // namespace
