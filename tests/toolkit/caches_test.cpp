// Registry caches, weak tables, cached literals and invalidated proxies.
#include "support/lua_fixture.h"

namespace {

using tqtest::eval;
using tqtest::run;

const char kCacheKey = 0;
const char kOtherKey = 0;

class CachesTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    lua_settop(L, 0);
  }

  // The metatable's "__mode" of the table on top, or "" without one.
  std::string modeOfTop() {
    if (!lua_getmetatable(L, -1)) return "";
    lua_getfield(L, -1, "__mode");
    std::string mode = lua_tostring(L, -1) ? lua_tostring(L, -1) : "(none)";
    lua_pop(L, 2);
    return mode;
  }
};

TEST_F(CachesTest, CachedTableIsCreatedOnceAndReportedFirstTime) {
  EXPECT_EQ(TqLua_pushCachedTable(L, "my cache", &kCacheKey), 1);
  EXPECT_EQ(TqLua_pushCachedTable(L, "my cache", &kCacheKey), 0);
  EXPECT_TRUE(lua_rawequal(L, 1, 2));
  EXPECT_EQ(TqLua_pushCachedTable(L, "my cache", &kOtherKey), 1);
  EXPECT_FALSE(lua_rawequal(L, 1, 3));
  EXPECT_EQ(lua_gettop(L), 3);
  // Stored raw under the address in registry[name].
  lua_getfield(L, LUA_REGISTRYINDEX, "my cache");
  TqLua_rawGetUD(L, -1, &kCacheKey);
  EXPECT_TRUE(lua_rawequal(L, 1, -1));
}

TEST_F(CachesTest, OptionalLookupCreatesOnlyTheCache) {
  EXPECT_EQ(TqLua_pushOptCachedTable(L, "lazy cache", &kCacheKey), 0);
  EXPECT_EQ(lua_gettop(L), 0);
  lua_getfield(L, LUA_REGISTRYINDEX, "lazy cache");
  EXPECT_TRUE(lua_istable(L, -1));
  lua_pop(L, 1);
  TqLua_pushCachedTable(L, "lazy cache", &kCacheKey);
  EXPECT_EQ(TqLua_pushOptCachedTable(L, "lazy cache", &kCacheKey), 1);
  EXPECT_TRUE(lua_rawequal(L, 1, 2));
}

TEST_F(CachesTest, NullAddressIsRefused) {
  lua_register(L, "cacheWithoutKey", [](lua_State *L) { return TqLua_pushCachedTable(L, "c", nullptr); });
  lua_register(L, "optCacheWithoutKey", [](lua_State *L) { return TqLua_pushOptCachedTable(L, "c", nullptr); });
  EXPECT_EQ(run(L, "cacheWithoutKey()"), "Assertion failed: udRef != 0");
  EXPECT_EQ(run(L, "optCacheWithoutKey()"), "Assertion failed: udRef != 0");
}

TEST_F(CachesTest, WeakTablesShareOneMetatablePerMode) {
  EXPECT_EQ(TqLua_makeWeakKeyedTable(L), 1);
  EXPECT_EQ(TqLua_makeWeakKeyedTable(L), 1);
  EXPECT_FALSE(lua_rawequal(L, 1, 2));
  lua_getmetatable(L, 1);
  lua_getmetatable(L, 2);
  EXPECT_TRUE(lua_rawequal(L, -1, -2));
  lua_settop(L, 2);
  EXPECT_EQ(modeOfTop(), "k");
  TqLua_makeWeakValuedTable(L);
  EXPECT_EQ(modeOfTop(), "v");
  TqLua_makeWeakTable(L, 1, 1);
  EXPECT_EQ(modeOfTop(), "kv");
  TqLua_makeWeakTable(L, 0, 0);
  EXPECT_EQ(modeOfTop(), "");
}

TEST_F(CachesTest, WeakValuedTableLetsValuesGo) {
  TqLua_makeWeakValuedTable(L);
  lua_setglobal(L, "weak");
  EXPECT_EQ(run(L, "weak[1] = {} weak[2] = 'kept' collectgarbage()"), "");
  EXPECT_EQ(eval(L, "weak[1]"), "nil");
  EXPECT_EQ(eval(L, "weak[2]"), "kept");
}

TEST_F(CachesTest, CachedWeakTablesGetTheirModeOnce) {
  EXPECT_EQ(TqLua_pushCachedWeakValuedTable(L, "weak cache", &kCacheKey), 1);
  EXPECT_EQ(modeOfTop(), "v");
  EXPECT_EQ(TqLua_pushCachedWeakKeyedTable(L, "weak cache", &kCacheKey), 0);  // already there
  EXPECT_EQ(modeOfTop(), "v");
  EXPECT_EQ(TqLua_pushCachedFullyWeakTable(L, "weak cache", &kOtherKey), 1);
  EXPECT_EQ(modeOfTop(), "kv");
  EXPECT_EQ(TqLua_pushCachedWeakKeyedTable(L, "other weak cache", &kCacheKey), 1);
  EXPECT_EQ(modeOfTop(), "k");
}

TEST_F(CachesTest, LiteralsAreInternedPerAddress) {
  static const char kFirst[] = "hello";
  static const char kSecond[] = "hello";
  EXPECT_EQ(TqLua_pushCachedLiteral_imp(L, kFirst, 5), 1);
  // The registry keeps the first string for the address, whatever length is asked later.
  EXPECT_EQ(TqLua_pushCachedLiteral_imp(L, kFirst, 2), 1);
  EXPECT_STREQ(lua_tostring(L, -1), "hello");
  TqLua_pushCachedLiteral_imp(L, kSecond, 3);
  EXPECT_STREQ(lua_tostring(L, -1), "hel");
  TqLua_pushCachedLiteral(L, "wor\0ld");
  EXPECT_EQ(lua_objlen(L, -1), 6u);
  TqLua_pushCachedLiteral_imp(L, nullptr, 0);
  EXPECT_STREQ(lua_tostring(L, -1), "");
  lua_pushlightuserdata(L, nullptr);
  lua_rawget(L, LUA_REGISTRYINDEX);
  EXPECT_TRUE(lua_isnil(L, -1));  // a NULL text is never stored
}

TEST_F(CachesTest, InvalidatedProxyRefusesEveryAccess) {
  lua_register(L, "invalidate", [](lua_State *L) {
    TqLua_invalidateProxyUserdata(L, 1);
    return 0;
  });
  EXPECT_EQ(run(L, "proxy = newproxy() invalidate(proxy) other = {} invalidate(other)"), "");
  EXPECT_EQ(run(L, "local x = proxy.name"),
            "test:1: Attempted to access an invalidated native object proxy \"< unknown >\" for key \"name\"");
  EXPECT_EQ(run(L, "proxy[1.5] = 1"),
            "test:1: Attempted to access an invalidated native object proxy \"< unknown >\" for key \"1.5\"");
  EXPECT_EQ(run(L, "local x = proxy[true]"),
            "test:1: Attempted to access an invalidated native object proxy \"< unknown >\" for key \"< unknown >\"");
  EXPECT_EQ(eval(L, "proxy"), "Invalidated native object proxy \"< unknown >\"");
  EXPECT_EQ(eval(L, "getmetatable(proxy) == getmetatable(other)"), "true");
}

}  // namespace
