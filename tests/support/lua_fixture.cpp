#include "support/lua_fixture.h"

#include <cstdio>
#include <cstdlib>

namespace tqtest {

std::string run(lua_State *L, const std::string &code) {
  const int top = lua_gettop(L);
  int status = luaL_loadbuffer(L, code.data(), code.size(), "=test");
  if (status == 0) status = lua_pcall(L, 0, 0, 0);
  const std::string error = status == 0 ? "" : lua_tostring(L, -1) ? lua_tostring(L, -1) : "(non-string error)";
  lua_settop(L, top);
  return error;
}

std::string programErrorOf(const std::function<void()> &f) {
  try {
    f();
  } catch (const TqLuaException &e) {
    return e.message();
  }
  return "nothing thrown";
}

std::string protect(lua_State *L, const std::function<void(lua_State *)> &body) {
  const int top = lua_gettop(L);
  const int status = lua_cpcall(L, [](lua_State *S) {
    const auto *run = static_cast<const std::function<void(lua_State *)> *>(lua_touserdata(S, 1));
    return lua_pop(S, 1), (*run)(S), 0;
  }, const_cast<std::function<void(lua_State *)> *>(&body));
  std::string error = status ? lua_tostring(L, -1) : "";
  lua_settop(L, top);
  return error;
}

namespace {

// A death-test child's failures are not printed; show them in the parent's report.
void reportFailuresToStderr() {
  const ::testing::TestResult *result =
      ::testing::UnitTest::GetInstance()->current_test_info()->result();
  for (int i = 0; i < result->total_part_count(); ++i) {
    const ::testing::TestPartResult &part = result->GetTestPartResult(i);
    if (part.failed()) {
      std::fprintf(stderr, "%s:%d: %s\n", part.file_name() ? part.file_name() : "?",
                   part.line_number(), part.message());
    }
  }
}

}  // namespace

void inFreshProcess(const std::function<void()> &body) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        body();
        reportFailuresToStderr();
        std::exit(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}

void UniverseTest::SetUp() {
  KrInit();
  universe = TqLuaUniverse_open(nullptr, "test");
  ASSERT_NE(universe, nullptr);
  L = TqLuaUniverse_getLuaState(universe);
}

void UniverseTest::TearDown() { TqLuaUniverse_close(universe); }

}  // namespace tqtest
