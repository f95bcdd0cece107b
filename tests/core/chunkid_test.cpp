// Chunk identifiers are kept only in the prototypes, so this test reads them there.
#define LUA_CORE
#include "lobject.h"

#include <climits>

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

TEST_F(ChunkIdTest, StampsTheNamesHashIntoEveryPrototype) {
  EXPECT_EQ(idOf(L, ""), 0);
  EXPECT_EQ(idOf(L, "a"), 97);
  EXPECT_EQ(idOf(L, "ab"), 97 * 31 + 98);
  EXPECT_EQ(idOf(L, "=chunk name"), 471227483);
  EXPECT_EQ(idOf(L, "hello world!"), 217287203);           // the hash is negative
  EXPECT_EQ(idOf(L, "\xe9"), 23);                          // bytes count as signed
  EXPECT_EQ(idOf(L, "polygenelubricants"), INT_MIN);       // has no absolute value
}

TEST_F(ChunkIdTest, OnlyLuaFunctionsTakeAnIdentifier) {
  lua_pushcfunction(L, [](lua_State *) { return 0; });
  lua_pushnumber(L, 1);
  EXPECT_EQ(lua_applychunkid(L, -2, "a"), 0);
  EXPECT_EQ(lua_applychunkid(L, -1, "a"), 0);
  lua_pop(L, 2);
}

}  // namespace
