// Chunk identifiers are kept only in the prototypes, so this test reads them there.
#define LUA_CORE
#include "lobject.h"

#include <climits>
#include <utility>

#include "support/lua_fixture.h"

namespace {

using ChunkIdTest = tqtest::UniverseTest;

// The identifiers of the function on top and of its first nested prototypes, all of which
// must agree; INT_MAX when they do not.
int stampedId(lua_State *L) {
  const Proto *p = static_cast<const Closure *>(lua_topointer(L, -1))->l.p;
  const int id = p->chunkid[0];
  for (; p; p = p->sizep > 0 ? p->p[0] : nullptr)
    if (p->chunkid[0] != id || p->chunkid[1] != id) return INT_MAX;
  return id;
}

int idOf(lua_State *L, const char *name) {
  EXPECT_EQ(luaL_loadstring(L, "local function f() return function() end end"), 0);
  EXPECT_EQ(lua_applychunkid(L, -1, name), 1);
  const int id = stampedId(L);
  lua_pop(L, 1);
  return id;
}

TEST_F(ChunkIdTest, StampsTheNamesHashIntoEveryPrototypeOfLuaFunctionsOnly) {
  const std::pair<const char *, int> cases[] = {
      {"", 0}, {"a", 97}, {"ab", 97 * 31 + 98}, {"=chunk name", 471227483},
      {"hello world!", 217287203},     // the hash is negative
      {"\xe9", 23},                    // bytes count as signed
      {"polygenelubricants", INT_MIN}  // has no absolute value
  };
  for (const auto &[name, id] : cases) EXPECT_EQ(idOf(L, name), id) << name;
  lua_pushcfunction(L, TqLua_chain);
  lua_pushnumber(L, 1);
  EXPECT_EQ(lua_applychunkid(L, -2, "a") + lua_applychunkid(L, -1, "a"), 0);
}

}  // namespace
