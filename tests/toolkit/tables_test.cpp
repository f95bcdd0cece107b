// Method lookup, dereferencing and the small table operations.
#include "support/lua_fixture.h"

namespace {

using tqtest::eval;
using tqtest::run;

class TablesTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    lua_settop(L, 0);
    // getMethod(object, name) -> found, [method,] values left on the stack
    lua_register(L, "getMethod", [](lua_State *L) {
      const int found = TqLua_getMethod(L, 1);
      const int left = lua_gettop(L);
      lua_pushinteger(L, found);
      lua_insert(L, 2);
      lua_pushinteger(L, left);
      return lua_gettop(L) - 1;
    });
    lua_register(L, "getMethodByName", [](lua_State *L) {
      const int found = TqLua_getMethodByName(L, 1, lua_tostring(L, 2));
      lua_pushinteger(L, found);
      lua_insert(L, 3);
      return lua_gettop(L) - 2;
    });
    lua_register(L, "rawDeref", [](lua_State *L) {
      TqLua_rawDeref(L);
      return 1;
    });
    lua_register(L, "rawDerefIndexed", [](lua_State *L) {
      lua_settop(L, 1);
      TqLua_rawDerefIndexed(L, 2);
      return 1;
    });
    lua_register(L, "rawGetUD", [](lua_State *L) {
      TqLua_rawGetUD(L, 1, L);
      return 1;
    });
    lua_register(L, "chain", TqLua_chain);
  }
};

TEST_F(TablesTest, MethodTableNamedByMetatableWins) {
  ASSERT_EQ(run(L, "methods = {run = function() end, size = 3}\n"
                   "object = setmetatable({}, {__hasmethods = methods, __index = {run = 1}})"),
            "");
  EXPECT_EQ(eval(L, "select(1, getMethod(object, 'run')) == 1 and select(2, getMethod(object, 'run')) == methods.run"), "true");
  EXPECT_EQ(eval(L, "select(2, getMethod(object, 'size'))"), "3");  // any value from the table
  EXPECT_EQ(eval(L, "table.concat({getMethod(object, 'missing')}, ',')"), "0,1");
  EXPECT_EQ(eval(L, "select(2, getMethodByName(object, 'size'))"), "3");
}

TEST_F(TablesTest, PlainLookupKeepsOnlyCallableKinds) {
  ASSERT_EQ(run(L, "numbered = setmetatable({}, {__index = function() return 42 end})\n"
                   "callable = setmetatable({}, {__index = function() return print end})"),
            "");
  // 0 found, and only the object left: the name is gone.
  EXPECT_EQ(eval(L, "table.concat({getMethod(numbered, 'x')}, ',')"), "0,1");
  EXPECT_EQ(eval(L, "select(2, getMethod(callable, 'x')) == print"), "true");
  EXPECT_EQ(eval(L, "select(2, getMethod('abc', 'upper')) == string.upper"), "true");
  EXPECT_EQ(eval(L, "table.concat({getMethod(nil, 'x')}, ',')"), "0,1");
  // getMethodByName takes any non-nil value.
  EXPECT_EQ(eval(L, "select(2, getMethodByName(numbered, 'x'))"), "42");
  EXPECT_EQ(run(L, "getMethod({}, 12)"), "test:1: bad argument #-1 to 'getMethod' (string expected, got number)");
}

TEST_F(TablesTest, MethodByNameOnNilPushesNothing) {
  lua_pushnil(L);
  EXPECT_EQ(TqLua_getMethodByName(L, 1, "anything"), 0);
  EXPECT_EQ(lua_gettop(L), 1);
  lua_newtable(L);
  EXPECT_EQ(TqLua_getMethodByName(L, 2, "anything"), 0);
  EXPECT_EQ(lua_gettop(L), 2);
}

TEST_F(TablesTest, GetTableAndDerefUseMetamethods) {
  ASSERT_EQ(run(L, "defaults = setmetatable({}, {__index = function(_, k) return k .. '!' end})"), "");
  lua_getglobal(L, "defaults");
  lua_pushliteral(L, "a");
  TqLua_getTable(L, 1);
  EXPECT_STREQ(lua_tostring(L, -1), "a!");
  lua_pushnil(L);
  TqLua_getTable(L, 1);  // a nil key gives nil, __index is not asked
  EXPECT_TRUE(lua_isnil(L, -1));
  lua_pushnil(L);
  lua_pushliteral(L, "a");
  TqLua_getTable(L, -2);  // so does a nil table
  EXPECT_TRUE(lua_isnil(L, -1));
  EXPECT_EQ(lua_gettop(L), 5);
  lua_settop(L, 1);
  lua_pushliteral(L, "b");
  TqLua_deref(L);
  EXPECT_STREQ(lua_tostring(L, -1), "b!");
  EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(TablesTest, RawAccessNeedsATable) {
  EXPECT_EQ(eval(L, "rawDeref(setmetatable({x = 1}, {__index = function() return 2 end}), 'y')"), "nil");
  EXPECT_EQ(eval(L, "rawDeref({x = 1}, 'x')"), "1");
  EXPECT_EQ(run(L, "rawDeref('s', 'x')"), "Assertion failed: (lua_type(L, (-2)) == 5)");
  EXPECT_EQ(eval(L, "rawDerefIndexed({'a', 'b'})"), "b");
  EXPECT_EQ(run(L, "rawDerefIndexed(newproxy())"), "Assertion failed: (lua_type(L, (-1)) == 5)");
  EXPECT_EQ(eval(L, "rawGetUD({})"), "nil");
  EXPECT_EQ(run(L, "rawGetUD(1)"), "Assertion failed: (lua_type(L, (source)) == 5)");
}

int answer(lua_State *L) {
  lua_pushinteger(L, 42);
  return 1;
}

int addNullKey(lua_State *L) {
  const luaL_Reg broken[] = {{"fine", answer}, {nullptr, answer}, {nullptr, nullptr}};
  TqLua_addFunctionsToTable(L, 1, broken);
  return 0;
}

int addNullFunction(lua_State *L) {
  const luaL_Reg broken[] = {{"missing", nullptr}, {nullptr, nullptr}};
  TqLua_addFunctionsToTable(L, 1, broken);
  return 0;
}

TEST_F(TablesTest, AddFunctionsAssignsThroughMetamethods) {
  ASSERT_EQ(run(L, "seen = {} target = setmetatable({}, {__newindex = function(t, k, v) seen[#seen + 1] = k rawset(t, k, v) end})"), "");
  lua_getglobal(L, "target");
  const luaL_Reg functions[] = {{"one", answer}, {"two", answer}, {nullptr, nullptr}};
  TqLua_addFunctionsToTable(L, -1, functions);
  TqLua_addFunctionsToTable(L, -1, nullptr);
  EXPECT_EQ(eval(L, "table.concat(seen, ',')"), "one,two");
  EXPECT_EQ(eval(L, "target.two()"), "42");

  lua_register(L, "addNullKey", addNullKey);
  lua_register(L, "addNullFunction", addNullFunction);
  EXPECT_EQ(run(L, "addNullKey({})"), "Assertion failed: key");
  EXPECT_EQ(run(L, "addNullFunction({})"), "Assertion failed: function");
}

TEST_F(TablesTest, ChainReturnsItsFirstArgument) {
  EXPECT_EQ(eval(L, "select('#', chain(1, 2, 3)) .. ':' .. chain(1, 2, 3)"), "1:1");
  EXPECT_EQ(eval(L, "select('#', chain())"), "1");
}

TEST_F(TablesTest, ShallowCopySharesNestedTablesAndMetatable) {
  ASSERT_EQ(run(L, "inner = {} meta = {__index = function() return 'meta' end}\n"
                   "source = setmetatable({1, 2, inner = inner, name = 'n'}, meta)"),
            "");
  lua_getglobal(L, "source");
  EXPECT_EQ(TqLua_shallowCopy(L, -1), 1);
  lua_setglobal(L, "copy");
  EXPECT_EQ(eval(L, "copy ~= source and copy.inner == inner and getmetatable(copy) == meta"), "true");
  EXPECT_EQ(eval(L, "copy[1] + copy[2] .. copy.name .. copy.other"), "3nmeta");
  lua_settop(L, 0);

  lua_pushliteral(L, "text");
  EXPECT_EQ(TqLua_shallowCopy(L, 1), 1);
  EXPECT_TRUE(lua_rawequal(L, 1, 2));
  lua_newuserdata(L, 4);
  EXPECT_EQ(TqLua_shallowCopy(L, -1), 0);
  lua_pushthread(L);
  EXPECT_EQ(TqLua_shallowCopy(L, -1), 0);
  EXPECT_EQ(TqLua_shallowCopy(L, 10), 0);
  EXPECT_EQ(lua_gettop(L), 4);
}

// The default error handler describes the error on the same stack and so would report its
// own overflow; this one passes the error value on untouched.
void raiseWithoutDescribing(void *, lua_State *, int status) { throw TqLuaException("raised", status); }

TEST_F(TablesTest, ShallowCopyOfATableNeedsStackRoom) {
  TqLuaExceptionHandlers handlers = TqLuaUniverse_getExceptionHandlers(universe);
  handlers.errorHandler = raiseWithoutDescribing;
  TqLuaUniverse_setExceptionHandlers(universe, &handlers);
  lua_register(L, "copyOnFullStack", [](lua_State *L) {
    luaL_checkstack(L, 7997, "test");
    lua_settop(L, 7997);
    TqLua_shallowCopy(L, 1);
    return 0;
  });
  EXPECT_EQ(run(L, "copyOnFullStack({})"), "test:1: stack overflow (copying table)");
}

}  // namespace
