// Message sending, the native-function pushers and the autorelease-pool call, driven from
// Lua.
#include "support/lua_fixture.h"

namespace {

using tqtest::eval;
using tqtest::run;

const char kFunctionKey = 0;

int returnOne(lua_State *L) {
  lua_pushliteral(L, "one");
  return 1;
}

int returnTwo(lua_State *L) {
  lua_pushliteral(L, "two");
  return 1;
}

int returnUpvalues(lua_State *L) {
  lua_pushvalue(L, lua_upvalueindex(1));
  lua_pushvalue(L, lua_upvalueindex(2));
  return 2;
}

class CallsTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    // sendGreet(object, ...) sends "greet" with the arguments, for all results.
    lua_register(L, "sendGreet", [](lua_State *L) {
      return TqLua_send(L, "greet", lua_gettop(L) - 1, LUA_MULTRET);
    });
    lua_register(L, "sendGreetForOne", [](lua_State *L) {
      return TqLua_send(L, "greet", lua_gettop(L) - 1, 1);
    });
    // stackSend(object, ..., name)
    lua_register(L, "stackSend", [](lua_State *L) {
      return TqLua_stackSend(L, lua_gettop(L) - 2, LUA_MULTRET);
    });
    lua_register(L, "sendNegativeCount", [](lua_State *L) { return TqLua_send(L, "greet", -1, 0); });
    lua_register(L, "sendMissingArgument", [](lua_State *L) {
      lua_settop(L, 1);
      return TqLua_send(L, "greet", 1, 0);
    });
    // closure(upvalues, withFunction, ...): the upvalues are the further arguments.
    lua_register(L, "closure", [](lua_State *L) {
      const int values = static_cast<int>(lua_tointeger(L, 1));
      const bool withFunction = lua_toboolean(L, 2);
      lua_remove(L, 1);
      lua_remove(L, 1);
      return TqLua_pushCClosure(L, withFunction ? returnUpvalues : nullptr, values);
    });
    // functionFor(which, keyed)
    lua_register(L, "functionFor", [](lua_State *L) {
      const lua_CFunction func = lua_tointeger(L, 1) == 1 ? returnOne : returnTwo;
      return TqLua_pushCFunctionWithUDRef(L, func, lua_toboolean(L, 2) ? &kFunctionKey : nullptr);
    });
    lua_register(L, "nullFunction", [](lua_State *L) {
      return TqLua_pushCFunctionWithUDRef(L, nullptr, &kFunctionKey);
    });
    lua_register(L, "withPool", TqLua_callWithAutoReleasePool);
  }
};

TEST_F(CallsTest, SendCallsTheObjectsMethodWithItsArguments) {
  EXPECT_EQ(run(L, R"lua(
    local object = {greet = function(self, a, b) return self, a, b end}
    local who, a, b = sendGreet(object, 1, 2)
    assert(who == object and a == 1 and b == 2)
    assert(select("#", sendGreetForOne(object, 1, 2)) == 1)
    local class = {greet = function(self, name) return "hello " .. name end}
    assert(sendGreet(setmetatable({}, {__index = class}), "you") == "hello you")
    local withMethods = setmetatable({}, {__hasmethods = {greet = function() return "from methods" end}})
    assert(sendGreet(withMethods) == "from methods")
    assert(stackSend(class, "x", "greet") == "hello x")
  )lua"), "");
}

TEST_F(CallsTest, SendRefusals) {
  EXPECT_EQ(run(L, "sendGreet({})"), "test:1: method not found: greet");
  EXPECT_EQ(run(L, "sendGreet({greet = 5})"), "test:1: method not found: greet");
  EXPECT_EQ(run(L, "stackSend({}, 'greet')"), "test:1: method not found: < unknown >");
  EXPECT_EQ(run(L, "stackSend({}, 5)"),
            "test:1: bad argument #2 to 'stackSend' (message identifier expected, got number)");
  EXPECT_EQ(run(L, "sendNegativeCount({})"), "Assertion failed: 0 <= inCount");
  EXPECT_EQ(run(L, "sendMissingArgument({})"), "Assertion failed: 2 + inCount <= msgIndex");
  EXPECT_EQ(run(L, "sendGreet({greet = function() error('inside', 0) end})"), "inside");
}

TEST_F(CallsTest, PushCClosure) {
  EXPECT_EQ(eval(L, "closure(0, false)"), "nil");
  EXPECT_EQ(eval(L, "select(2, closure(2, true, 'a', 'b')())"), "b");
  EXPECT_EQ(run(L, "closure(-1, true)"), "Assertion failed: 0 <= values");
  EXPECT_EQ(run(L, "closure(1, false, 'a')"), "Assertion failed: func || !values");
}

TEST_F(CallsTest, KeyedFunctionIsCreatedOnce) {
  EXPECT_EQ(run(L, R"lua(
    local first = functionFor(1, true)
    assert(functionFor(2, true) == first and first() == "one")
    assert(functionFor(2, false) ~= functionFor(2, false))
    assert(functionFor(2, false)() == "two")
  )lua"), "");
  EXPECT_EQ(run(L, "nullFunction()"), "Assertion failed: func");
}

TEST_F(CallsTest, AutoReleasePoolCallIsAPlainCall) {
  EXPECT_EQ(eval(L, "select('#', withPool(function(...) return ... end, 1, nil, 3))"), "3");
  EXPECT_EQ(eval(L, "select(3, withPool(function(...) return ... end, 1, nil, 3))"), "3");
  EXPECT_EQ(run(L, "withPool()"), "test:1: bad argument #1 to 'withPool' (value expected)");
  EXPECT_EQ(run(L, "withPool(error, 'unprotected', 0)"), "unprotected");
}

}  // namespace
