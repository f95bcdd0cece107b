// The limits of a prototype's halt array. Halts themselves are tested by tests/lua/core_*.lua.
#include <algorithm>
#include <cstdlib>
#include <string>

#include "support/lua_fixture.h"

namespace {

void otherHook(lua_State *, lua_Debug *) {}

// An allocator that keeps spare capacity, so that growing the halt array one record at a
// time stays cheap, and that can refuse the next growth.
bool sRefuseNextGrowth = false;
void *arenaAlloc(void *, void *ptr, size_t osize, size_t nsize) {
  size_t *block = ptr ? static_cast<size_t *>(ptr) - 2 : nullptr;
  if (nsize == 0) return std::free(block), nullptr;
  if (nsize > osize && sRefuseNextGrowth) return sRefuseNextGrowth = false, nullptr;
  if (block && block[0] >= nsize) return ptr;
  const size_t capacity = block ? std::max(nsize, 2 * block[0]) : nsize;
  block = static_cast<size_t *>(std::realloc(block, capacity + 2 * sizeof(size_t)));
  if (!block) return nullptr;
  block[0] = capacity;
  return block + 2;
}

TEST(HaltLimits, BxBoundsTheNumberOfHaltsOfAPrototype) {
  lua_State *L = lua_newstate(arenaAlloc, nullptr);
  std::string source = "local a ";
  for (int k = 0; k < 262150; k++) source += "a=1 ";
  ASSERT_EQ(luaL_loadstring(L, source.c_str()), 0);
  const int max = 262144;  // Bx = 0 .. 262143
  int placed = 0;
  for (int pc = 1; pc <= max; pc++) placed += lua_sethalt(L, pc, otherHook) == pc;
  EXPECT_EQ(placed, max);
  EXPECT_EQ(lua_sethalt(L, max + 1, otherHook), 0);
  EXPECT_EQ(lua_clearhalt(L, 1), 1);
  EXPECT_EQ(lua_sethalt(L, max + 1, otherHook), max + 1);
  lua_close(L);
}

int setHaltWithoutMemory(lua_State *L) {
  sRefuseNextGrowth = true;
  return lua_sethalt(L, 2, otherHook);
}

TEST(HaltLimits, ARefusedAllocationIsAMemoryErrorAndChangesNothing) {
  lua_State *L = lua_newstate(arenaAlloc, nullptr);
  ASSERT_EQ(luaL_loadstring(L, "local a, b = ... return a + b"), 0);
  ASSERT_EQ(lua_sethalt(L, 1, otherHook), 1);
  lua_pushcfunction(L, setHaltWithoutMemory);
  lua_pushvalue(L, 1);
  EXPECT_EQ(lua_pcall(L, 1, 0, 0), LUA_ERRMEM);
  EXPECT_STREQ(lua_tostring(L, -1), "not enough memory");
  lua_settop(L, 1);
  lua_gethalts(L);
  EXPECT_EQ(lua_objlen(L, -1), 1u);
  lua_pop(L, 1);
  lua_pushinteger(L, 2);
  lua_pushinteger(L, 3);
  ASSERT_EQ(lua_pcall(L, 2, 1, 0), 0);
  EXPECT_EQ(lua_tointeger(L, -1), 5);
  lua_close(L);
}

}  // namespace
