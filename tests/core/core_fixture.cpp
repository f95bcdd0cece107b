#include "core_fixture.h"

namespace coretest {

std::vector<int> &haltHits() {
  static std::vector<int> hits;
  return hits;
}

void recordingHook(lua_State *L, lua_Debug *ar) {
  EXPECT_EQ(ar->event, LUA_HOOKHALT);
  lua_getinfo(L, "c", ar);
  haltHits().push_back(ar->currentpc);
}

int codeSize(lua_State *L, int idx) {
  lua_pushvalue(L, idx);
  if (!lua_describefunction(L)) {
    lua_pop(L, 1);
    return 0;
  }
  lua_getfield(L, -1, "code");
  const int size = static_cast<int>(lua_objlen(L, -1));
  lua_pop(L, 3);
  return size;
}

namespace {

int haltAll(lua_State *L) {
  const int size = codeSize(L, 1);
  for (int pc = 1; pc <= size; pc++) EXPECT_GT(lua_sethalt(L, pc, recordingHook), 0) << pc;
  lua_gethalts(L);
  lua_pushinteger(L, static_cast<lua_Integer>(lua_objlen(L, -1)));
  return 1;
}

int setHalt(lua_State *L) {
  lua_pushinteger(L, lua_sethalt(L, luaL_checkint(L, 2), recordingHook));
  return 1;
}

int clearHalt(lua_State *L) {
  lua_pushinteger(L, lua_clearhalt(L, luaL_checkint(L, 2)));
  return 1;
}

int getHalts(lua_State *L) {
  lua_gethalts(L);
  return 1;
}

int describe(lua_State *L) {
  lua_settop(L, 1);
  return lua_describefunction(L);
}

int disassemble(lua_State *L) {
  return lua_disassemble(L, static_cast<unsigned int>(luaL_checknumber(L, 1)));
}

int hits(lua_State *L) {
  lua_pushinteger(L, static_cast<lua_Integer>(haltHits().size()));
  return 1;
}

}  // namespace

void CoreTest::SetUp() {
  tqtest::UniverseTest::SetUp();
  haltHits().clear();
  const luaL_Reg helpers[] = {{"haltall", haltAll},   {"sethalt", setHalt},
                              {"clearhalt", clearHalt}, {"gethalts", getHalts},
                              {"describe", describe}, {"disassemble", disassemble},
                              {"hits", hits}};
  for (const luaL_Reg &helper : helpers) lua_register(L, helper.name, helper.func);
}

}  // namespace coretest
