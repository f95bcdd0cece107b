// A universe with a debugger attached (a stand-in: chunk loading only asks whether there
// is one) and code-capture settings, for the chunk-loading tests.
#ifndef TQ_TESTS_TOOLKIT_CHUNKS_FIXTURE_H
#define TQ_TESTS_TOOLKIT_CHUNKS_FIXTURE_H

#include "support/lua_fixture.h"

namespace tqtest {

class DebuggedUniverseTest : public ::testing::Test {
protected:
  void SetUp() override {
    KrInit();
    universe = TqLuaUniverse_open(&debuggerStandIn, "debugged");
    ASSERT_NE(universe, nullptr);
    L = TqLuaUniverse_getLuaState(universe);
    TqLuaUniverse_setCodeCapture(universe, &capture);
  }
  void TearDown() override { TqLuaUniverse_close(universe); }

  TqLuaUniverse *universe = nullptr;
  lua_State *L = nullptr;
  TqLuaCodeCapture capture{};

private:
  int debuggerStandIn = 0;
};

}  // namespace tqtest

#endif
