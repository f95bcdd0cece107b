#include "support/lua_fixture.h"

namespace {

using tqtest::UniverseTest;

TEST_F(UniverseTest, ErrorValueOfAnyTypeSurvivesPcall) {
  EXPECT_EQ(tqtest::eval(L, "select(2, pcall(error, 42))"), "42");
}

}  // namespace
