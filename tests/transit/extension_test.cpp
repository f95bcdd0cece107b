// Transit extensions: further kinds taught to packing, unpacking and dumping.
#include <cstring>

#include "transit_support.h"

namespace transit_test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

// The extension carries this one C function by a number.
constexpr int32_t kFunctionKind = 1001;
int carriedFunction(lua_State *) { return 0; }

int32_t claimCarriedFunction(lua_State *L, int index, int32_t kind) {
  if (kind == kFunctionKind) return kFunctionKind;
  if (L && index != 0 && kind == LUA_TFUNCTION && lua_tocfunction(L, index) == carriedFunction) {
    return kFunctionKind;
  }
  return 0;
}

size_t packCarriedFunction(int32_t, void *destination, lua_State *, int) {
  const uint64_t token = 0x5EED;
  if (destination) std::memcpy(destination, &token, sizeof token);
  return sizeof token;
}

size_t unpackCarriedFunction(int32_t, lua_State *L, const void *payload) {
  uint64_t token;
  std::memcpy(&token, payload, sizeof token);
  if (token != 0x5EED) return 0;
  lua_pushcfunction(L, carriedFunction);
  return sizeof token;
}

size_t dumpCarriedFunction(int32_t kind, const void *) {
  std::fprintf(stderr, "carried(%d)", kind);
  return 8;
}

// Claims one coroutine but cannot pack it; a later extension that could is never asked.
lua_State *claimedThread = nullptr;
int laterExtensionPacks = 0;
int32_t claimThread(lua_State *L, int index, int32_t kind) {
  return L && index != 0 && kind == LUA_TTHREAD && lua_tothread(L, index) == claimedThread ? 1002 : 0;
}
size_t refuseToPack(int32_t, void *, lua_State *, int) { return 0; }
size_t countPack(int32_t, void *, lua_State *, int) {
  ++laterExtensionPacks;
  return 8;
}
size_t unpackNothing(int32_t, lua_State *, const void *) { return 0; }
size_t dumpNothing(int32_t, const void *) { return 0; }

// Measures one size and writes another.
int inconsistentFunction(lua_State *) { return 0; }
int32_t claimInconsistent(lua_State *L, int index, int32_t kind) {
  return L && index != 0 && kind == LUA_TFUNCTION && lua_tocfunction(L, index) == inconsistentFunction ? 1003 : 0;
}
size_t packInconsistently(int32_t, void *destination, lua_State *, int) { return destination ? 16 : 8; }

class ExtensionTest : public TwoStatesTest {
protected:
  static void SetUpTestSuite() {
    static const TqTransitExtension carried = {claimCarriedFunction, packCarriedFunction,
                                               unpackCarriedFunction, dumpCarriedFunction};
    static const TqTransitExtension refusing = {claimThread, refuseToPack, unpackNothing, dumpNothing};
    static const TqTransitExtension later = {claimThread, countPack, unpackNothing, dumpNothing};
    static const TqTransitExtension *registered = TqTransitQueue_registerExtension(&carried);
    TqTransitQueue_registerExtension(&refusing);
    TqTransitQueue_registerExtension(&later);
    static const TqTransitExtension inconsistent = {claimInconsistent, packInconsistently, unpackNothing,
                                                    dumpNothing};
    TqTransitQueue_registerExtension(&inconsistent);
    ASSERT_EQ(registered->claim, claimCarriedFunction) << "the entry is a copy of the record";
  }
};

TEST_F(ExtensionTest, AClaimedValueTravelsUnderTheExtensionsKind) {
  lua_newtable(source);
  lua_pushcfunction(source, carriedFunction);
  lua_setfield(source, -2, "f");
  std::vector<unsigned char> bytes = pack(source, -1);
  // Table 16 + key "f" 24 + extension value 8 + 8.
  ASSERT_EQ(bytes.size(), 56u);
  int32_t kind;
  std::memcpy(&kind, bytes.data() + 16 + 24, sizeof kind);
  EXPECT_EQ(kind, kFunctionKind);

  EXPECT_EQ(TqTransitValue_unpack(destination, bytes.data()), bytes.size());
  lua_getfield(destination, -1, "f");
  EXPECT_EQ(lua_tocfunction(destination, -1), carriedFunction);

  CaptureStderr();
  EXPECT_EQ(TqTransitValue_dump(bytes.data()), bytes.size());
  EXPECT_EQ(GetCapturedStderr(), "{\n\t  [ \"f\" ] = carried(1001),\n}");

  // Other functions are still refused.
  lua_getglobal(source, "print");
  CaptureStderr();
  EXPECT_EQ(TqTransitValue_pack(source, -1, 0, nullptr), 0u);
  EXPECT_EQ(GetCapturedStderr(), "Transit of type 6 unimplemented\n");
}

TEST_F(ExtensionTest, TheFirstClaimingExtensionDecidesEvenWhenItFails) {
  ASSERT_EQ(tqtest::run(source, "co = coroutine.create(function() end)"), "");
  lua_getglobal(source, "co");
  claimedThread = lua_tothread(source, -1);
  CaptureStderr();
  EXPECT_EQ(TqTransitValue_pack(source, -1, 0, nullptr), 0u);
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_EQ(laterExtensionPacks, 0);
  claimedThread = nullptr;  // its address may be reused by another state's coroutine
}

TEST_F(ExtensionTest, AFailedExtensionUnpackIsAnAssertion) {
  lua_pushcfunction(source, carriedFunction);
  std::vector<unsigned char> bytes = pack(source, -1);
  bytes[8] = 0;  // spoil the token
  EXPECT_EQ(protect(destination, [&](lua_State *L) { TqTransitValue_unpack(L, bytes.data()); }),
            "Assertion failed: payloadSize != 0");
}

TEST_F(ExtensionTest, AMessageWrittenWithAnotherSizeThanMeasuredIsAnAssertion) {
  EXPECT_EQ(protect(source,
                    [](lua_State *L) {
                      lua_pushcfunction(L, inconsistentFunction);
                      TqTransitMessage_fromLuaValue(L, -1, 0);
                    }),
            "Assertion failed: size == packTransitValue( L, index, canUseMoveSemantics, p )");
}

}  // namespace
}  // namespace transit_test
