// The prototype hook, prototype sources and halts planted by source line.
#include <set>
#include <string>
#include <vector>

#include "support/lua_fixture.h"

namespace {

std::vector<int> sHits;  // the instruction index of each halt hit
void recordingHook(lua_State *L, lua_Debug *ar) {
  lua_getinfo(L, "c", ar);
  sHits.push_back(ar->currentpc);
}

struct ProtoLog {
  std::set<void *> live;
  std::vector<void *> created;  // in creation order
  int freed = 0;
  int reportedTwice = 0;   // created while live, or freed while not live
  int freedWithSource = 0;  // freed by the collector but not reported dead
  bool closing = false;
};
ProtoLog sProtos;

void protoHook(lua_State *L, void *proto, int event) {
  if (event == LUA_PROTOCREATED) {
    sProtos.reportedTwice += !sProtos.live.insert(proto).second;
    sProtos.created.push_back(proto);
    return;
  }
  ASSERT_EQ(event, LUA_PROTOFREED);
  sProtos.reportedTwice += sProtos.live.erase(proto) != 1;
  sProtos.freed++;
  if (!sProtos.closing) sProtos.freedWithSource += lua_getprotosource(L, proto) != nullptr;
}

class ProtoHookTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    UniverseTest::SetUp();
    lua_gc(L, LUA_GCCOLLECT, 0);  // what is left from start-up stays alive during the test
    sProtos = ProtoLog();
    sHits.clear();
    lua_setprotohook(L, protoHook);
  }
  void TearDown() override {
    lua_setprotohook(L, nullptr);
    UniverseTest::TearDown();
  }
};

const char *const kChunk = R"(
local x = 1

local function f(a)
  return a + 1
end
local function g() return function() return x end end
return f(x) + g()()
)";

TEST_F(ProtoHookTest, EveryPrototypeIsReportedOnceCreatedAndOnceFreed) {
  const int kCycles = 60;
  for (int cycle = 0; cycle < kCycles; cycle++) {
    ASSERT_EQ(luaL_loadstring(L, kChunk), 0);
    ASSERT_EQ(lua_pcall(L, 0, 1, 0), 0);
    EXPECT_EQ(lua_tointeger(L, -1), 3);
    lua_pop(L, 1);
    if (cycle % 7 == 0) lua_gc(L, LUA_GCCOLLECT, 0);
    if (cycle % 3 == 0) lua_gc(L, LUA_GCSTEP, 1);
  }
  lua_gc(L, LUA_GCCOLLECT, 0);
  EXPECT_EQ(sProtos.created.size(), 4u * kCycles);
  EXPECT_EQ(sProtos.freed, 4 * kCycles);
  EXPECT_TRUE(sProtos.live.empty());
  EXPECT_EQ(sProtos.reportedTwice, 0);
  EXPECT_EQ(sProtos.freedWithSource, 0);  // the collector frees only what it found dead
}

TEST(ProtoHookClose, ClosingAStateFreesItsPrototypesThroughTheHook) {
  sProtos = ProtoLog();
  lua_State *L = luaL_newstate();
  ASSERT_NE(L, nullptr);
  lua_setprotohook(L, protoHook);
  ASSERT_EQ(luaL_loadstring(L, kChunk), 0);
  sProtos.closing = true;
  lua_close(L);
  EXPECT_EQ(sProtos.created.size(), 4u);
  EXPECT_EQ(sProtos.freed, 4);
  EXPECT_EQ(sProtos.reportedTwice, 0);
}

TEST_F(ProtoHookTest, HaltsByLineStandOnTheLinesFirstInstruction) {
  ASSERT_EQ(luaL_loadbuffer(L, kChunk, std::string(kChunk).size(), "=chunk"), 0);
  ASSERT_EQ(sProtos.created.size(), 4u);
  void *main = sProtos.created[0];
  void *f = sProtos.created[1];
  EXPECT_STREQ(lua_getprotosource(L, main), "=chunk");
  EXPECT_STREQ(lua_getprotosource(L, f), "=chunk");

  EXPECT_EQ(lua_setprotohalt(L, main, 3, recordingHook), 0);  // an empty line
  EXPECT_EQ(lua_setprotohalt(L, f, 2, recordingHook), 0);     // outside f
  EXPECT_EQ(lua_setprotohalt(L, f, 5, recordingHook), 1);
  const int mainLine8 = lua_setprotohalt(L, main, 8, recordingHook);
  EXPECT_GT(mainLine8, 1);
  EXPECT_EQ(lua_setprotohalt(L, main, 2, recordingHook), 1);
  lua_gethalts(L);
  EXPECT_EQ(lua_objlen(L, -1), 2u);
  lua_pop(L, 1);

  ASSERT_EQ(lua_pcall(L, 0, 1, 0), 0);
  EXPECT_EQ(lua_tointeger(L, -1), 3);
  lua_pop(L, 1);
  EXPECT_EQ(sHits, (std::vector<int>{0, mainLine8 - 1, 0}));

  EXPECT_EQ(lua_clearprotohalt(L, f, 5), 1);
  EXPECT_EQ(lua_clearprotohalt(L, f, 5), 0);
  EXPECT_EQ(lua_clearprotohalt(L, main, 3), 0);
}

}  // namespace
