// Transit seen from native code: extensions, cargo that is not sent, the process aborts,
// native resources shared and moved by direct objects. (A reader blocked on a queue and woken
// by another thread is tests/host/spawning.lua's.)
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/lua_fixture.h"

namespace {

using tqtest::UniverseTest;

// Packs a function by a token: claims carriedFunction (kind 1001) and a function that
// measures one size and writes another (1003); claims one coroutine without packing it
// (1002), after which a second extension that would pack it is never asked.
int carriedFunction(lua_State *) { return 0; }
int inconsistentFunction(lua_State *) { return 0; }
lua_State *sClaimedThread = nullptr;
int sLaterPacks = 0;
int32_t claim(lua_State *L, int index, int32_t kind) {
  if (kind >= 1001 && kind <= 1003) return kind;
  if (!L || index == 0) return 0;
  if (kind == LUA_TTHREAD) return lua_tothread(L, index) == sClaimedThread ? 1002 : 0;
  return lua_tocfunction(L, index) == carriedFunction ? 1001 : lua_tocfunction(L, index) == inconsistentFunction ? 1003 : 0;
}
size_t packToken(int32_t kind, void *destination, lua_State *, int) {
  const uint64_t token = 0x5EED;
  if (destination) std::memcpy(destination, &token, sizeof token);
  return kind == 1002 ? 0 : kind == 1003 && destination ? 16 : 8;
}
size_t unpackToken(int32_t, lua_State *L, const void *payload) {
  if (*static_cast<const uint64_t *>(payload) != 0x5EED) return 0;
  return lua_pushcfunction(L, carriedFunction), 8;
}
size_t dumpToken(int32_t kind, const void *) { return std::fprintf(stderr, "carried(%d)", kind), 8; }
size_t countPack(int32_t, void *, lua_State *, int) { return ++sLaterPacks, 8; }

std::string packed(lua_State *L, std::vector<uint64_t> &bytes) {
  bytes.assign(TqTransitValue_pack(L, -1, 0, nullptr) / 8 + 1, 0);
  TqTransitValue_pack(L, -1, 0, bytes.data());
  testing::internal::CaptureStderr();
  TqTransitValue_dump(bytes.data());
  return testing::internal::GetCapturedStderr();
}

TEST_F(UniverseTest, ExtensionsPackFurtherKinds) {
  static const TqTransitExtension token = {claim, packToken, unpackToken, dumpToken};
  static const TqTransitExtension later = {claim, countPack, unpackToken, dumpToken};
  EXPECT_EQ(TqTransitQueue_registerExtension(&token)->claim, claim);  // the entry is a copy
  TqTransitQueue_registerExtension(&later);
  lua_newtable(L);
  lua_pushcfunction(L, carriedFunction);
  lua_setfield(L, -2, "f");
  std::vector<uint64_t> bytes;
  EXPECT_EQ(packed(L, bytes), "{\n\t  [ \"f\" ] = carried(1001),\n}");
  EXPECT_EQ(TqTransitValue_unpack(L, bytes.data()), 56u);  // table 16 + key 24 + 8 + token 8
  lua_getfield(L, -1, "f");
  EXPECT_EQ(lua_tocfunction(L, -1), carriedFunction);
  bytes[6] = 0;  // spoils the token
  EXPECT_EQ(tqtest::protect(L, [&](lua_State *S) { TqTransitValue_unpack(S, bytes.data()); }),
            "Assertion failed: payloadSize != 0");
  sClaimedThread = lua_newthread(L);
  EXPECT_EQ(TqTransitValue_pack(L, -1, 0, nullptr), 0u);
  EXPECT_EQ(sLaterPacks, 0);
  sClaimedThread = nullptr;
  EXPECT_EQ(tqtest::protect(L, [](lua_State *S) {
              lua_pushcfunction(S, inconsistentFunction), TqTransitMessage_fromLuaValue(S, -1, 0);
            }), "Assertion failed: size == packTransitValue( L, index, canUseMoveSemantics, p )");
}

TEST(Transit, ReleasedCargoLeavesObjectsAndPointersAlone) {
  int marker = 0;
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargoNode *node = TqTransitCargo_pushLightUserData(cargo, &marker);
  testing::internal::CaptureStderr();
  TqTransitCargo_releaseCargo(cargo);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Transit of type 2 unimplemented\n");
  std::free(node);
}

TEST(Transit, CorruptionAndUnsendableValuesAbortTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(TqTransitCargo_releaseCargo(nullptr), "Pointer was null: cargo");
  EXPECT_DEATH(TqTransitCargo_iterateCargo(nullptr, nullptr, nullptr), "Pointer was null: cargo");
  const uint64_t nestedCargo[4] = {100, 0, 0, 0};
  EXPECT_DEATH(TqTransitValue_dump(nestedCargo), "Unknown lua type: 100");
  EXPECT_DEATH({
    lua_State *L = TqRawLuaState_open();
    lua_pushcfunction(L, carriedFunction);
    TqTransitQueue_copyFromLuaStateToLuaState(L, -1, L, 0);
  }, "Transit of type 6 unimplemented");
  EXPECT_DEATH({
    TqTransitQueue *queue = TqTransitQueue_createQueue(0);
    TqTransitCargo *cargo = TqTransitQueue_newCargo();
    TqTransitCargo_pushNumber(cargo, 1);
    TqTransitQueue_enqueueAndReleaseCargo(queue, cargo);
    TqTransitQueue_dequeueCopyOfString(queue, 0, 0);
  }, "holds another kind");
}

// A native resource shared by handles: copies take a reference, moves carry it over, and
// the packed copy is disposed of (without a state) after arrival.
int sLive = 0, sDisposals = 0;
struct Handle {
  int *references;
  uint64_t spare;
};
void copyHandle(void *to, void *from, size_t, int move) {
  auto *source = static_cast<Handle *>(from);
  *static_cast<Handle *>(to) = *source;
  if (move) source->references = nullptr;
  else if (source->references) ++*source->references;
}
int releaseHandle(void *instance, lua_State *L) {
  sDisposals += L == nullptr;
  auto *handle = static_cast<Handle *>(instance);
  if (handle->references && --*handle->references == 0) delete handle->references, --sLive;
  return handle->references = nullptr, 0;
}
const TqDirectObjectMethod kHandleMethods[] = {{"__gc", releaseHandle}, {nullptr, nullptr}};
const TqDirectObjectClass kHandle = {nullptr, "Handle", sizeof(Handle), nullptr, nullptr, copyHandle,
                                     kHandleMethods, nullptr};
const TqDirectObjectClass kSubHandle = {&kHandle, "SubHandle", 0, nullptr, nullptr, nullptr, nullptr, nullptr};

TEST(Transit, CopiesShareAndMovesCarryANativeResource) {
  KrInit();
  TqLuaUniverse *from = TqLuaUniverse_open(nullptr, "from"), *to = TqLuaUniverse_open(nullptr, "to");
  lua_State *S = TqLuaUniverse_getLuaState(from), *D = TqLuaUniverse_getLuaState(to);
  auto *original = static_cast<Handle *>(TqDirectObject_checkPushAllocToLua(S, &kSubHandle));
  int *references = original->references = new int(1);
  ++sLive;
  TqTransitQueue_copyFromLuaStateToLuaState(S, -1, D, 0);
  EXPECT_EQ(*references, 2);
  EXPECT_EQ(sDisposals, 1);
  EXPECT_EQ(static_cast<Handle *>(TqDirectObject_fromLua(D, -1, &kHandle))->references, references);
  EXPECT_EQ(TqDirectObject_copyFromLuaStateToLuaState(S, -1, D, 0), 1);  // no packed instance
  EXPECT_EQ(*references, 3);
  EXPECT_EQ(sDisposals, 1);
  std::vector<unsigned char> packed(8 + sizeof(Handle));
  ASSERT_EQ(TqDirectObject_packFromLua(S, -1, packed.data(), 0), packed.size());
  EXPECT_EQ(TqDirectObject_unpack_v2(packed.data(), D, 0), packed.size());  // without ownership
  TqDirectObject_disposePacked(packed.data());
  EXPECT_EQ(*references, 4);
  TqTransitQueue_copyFromLuaStateToLuaState(S, -1, D, 1);
  EXPECT_EQ(original->references, nullptr);
  EXPECT_EQ(*references, 4);
  lua_pushnumber(S, 1);
  EXPECT_EQ(TqDirectObject_copyFromLuaStateToLuaState(S, -1, D, 0), 0);
  EXPECT_EQ(TqDirectObject_packFromLua(S, -1, nullptr, 0), 0u);
  EXPECT_TRUE(TqDirectObject_classHasSuperclass(&kSubHandle, &kHandle));
  EXPECT_FALSE(TqDirectObject_classHasSuperclass(&kHandle, &kSubHandle));
  EXPECT_FALSE(TqDirectObject_classHasSuperclass(nullptr, &kHandle));
  TqLuaUniverse_close(from);
  TqLuaUniverse_close(to);
  EXPECT_EQ(sLive, 0);
}

}  // namespace
