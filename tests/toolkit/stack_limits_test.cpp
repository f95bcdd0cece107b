// Operations that need stack room of their own refuse at the stack's limit with
// "stack overflow (why)". The errors are raised undescribed: describing them needs room too.
#include "support/lua_fixture.h"

namespace {

using tqtest::UniverseTest;

const TqDirectObjectClass kFresh = {nullptr, "Fresh", 8, nullptr, nullptr, nullptr, nullptr, nullptr};
uint64_t sPackedNumber[2];

struct Case {
  const char *argument;  // Lua code for the value at index 1
  int height;            // the stack is filled up to this many values
  int (*operation)(lua_State *L);
  const char *expected;
};
const Case *sCase = nullptr;

int nearTheLimit(lua_State *L) {
  luaL_checkstack(L, sCase->height, "test");
  lua_settop(L, sCase->height);
  return sCase->operation(L);
}

void raiseUndescribed(void *, lua_State *, int status) { throw TqLuaException("", status); }

TEST_F(UniverseTest, OperationsNeedingStackRoomRefuseAtTheLimit) {
  TqLuaExceptionHandlers handlers = TqLuaUniverse_getExceptionHandlers(universe);
  handlers.errorHandler = raiseUndescribed;
  TqLuaUniverse_setExceptionHandlers(universe, &handlers);
  lua_pushnumber(L, 1);
  TqTransitValue_pack(L, -1, 0, sPackedNumber);
  lua_pop(L, 1);
  lua_register(L, "nearTheLimit", nearTheLimit);
  const Case cases[] = {
      {"function() return function() end end", 7995, [](lua_State *S) { return lua_pushvalue(S, 1), lua_describefunction(S); },
       "stack overflow (out of stack space)"},
      {"{}", 7997, [](lua_State *S) { return TqLua_shallowCopy(S, 1); }, "stack overflow (copying table)"},
      {"{}", 7997, [](lua_State *S) { return TqLuaTable_ref(S, 1); }, "stack overflow (space for ref)"},
      {"nil", 7990, [](lua_State *S) { return TqDirectObject_checkPushAllocToLua(S, &kFresh), 1; },
       "stack overflow (No space in stack for building metatable)"},
      {"nil", 7989, [](lua_State *S) { return static_cast<int>(TqTransitValue_unpack(S, sPackedNumber)); },
       "stack overflow (No space in destination for copy.)"},
  };
  for (const Case &c : cases) {
    sCase = &c;
    EXPECT_EQ(tqtest::run(L, std::string("nearTheLimit(") + c.argument + ")"), std::string("test:1: ") + c.expected);
  }
}

}  // namespace
