// Tagged full userdata and the yield test.
#include "support/lua_fixture.h"

#include <cstring>

namespace {

using tqtest::eval;
using tqtest::run;

class TaggedUserdataTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    lua_settop(L, 0);
    // tagged(tag [, size])
    lua_register(L, "tagged", [](lua_State *L) {
      TqLuaInternal_makeTaggedHeavyUserdata(L, static_cast<size_t>(luaL_optinteger(L, 2, 4)),
                                            static_cast<unsigned char>(lua_tointeger(L, 1)));
      return 1;
    });
    lua_register(L, "checkTagged", [](lua_State *L) {
      TqLuaInternal_checkTaggedHeavyUserdata(L, 1, static_cast<unsigned char>(lua_tointeger(L, 2)));
      return 0;
    });
    lua_register(L, "light", [](lua_State *L) {
      lua_pushlightuserdata(L, L);
      return 1;
    });
    lua_register(L, "canYield", TqLuaInternal_canYield_L);
  }
};

TEST_F(TaggedUserdataTest, EmptyPayloadStillCarriesTheTrailer) {
  void *payload = TqLuaInternal_makeTaggedHeavyUserdata(L, 0, 1);
  EXPECT_EQ(lua_objlen(L, -1), 8u);
  EXPECT_EQ(std::memcmp(payload, "TqXkLua", 7), 0);
  EXPECT_EQ(TqLuaInternal_getuserdatatag(L, -1), 1);
  EXPECT_EQ(lua_getmetatable(L, -1), 0);
}

TEST_F(TaggedUserdataTest, EveryNonZeroTagIsKept) {
  char *payload = static_cast<char *>(TqLuaInternal_makeTaggedHeavyUserdata(L, 3, 255));
  std::memcpy(payload, "abc", 3);
  EXPECT_EQ(TqLuaInternal_getuserdatatag(L, -1), 255);
  EXPECT_EQ(TqLua_type(L, -1), LUA_TUSERDATA);  // only tag 1 is a native object
  EXPECT_EQ(TqLuaInternal_setuserdatatag(L, -1, 128), 1);
  EXPECT_EQ(TqLuaInternal_getuserdatatag(L, -1), 128);
  EXPECT_EQ(std::memcmp(payload, "abc", 3), 0);
  EXPECT_EQ(run(L, "tagged(0)"), "Assertion failed: 0 < tag");
}

TEST_F(TaggedUserdataTest, PlainAndLightUserdataAreUntagged) {
  lua_newuserdata(L, 32);
  lua_newuserdata(L, 3);  // too short for a trailer
  lua_pushlightuserdata(L, L);
  lua_pushliteral(L, "TqXkLua\x01");
  for (int index = 1; index <= 4; ++index) {
    EXPECT_EQ(TqLuaInternal_getuserdatatag(L, index), -1) << index;
    EXPECT_EQ(TqLuaInternal_setuserdatatag(L, index, 1), 0) << index;
    EXPECT_EQ(TqLuaInternal_toTaggedHeavyUserdata(L, index, 1), nullptr) << index;
  }
  EXPECT_STREQ(TqLua_typename(L, 1), "userdata");
  TqLuaInternal_setTaggedHeavyUserdataToInvalid(L, 1);  // does nothing
  EXPECT_EQ(TqLuaInternal_getuserdatatag(L, 1), -1);
}

TEST_F(TaggedUserdataTest, InvalidationChangesOnlyTheTag) {
  void *payload = TqLuaInternal_makeTaggedHeavyUserdata(L, 16, 1);
  EXPECT_EQ(TqLuaInternal_toTaggedHeavyUserdata(L, -1, 1), payload);
  TqLuaInternal_setTaggedHeavyUserdataToInvalid(L, -1);
  EXPECT_FALSE(TqLuaInternal_isTaggedHeavyUserdata(L, -1, 1));
  EXPECT_TRUE(TqLuaInternal_isTaggedHeavyUserdata(L, -1, 2));
  EXPECT_EQ(TqLuaInternal_toTaggedHeavyUserdata(L, -1, 1), nullptr);  // right trailer, wrong tag
  EXPECT_EQ(TqLuaInternal_toTaggedHeavyUserdata(L, -1, 2), payload);
  EXPECT_EQ(TqLua_type(L, -1), LUA_TUSERDATA);
}

TEST_F(TaggedUserdataTest, CheckRefusesOtherKindsBeforeOtherTags) {
  EXPECT_EQ(run(L, "checkTagged(tagged(1), 1)"), "");
  EXPECT_EQ(run(L, "checkTagged(light(), 1)"),
            "test:1: bad argument #1 to 'checkTagged' (userdata expected, got userdata)");
  EXPECT_EQ(run(L, "checkTagged(nil, 1)"),
            "test:1: bad argument #1 to 'checkTagged' (userdata expected, got nil)");
  EXPECT_EQ(run(L, "checkTagged(tagged(2), 1)"),
            "Assertion failed: TqLuaInternal_getuserdatatag( L, index ) == tag");
  EXPECT_EQ(run(L, "checkTagged(newproxy(), 1)"),
            "Assertion failed: TqLuaInternal_getuserdatatag( L, index ) == tag");
}

TEST_F(TaggedUserdataTest, ImpossibleSizeIsRefusedByLua) {
  lua_pushcfunction(L, [](lua_State *L) {
    TqLuaInternal_makeTaggedHeavyUserdata(L, SIZE_MAX - 3, 1);
    return 0;
  });
  ASSERT_NE(lua_pcall(L, 0, 0, 0), 0);
  EXPECT_STREQ(lua_tostring(L, -1), "memory allocation error: block too big");
}

TEST_F(TaggedUserdataTest, CanYieldOnlyWithoutNativeBoundary) {
  EXPECT_EQ(eval(L, "coroutine.wrap(function() return canYield() end)()"), "true");
  EXPECT_EQ(eval(L, "coroutine.wrap(function() local t = {} return (canYield()) end)()"), "true");
  // A metamethod runs behind a native call boundary, and so does pcall's body.
  EXPECT_EQ(eval(L, "coroutine.wrap(function() "
                    "  return setmetatable({}, {__index = function() return canYield() end}).x "
                    "end)()"),
            "false");
  EXPECT_EQ(eval(L, "coroutine.wrap(function() return select(2, pcall(canYield)) end)()"), "false");
  EXPECT_EQ(eval(L, "canYield()"), "false");  // the main state is no coroutine
}

}  // namespace
