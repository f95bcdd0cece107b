#include "transit_support.h"

namespace transit_test {

void TwoStatesTest::SetUp() {
  KrInit();
  sourceUniverse = TqLuaUniverse_open(nullptr, "source");
  destinationUniverse = TqLuaUniverse_open(nullptr, "destination");
  ASSERT_NE(sourceUniverse, nullptr);
  ASSERT_NE(destinationUniverse, nullptr);
  source = TqLuaUniverse_getLuaState(sourceUniverse);
  destination = TqLuaUniverse_getLuaState(destinationUniverse);
}

void TwoStatesTest::TearDown() {
  TqLuaUniverse_close(sourceUniverse);
  TqLuaUniverse_close(destinationUniverse);
}

namespace {

int runBody(lua_State *L) {
  auto *body = static_cast<const std::function<void(lua_State *)> *>(lua_touserdata(L, 1));
  lua_pop(L, 1);
  (*body)(L);
  return 0;
}

}  // namespace

std::string protect(lua_State *L, const std::function<void(lua_State *)> &body) {
  const int top = lua_gettop(L);
  std::string error;
  if (lua_cpcall(L, runBody, const_cast<std::function<void(lua_State *)> *>(&body)) != 0) {
    error = lua_tostring(L, -1) ? lua_tostring(L, -1) : "(non-string error)";
  }
  lua_settop(L, top);
  return error;
}

void pushResult(lua_State *L, const std::string &code) {
  ASSERT_EQ(luaL_loadbuffer(L, code.data(), code.size(), "=test"), 0) << lua_tostring(L, -1);
  ASSERT_EQ(lua_pcall(L, 0, 1, 0), 0) << lua_tostring(L, -1);
}

std::vector<unsigned char> pack(lua_State *L, int index, int canUseMoveSemantics) {
  const size_t measured = TqTransitValue_pack(L, index, canUseMoveSemantics, nullptr);
  std::vector<unsigned char> bytes(measured, 0xAB);
  if (measured == 0) return bytes;
  EXPECT_EQ(TqTransitValue_pack(L, index, canUseMoveSemantics, bytes.data()), measured);
  return bytes;
}

void QueueTest::SetUp() {
  tqtest::UniverseTest::SetUp();
  lua_register(L, "newTransitQueue", TqTransitQueue_new_L);
}

TqTransitQueue *queueObjectAt(lua_State *L, int index) {
  return static_cast<TqTransitQueue *>(TqDirectObject_fromLua(L, index, &TqTransitQueue_Class));
}

TqTransitQueue *queueObjectNamed(lua_State *L, const char *global) {
  lua_getglobal(L, global);
  TqTransitQueue *queue = queueObjectAt(L, -1);
  lua_pop(L, 1);
  return queue;
}

const TqDirectObjectClass kPlainClass = {nullptr, "Plain", 16, nullptr, nullptr,
                                         TqDirectObject_memcpy, nullptr, nullptr};

}  // namespace transit_test
