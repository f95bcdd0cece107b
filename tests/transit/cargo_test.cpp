// Cargo: value trees built natively, walked, released and converted into messages.
#include <cstdlib>
#include <cstring>

#include "transit_support.h"

namespace transit_test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

class CargoTest : public tqtest::UniverseTest {
protected:
  // Converts the cargo and pushes its value on L; returns the message size.
  size_t deliver(TqTransitCargo *cargo) {
    TqTransitMessage *message = TqTransitMessage_fromCargo(cargo);
    EXPECT_NE(message, nullptr);
    if (!message) return 0;
    const size_t size = message->size;
    EXPECT_EQ(TqTransitValue_unpack(L, TqTransitMessage_packedValue(message)), size);
    TqTransitMessage_free(message);
    return size;
  }
};

TEST_F(CargoTest, ANativeTreeArrivesAsTheSameLuaValue) {
  TqTransitCargo *inner = TqTransitQueue_newCargo();
  TqTransitCargo_pushNumber(inner, 7);

  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_newTable(cargo, 5);
  TqTransitCargo_pushString(cargo, "name");
  TqTransitCargo_pushString(cargo, "cargo");
  TqTransitCargo_pushNumber(cargo, 1);
  TqTransitCargo_pushLString(cargo, "a\0b", 3);
  TqTransitCargo_pushString(cargo, "flag");
  TqTransitCargo_pushBoolean(cargo, 5);
  TqTransitCargo_pushString(cargo, "list");
  TqTransitCargo_newTable(cargo, 2);
  TqTransitCargo_pushNumber(cargo, 1);
  TqTransitCargo_pushNumber(cargo, 0.25);
  TqTransitCargo_pushNumber(cargo, 2);
  TqTransitCargo_pushNil(cargo);
  TqTransitCargo_pushString(cargo, "wrapped");
  TqTransitCargo_pushTransitCargo(cargo, inner);

  // 16 + "name" 24 + "cargo" 24 + 16 + "a\0b" 24 + "flag" 24 + 16 + "list" 24
  // + list (16 + 4 * 16) + "wrapped" 24 + nested (8 + 16).
  EXPECT_EQ(deliver(cargo), 16u + 24 + 24 + 16 + 24 + 24 + 16 + 24 + 80 + 24 + 24);
  lua_setglobal(L, "t");
  EXPECT_EQ(tqtest::eval(L, "t.name"), "cargo");
  EXPECT_EQ(tqtest::eval(L, "t[1] == 'a\\0b'"), "true");
  EXPECT_EQ(tqtest::eval(L, "t.flag"), "true");
  EXPECT_EQ(tqtest::eval(L, "t.list[1] .. ' ' .. tostring(t.list[2]) .. ' ' .. #t.list"), "0.25 nil 1");
  EXPECT_EQ(tqtest::eval(L, "t.wrapped"), "7");
}

TEST_F(CargoTest, DirectObjectsArePackedByTheirClass) {
  unsigned char object[16];
  for (int i = 0; i < 16; ++i) object[i] = static_cast<unsigned char>(i * 7);
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_pushDirectObject(cargo, &kPlainClass, object, 0);
  EXPECT_EQ(deliver(cargo), 16u + 16);
  const void *arrived = TqDirectObject_fromLua(L, -1, &kPlainClass);
  ASSERT_NE(arrived, nullptr);
  EXPECT_EQ(std::memcmp(arrived, object, 16), 0);
}

TEST_F(CargoTest, ACargoWithoutAPackedFormIsNotConverted) {
  static const TqDirectObjectClass fixed = {nullptr, "Fixed", 8, nullptr, nullptr, nullptr, nullptr, nullptr};
  uint64_t object = 0;
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargoNode *table = TqTransitCargo_newTable(cargo, 1);
  TqTransitCargo_pushNumber(cargo, 1);
  TqTransitCargoNode *node = TqTransitCargo_pushDirectObject(cargo, &fixed, &object, 0);
  CaptureStderr();
  EXPECT_EQ(TqTransitMessage_fromCargo(cargo), nullptr);
  EXPECT_EQ(GetCapturedStderr(), "Transit of type 7 unimplemented\n");

  // A table missing entries has no packed form either.
  TqTransitCargo *truncated = TqTransitQueue_newCargo();
  TqTransitCargo_newTable(truncated, 2);
  TqTransitCargo_pushNumber(truncated, 1);
  EXPECT_EQ(TqTransitMessage_fromCargo(truncated), nullptr);
  TqTransitCargo_pushNumber(truncated, 2);
  TqTransitCargo_pushNumber(truncated, 3);
  TqTransitCargo_pushNumber(truncated, 4);
  EXPECT_EQ(deliver(truncated), 16u + 4 * 16);

  // Releasing leaves a direct object's node to its owner, and with it the table.
  CaptureStderr();
  TqTransitCargo_releaseCargo(cargo);
  EXPECT_EQ(GetCapturedStderr(), "Transit of type 7 unimplemented\n");
  std::free(node);
  std::free(table);
}

struct Visit {
  int32_t kind;
  int32_t booleanValue;
  double numberValue;
  std::string text;
  int32_t tablePairCount;
};

void record(void *context, const TqTransitCargoVisit *visit) {
  EXPECT_EQ(visit->pointerValue, nullptr);
  std::string text = visit->stringBytes ? std::string(visit->stringBytes, visit->stringLength) : "";
  static_cast<std::vector<Visit> *>(context)->push_back(
      {visit->kind, visit->booleanValue, visit->numberValue, text, visit->tablePairCount});
}

TEST_F(CargoTest, WalksVisitTablesBeforeAndAfterTheirEntries) {
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_newTable(cargo, 2);
  TqTransitCargo_pushLString(cargo, "k\0y", 3);
  TqTransitCargo_pushBoolean(cargo, 1);
  TqTransitCargo_pushNumber(cargo, 2.5);
  TqTransitCargo_pushNil(cargo);
  std::vector<Visit> visits;
  EXPECT_EQ(TqTransitCargo_iterateCargo(cargo, record, &visits), 1);
  ASSERT_EQ(visits.size(), 6u);
  EXPECT_EQ(visits[0].kind, TqTransitKind_table);
  EXPECT_EQ(visits[0].tablePairCount, 2);
  EXPECT_EQ(visits[1].kind, TqTransitKind_string);
  EXPECT_EQ(visits[1].text, std::string("k\0y", 3));
  EXPECT_EQ(visits[2].kind, TqTransitKind_boolean);
  EXPECT_EQ(visits[2].booleanValue, 1);
  EXPECT_EQ(visits[3].kind, TqTransitKind_number);
  EXPECT_EQ(visits[3].numberValue, 2.5);
  EXPECT_EQ(visits[4].kind, TqTransitKind_nil);
  EXPECT_EQ(visits[5].kind, TqTransitKind_table);
  EXPECT_EQ(visits[5].tablePairCount, 0);
  // A walk leaves the cargo whole.
  EXPECT_EQ(TqTransitCargo_iterateCargo(cargo, nullptr, nullptr), 1);
  TqTransitCargo_releaseCargo(cargo);
}

TEST_F(CargoTest, WalksStopAtLightUserdata) {
  int marker = 0;
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_newTable(cargo, 2);
  TqTransitCargo_pushNumber(cargo, 1);
  TqTransitCargo_pushLightUserData(cargo, &marker);
  TqTransitCargo_pushNumber(cargo, 2);
  TqTransitCargo_pushNumber(cargo, 3);
  std::vector<Visit> visits;
  CaptureStderr();
  EXPECT_EQ(TqTransitCargo_iterateCargo(cargo, record, &visits), 0);
  EXPECT_EQ(GetCapturedStderr(), "Transit of type 2 unimplemented\n");
  EXPECT_EQ(visits.size(), 2u) << "the opening visit and the key";

  // Light userdata still travel.
  EXPECT_EQ(deliver(cargo), 16u + 4 * 16);
  lua_rawgeti(L, -1, 1);
  EXPECT_EQ(lua_touserdata(L, -1), &marker);
}

TEST_F(CargoTest, ReleasingFreesPlainTreesAndLeavesOtherNodes) {
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_newTable(cargo, 1);
  TqTransitCargo_pushString(cargo, "key");
  TqTransitCargo_newTable(cargo, 1);
  TqTransitCargo_pushNumber(cargo, 1);
  TqTransitCargo_pushString(cargo, std::string(100, 'x').c_str());
  TqTransitCargo_releaseCargo(cargo);

  TqTransitCargo_releaseCargo(TqTransitQueue_newCargo());

  int marker = 0;
  TqTransitCargo *pointer = TqTransitQueue_newCargo();
  TqTransitCargoNode *node = TqTransitCargo_pushLightUserData(pointer, &marker);
  CaptureStderr();
  TqTransitCargo_releaseCargo(pointer);
  EXPECT_EQ(GetCapturedStderr(), "Transit of type 2 unimplemented\n");
  std::free(node);  // deliberately left alone by the release
}

TEST_F(CargoTest, ANullCargoAbortsTheProcess) {
  EXPECT_DEATH(TqTransitCargo_releaseCargo(nullptr), "Pointer was null: cargo");
  EXPECT_DEATH(TqTransitCargo_iterateCargo(nullptr, nullptr, nullptr), "Pointer was null: cargo");
}

TEST_F(CargoTest, DumpsOfCargoMessagesFollowTheNodeOrder) {
  TqTransitCargo *cargo = TqTransitQueue_newCargo();
  TqTransitCargo_newTable(cargo, 2);
  TqTransitCargo_pushString(cargo, "b");
  TqTransitCargo_pushNumber(cargo, 1);
  TqTransitCargo_pushString(cargo, "a");
  unsigned char object[16] = {0};
  TqTransitCargo_pushDirectObject(cargo, &kPlainClass, object, 1);
  TqTransitMessage *message = TqTransitMessage_fromCargo(cargo);
  ASSERT_NE(message, nullptr);
  CaptureStderr();
  EXPECT_EQ(TqTransitValue_dump(TqTransitMessage_packedValue(message)), message->size);
  EXPECT_EQ(GetCapturedStderr(), "{\n\t  [ \"b\" ] = 1.000000,\n\t  [ \"a\" ] = ,\n}");
  TqTransitMessage_free(message);
}

}  // namespace
}  // namespace transit_test
