#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/lua_fixture.h"

namespace {

using tqtest::UniverseTest;

int throwsStdException(lua_State *) { throw std::runtime_error("disk on fire"); }
int throwsUnknown(lua_State *) { throw 42; }
int throwsProgramError(lua_State *) { TqThrowProgramError("Assertion failed: packed"); }
int throwsLuaProgramError(lua_State *L) { TqLua_throwProgramError(L, "from Lua side"); }

struct NullWhat : std::exception {
  const char *what() const noexcept override { return nullptr; }
};
int throwsNullWhat(lua_State *) { throw NullWhat(); }

std::string pcallStatusAndMessage(lua_State *L, lua_CFunction f) {
  lua_pushcfunction(L, f);
  const int status = lua_pcall(L, 0, 0, 0);
  std::string result = std::to_string(status) + " " + lua_tostring(L, -1);
  lua_pop(L, 1);
  return result;
}

TEST_F(UniverseTest, NativeExceptionsBecomeRunTimeErrorsAtPcall) {
  EXPECT_EQ(pcallStatusAndMessage(L, throwsStdException), "2 disk on fire");
  EXPECT_EQ(pcallStatusAndMessage(L, throwsUnknown), "2 (unknown C++ exception)");
  EXPECT_EQ(pcallStatusAndMessage(L, throwsProgramError), "2 Assertion failed: packed");
  EXPECT_EQ(pcallStatusAndMessage(L, throwsLuaProgramError), "2 from Lua side");
  EXPECT_EQ(pcallStatusAndMessage(L, throwsNullWhat), "2 (std::exception with NULL message?!)");
  EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(UniverseTest, NativeExceptionIsCaughtByLuaPcallToo) {
  lua_register(L, "boom", throwsStdException);
  EXPECT_EQ(tqtest::eval(L, "select(2, pcall(boom))"), "disk on fire");
  EXPECT_EQ(tqtest::eval(L, "select(2, pcall(coroutine.wrap(function() boom() end)))"),
            "disk on fire");
}

std::vector<std::string> sCaught;
void recordCatch(lua_State *, const void *exception) {
  sCaught.push_back(exception ? static_cast<const std::exception *>(exception)->what() : "NULL");
}

TEST_F(UniverseTest, CatchHookSeesForeignExceptionsOnly) {
  sCaught.clear();
  TqExceptions_setCatchExceptionHook(recordCatch);
  pcallStatusAndMessage(L, throwsStdException);
  pcallStatusAndMessage(L, throwsUnknown);
  pcallStatusAndMessage(L, throwsProgramError);
  EXPECT_EQ(tqtest::run(L, "error('plain')"), "test:1: plain");
  TqExceptions_setCatchExceptionHook(nullptr);
  EXPECT_EQ(sCaught, (std::vector<std::string>{"disk on fire", "NULL"}));
}

std::vector<std::string> sThrown;
void recordThrow(lua_State *, const char *message) { sThrown.push_back(message); }

TEST_F(UniverseTest, ThrowHookIsToldTheDescriptionBeforeEachLuaError) {
  sThrown.clear();
  TqExceptions_setThrowHook(recordThrow);
  tqtest::run(L, "error('first')");
  tqtest::run(L, "error(setmetatable({}, {__tostring = function() return 'custom' end}))");
  tqtest::run(L, "error(setmetatable({}, {__tostring = function() error('no') end}))");
  tqtest::run(L, "error()");
  TqExceptions_setThrowHook(nullptr);
  // The failing __tostring is itself an error, described while the first is described.
  EXPECT_EQ(sThrown, (std::vector<std::string>{"test:1: first", "custom", "test:1: no",
                                               "LuaRunException", "nil"}));
}

// Error values are described as the global tostring would give them, whatever their type,
// a replaced tostring and a string __tostring metamethod included.
TEST_F(UniverseTest, DescriptionsAreWhatTostringGives) {
  sThrown.clear();
  TqExceptions_setThrowHook(recordThrow);
  EXPECT_EQ(tqtest::run(L, R"(
    expected = {}
    local function raise(value, text)
      pcall(error, value, 0)
      expected[#expected + 1] = text or tostring(value)
    end
    for _, value in ipairs{42, 1/3, 1e300, -1/0, true, false, {}, print,
                           coroutine.create(function() end), newproxy(), "plain"} do
      raise(value)
    end
    raise(nil, "nil")
    raise("up to\0here", "up to")
    local strings = getmetatable("")
    strings.__tostring = function(s) return "S:" .. s end
    raise("x", "S:x")
    strings.__tostring = nil
    local stock = tostring
    tostring = function(v) return "T:" .. stock(v) end
    raise(7, "T:7")
    tostring = stock
  )"), "");
  TqExceptions_setThrowHook(nullptr);
  lua_getglobal(L, "expected");
  std::vector<std::string> expected;
  for (int i = 1; i <= static_cast<int>(lua_objlen(L, -1)); ++i) {
    lua_rawgeti(L, -1, i);
    expected.push_back(lua_tostring(L, -1));
    lua_pop(L, 1);
  }
  lua_pop(L, 1);
  EXPECT_EQ(sThrown, expected);
}

TEST_F(UniverseTest, ErrorStatusesKeepTheirMeaning) {
  EXPECT_EQ(luaL_loadstring(L, "x = = 1"), LUA_ERRSYNTAX);
  EXPECT_STREQ(lua_tostring(L, -1), "[string \"x = = 1\"]:1: unexpected symbol near '='");
  lua_pop(L, 1);
  // An error handler that fails gives "error in error handling".
  luaL_loadstring(L, "error('x')");
  lua_pushcfunction(L, [](lua_State *L) -> int { return lua_error(L); });
  lua_insert(L, -2);
  EXPECT_EQ(lua_pcall(L, 0, 0, 1), LUA_ERRERR);
  EXPECT_STREQ(lua_tostring(L, -1), "error in error handling");
  lua_settop(L, 0);
}

// An allocator that refuses to grow past a budget.
size_t sBudget = 0;
void *limitedAlloc(void *, void *block, size_t oldSize, size_t newSize) {
  if (newSize == 0) {
    sBudget += oldSize;
    free(block);
    return nullptr;
  }
  if (newSize > oldSize && newSize - oldSize > sBudget) return nullptr;
  void *result = realloc(block, newSize);
  if (result) sBudget = sBudget + oldSize - newSize;
  return result;
}

TEST(Exceptions, MemoryErrorsAreStatusFourWithLuasMessage) {
  KrInit();
  sBudget = 1 << 20;
  lua_State *L = lua_newstate(limitedAlloc, nullptr);
  TqLuaUniverse *universe = TqLuaUniverse_attachToLuaState(L, nullptr, nullptr, "small");
  ASSERT_NE(universe, nullptr);
  EXPECT_EQ(tqtest::run(L, "local t = {} for i = 1, 1e7 do t[i] = i end"), "not enough memory");
  luaL_loadstring(L, "local t = {} for i = 1, 1e7 do t[i] = {} end");
  EXPECT_EQ(lua_pcall(L, 0, 0, 0), LUA_ERRMEM);
  lua_pop(L, 1);
  lua_gc(L, LUA_GCCOLLECT, 0);
  EXPECT_EQ(tqtest::run(L, "x = 1"), "");
  TqLuaUniverse_close(universe);
}

TEST_F(UniverseTest, CpcallMapsProgramErrors) {
  EXPECT_EQ(lua_cpcall(L, throwsProgramError, nullptr), LUA_ERRRUN);
  EXPECT_STREQ(lua_tostring(L, -1), "Assertion failed: packed");
  lua_pop(L, 1);
}

TEST_F(UniverseTest, UnprotectedErrorReachesTheHostAsException) {
  lua_pushstring(L, "outside any pcall");
  try {
    lua_error(L);
    FAIL() << "lua_error returned";
  } catch (const TqLuaException &e) {
    EXPECT_EQ(e.code(), LUA_ERRRUN);
    EXPECT_STREQ(e.message(), "outside any pcall");
  }
}

TEST_F(UniverseTest, DescribingWithoutTostringFallsBack) {
  sThrown.clear();
  TqExceptions_setThrowHook(recordThrow);
  tqtest::run(L, "local ts = tostring; tostring = nil; pcall(error, 'x'); tostring = ts");
  TqExceptions_setThrowHook(nullptr);
  EXPECT_EQ(sThrown, (std::vector<std::string>{"LuaRunException"}));
}

TEST_F(UniverseTest, DeepStackErrorStillDescribed) {
  // An error raised with almost all of a C frame's 8000 slots in use.
  lua_pushcfunction(L, [](lua_State *L) -> int {
    luaL_checkstack(L, 7995, "test");
    for (int i = 0; i < 7995; ++i) lua_pushinteger(L, i);
    lua_pushstring(L, "deep");
    return lua_error(L);
  });
  EXPECT_EQ(lua_pcall(L, 0, 0, 0), LUA_ERRRUN);
  EXPECT_STREQ(lua_tostring(L, -1), "stack overflow (exception processing)");
  lua_settop(L, 0);
}

template <typename F>
std::string luaErrorOf(lua_State *L, F raise) {
  static F sRaise = raise;
  lua_pushcfunction(L, [](lua_State *L) -> int {
    sRaise(L);
    return 0;
  });
  EXPECT_EQ(lua_pcall(L, 0, 0, 0), LUA_ERRRUN);
  std::string text = lua_tostring(L, -1);
  lua_pop(L, 1);
  return text;
}

TEST_F(UniverseTest, FieldTypeAndMethodErrorTexts) {
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowSetFieldError(L, "Point", "x"); }),
            "Point does not support setting field x.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowSetFieldError(L, "Point", nullptr); }),
            "Point does not support setting the requested field.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowSetFieldError(L, nullptr, "x"); }),
            "Could not set field x in the target object.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowSetFieldError(L, nullptr, nullptr); }),
            "Could not set a field in the target object.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowGetFieldError(L, "Point", "y"); }),
            "Point does not support reading field y.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowGetFieldError(L, "Point", nullptr); }),
            "Point does not support reading the requested field.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowGetFieldError(L, nullptr, "y"); }),
            "Could not read field y in the target object.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowGetFieldError(L, nullptr, nullptr); }),
            "Could not read a field in the target object.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowMissingType(L, "Matrix"); }),
            "No implementation available for Matrix.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowMissingType(L, nullptr); }),
            "No implementation available for this type.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowUnsupportedMethod(L, "resize"); }),
            "The target does not implement resize.");
  EXPECT_EQ(luaErrorOf(L, [](lua_State *L) { TqThrowUnsupportedMethod(L, nullptr); }),
            "The target does not implement this method.");
}

TEST(Exceptions, ProgramErrorsCarryTheirTextAndCodeZero) {
  const auto messageOf = [](auto thrower) -> std::string {
    try {
      thrower();
    } catch (const TqLuaException &e) {
      return std::to_string(e.code()) + " " + e.what();
    }
    return "nothing thrown";
  };
  EXPECT_EQ(messageOf([] { TqThrowProgramError(nullptr); }), "0 (no message)");
  EXPECT_EQ(messageOf([] { TqThrowProgramErrorWithFormat("%s=%d", "n", 3); }), "0 n=3");
  EXPECT_EQ(messageOf([] { TqThrowLogicError(); }), "0 An internal logic error has occurred.");
  EXPECT_EQ(messageOf([] { TqThrowInsufficientMemory(); }), "4 out of memory");
  EXPECT_EQ(messageOf([] { TqLua_throwProgramError(nullptr, "no state"); }), "0 no state");
  const std::string longText(3000, 'x');
  EXPECT_EQ(messageOf([&] { TqThrowProgramErrorWithFormat("%s", longText.c_str()); }).size(),
            2 + 1999u);
}

}  // namespace
