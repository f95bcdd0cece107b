#include "support/lua_fixture.h"
#include "toolkit/c_headers.h"

namespace {

using CHeadersTest = tqtest::UniverseTest;

TEST_F(CHeadersTest, CSourceUsesTheToolkitAndTaggedUserdata) {
  EXPECT_EQ(tqtestTypeOfNativeObjectFromC(L), kTqLuaTypeNativeObject);
}

}  // namespace
