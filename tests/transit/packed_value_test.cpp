// The packed format, refusals and the unpacker's failures.
#include <cstring>

#include "transit_support.h"

namespace transit_test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

int32_t kindAt(const std::vector<unsigned char> &bytes, size_t offset = 0) {
  int32_t kind;
  std::memcpy(&kind, bytes.data() + offset, sizeof kind);
  return kind;
}

class PackedValueTest : public TwoStatesTest {};

TEST_F(PackedValueTest, StringsKeepTheirBytesAndRoundUpWithFiller) {
  lua_pushlstring(source, "abc", 3);
  std::vector<unsigned char> bytes = pack(source, -1);
  ASSERT_EQ(bytes.size(), 24u);
  EXPECT_EQ(kindAt(bytes), TqTransitKind_string);
  EXPECT_EQ(bytes[4], 0xAB) << "padding is left unwritten";
  uint64_t length;
  std::memcpy(&length, bytes.data() + 8, sizeof length);
  EXPECT_EQ(length, 3u);
  EXPECT_EQ(std::memcmp(bytes.data() + 16, "abc", 4), 0) << "bytes and the terminating zero";
  EXPECT_EQ(bytes[20], 0xAB);
  EXPECT_EQ(bytes[23], 0xAB);

  lua_pushlstring(source, "1234567", 7);
  EXPECT_EQ(pack(source, -1).size(), 24u);
  lua_pushlstring(source, "12345678", 8);
  EXPECT_EQ(pack(source, -1).size(), 32u);

  const char withZeros[] = "a\0b\0\0c";
  lua_pushlstring(source, withZeros, 6);
  bytes = pack(source, -1);
  EXPECT_EQ(TqTransitValue_unpack(destination, bytes.data()), bytes.size());
  size_t arrivedLength = 0;
  const char *arrived = lua_tolstring(destination, -1, &arrivedLength);
  EXPECT_EQ(std::string(arrived, arrivedLength), std::string(withZeros, 6));
}

TEST_F(PackedValueTest, ScalarsAndAnAbsentSlot) {
  lua_settop(source, 0);
  std::vector<unsigned char> absent = pack(source, 1);
  ASSERT_EQ(absent.size(), 16u);
  EXPECT_EQ(kindAt(absent), TqTransitKind_none);
  EXPECT_EQ(kindAt(absent, 8), 0);
  EXPECT_EQ(TqTransitValue_unpack(destination, absent.data()), 16u);
  EXPECT_TRUE(lua_isnil(destination, -1));

  int marker = 0;
  lua_pushlightuserdata(source, &marker);
  std::vector<unsigned char> pointer = pack(source, -1);
  ASSERT_EQ(pointer.size(), 16u);
  TqTransitValue_unpack(destination, pointer.data());
  EXPECT_EQ(lua_touserdata(destination, -1), &marker);
  EXPECT_EQ(lua_type(destination, -1), LUA_TLIGHTUSERDATA);
}

TEST_F(PackedValueTest, TablesArriveAsNewTablesWithoutSharing) {
  pushResult(source, "return {}");
  std::vector<unsigned char> empty = pack(source, -1);
  ASSERT_EQ(empty.size(), 16u);
  EXPECT_EQ(kindAt(empty, 8), 0) << "pair count";

  pushResult(source, "local shared = { 1 } return { a = shared, b = shared }");
  std::vector<unsigned char> bytes = pack(source, -1);
  // 16 + 2 * (key 24 + shared table (16 + 16 + 16)).
  EXPECT_EQ(bytes.size(), 16u + 2 * (24 + 48));
  TqTransitValue_unpack(destination, bytes.data());
  lua_setglobal(destination, "t");
  EXPECT_EQ(tqtest::eval(destination, "t.a ~= t.b and t.a[1] == 1 and t.b[1] == 1"), "true");
}

TEST_F(PackedValueTest, MessagesHoldTheSizeANullLinkAndTheValue) {
  pushResult(source, "return { 'x', 2.5, true }");
  const int top = lua_gettop(source);
  TqTransitMessage *message = TqTransitMessage_fromLuaValue(source, -1, 0);
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(lua_gettop(source), top);
  EXPECT_EQ(message->size, TqTransitValue_pack(source, -1, 0, nullptr));
  EXPECT_EQ(message->next, nullptr);
  EXPECT_EQ(TqTransitValue_unpack(destination, TqTransitMessage_packedValue(message)), message->size);
  TqTransitMessage_free(message);
  lua_setglobal(destination, "t");
  EXPECT_EQ(tqtest::eval(destination, "t[1] .. t[2] .. tostring(t[3])"), "x2.5true");
}

struct Refusal {
  const char *code;
  const char *message;
};

TEST_F(PackedValueTest, RefusedValuesPrintWhyAndPackNothing) {
  const Refusal refusals[] = {
      {"return print", "Transit of type 6 unimplemented\n"},
      {"return { 1, { f = print } }", "Transit of type 6 unimplemented\n"},
      {"return { [print] = 1 }", "Transit of type 6 unimplemented\n"},
      {"return { a = { b = setmetatable({}, {}) } }",
       "Tables with metatables are not supported for transit copying\n"},
      {"return setmetatable({}, { __metatable = false })",
       "Tables with metatables are not supported for transit copying\n"},
      {"return { newproxy() }", "Transit of type 7 unimplemented\n"},
      {"return { coroutine.create(function() end) }", "Transit of type 8 unimplemented\n"},
  };
  for (const Refusal &refusal : refusals) {
    SCOPED_TRACE(refusal.code);
    pushResult(source, refusal.code);
    const int top = lua_gettop(source);
    CaptureStderr();
    EXPECT_EQ(TqTransitValue_pack(source, top, 0, nullptr), 0u);
    EXPECT_EQ(GetCapturedStderr(), refusal.message);
    CaptureStderr();
    EXPECT_EQ(TqTransitMessage_fromLuaValue(source, top, 0), nullptr);
    EXPECT_EQ(GetCapturedStderr(), refusal.message);
    EXPECT_EQ(lua_gettop(source), top);
    lua_settop(source, 0);
  }
}

TEST_F(PackedValueTest, ASelfContainingTableOverflowsTheSourceStack) {
  ASSERT_EQ(tqtest::run(source, "t = { 1 } t.self = t"), "");
  EXPECT_EQ(protect(source,
                    [](lua_State *L) {
                      lua_getglobal(L, "t");
                      TqTransitValue_pack(L, -1, 0, nullptr);
                    }),
            "stack overflow (No space in source for copy.)");
  // Through a method called from Lua the error carries the caller's position.
  lua_pushcfunction(source, [](lua_State *L) -> int {
    TqTransitMessage_free(TqTransitMessage_fromLuaValue(L, 1, 0));
    return 0;
  });
  lua_setglobal(source, "send");
  EXPECT_EQ(tqtest::run(source, "send(t)"), "test:1: stack overflow (No space in source for copy.)");
}

TEST_F(PackedValueTest, UnpackingNeedsStackRoomInTheDestination) {
  lua_pushnumber(source, 1);
  std::vector<unsigned char> bytes = pack(source, -1);
  EXPECT_EQ(protect(destination,
                    [&](lua_State *L) {
                      luaL_checkstack(L, 7999, "test");
                      // Leaves too little room for unpacking, enough for describing the error.
                      for (int i = 0; i < 7989; ++i) lua_pushnil(L);
                      TqTransitValue_unpack(L, bytes.data());
                    }),
            "stack overflow (No space in destination for copy.)");
}

TEST_F(PackedValueTest, AnUnknownKindIsAnAssertion) {
  std::vector<unsigned char> bytes(16, 0);
  const int32_t kind = 42;
  std::memcpy(bytes.data(), &kind, sizeof kind);
  CaptureStderr();
  EXPECT_EQ(protect(destination, [&](lua_State *L) { TqTransitValue_unpack(L, bytes.data()); }),
            "Assertion failed: 0");
  EXPECT_EQ(GetCapturedStderr(), "Unknown lua type: 42");
}

TEST_F(PackedValueTest, CopyingBetweenStatesGoesThroughAPackedValue) {
  pushResult(source, "return { list = { 'a', 'b' }, n = -0.5 }");
  TqTransitQueue_copyFromLuaStateToLuaState(source, -1, destination, 0);
  lua_setglobal(destination, "t");
  EXPECT_EQ(tqtest::eval(destination, "t.list[1] .. t.list[2] .. t.n"), "ab-0.5");
}

TEST_F(PackedValueTest, CopyingAnUnpackableValueAbortsTheProcess) {
  EXPECT_DEATH(
      {
        lua_getglobal(source, "print");
        TqTransitQueue_copyFromLuaStateToLuaState(source, -1, destination, 0);
      },
      "Transit of type 6 unimplemented");
}

// Dumps print tables one pair per line, each level indented by a tab and two spaces.
TEST_F(PackedValueTest, DumpsShowTheValueOnStandardError) {
  pushResult(source, "return { 'text', { true, false } }");
  std::vector<unsigned char> bytes = pack(source, -1);
  CaptureStderr();
  EXPECT_EQ(TqTransitValue_dump(bytes.data()), bytes.size());
  EXPECT_EQ(GetCapturedStderr(),
            "{\n"
            "\t  [ 1.000000 ] = \"text\",\n"
            "\t  [ 2.000000 ] = \t  {\n"
            "\t  \t  [ 1.000000 ] = true,\n"
            "\t  \t  [ 2.000000 ] = false,\n"
            "\t  },\n"
            "}");

  lua_pushlightuserdata(source, reinterpret_cast<void *>(0x10));
  bytes = pack(source, -1);
  CaptureStderr();
  TqTransitValue_dump(bytes.data());
  EXPECT_EQ(GetCapturedStderr(), "LightUserData( 0x10 )");

  lua_pushnil(source);
  bytes = pack(source, -1);
  CaptureStderr();
  TqTransitValue_dump(bytes.data());
  EXPECT_EQ(GetCapturedStderr(), "nil");
}

TEST_F(PackedValueTest, DumpingAnUnknownKindAbortsTheProcess) {
  std::vector<unsigned char> bytes(32, 0);
  const int32_t nestedCargo = TqTransitKind_nestedCargo;
  std::memcpy(bytes.data(), &nestedCargo, sizeof nestedCargo);
  EXPECT_DEATH(TqTransitValue_dump(bytes.data()), "Unknown lua type: 100");
}

}  // namespace
}  // namespace transit_test
