// Property test: random value trees packed in one state arrive deeply equal in another,
// and the packed size is what the format says.
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "transit_support.h"

namespace transit_test {
namespace {

class ValueGenerator {
public:
  ValueGenerator(lua_State *L, uint64_t seed) : L_(L), random_(seed) {}

  void pushTable(int depth) {
    lua_newtable(L_);
    const int pairs = pick(depth < 3 ? 8 : 4);
    for (int pair = 0; pair < pairs; ++pair) {
      pushKey();
      pushValue(depth);
      lua_rawset(L_, -3);
    }
  }

  // A tree reaching exactly maxDepth levels of tables, with random values along the way.
  void pushTree(int maxDepth) {
    pushTable(1);
    if (maxDepth > 1) {
      pushKey();
      pushTree(maxDepth - 1);
      lua_rawset(L_, -3);
    }
  }

private:
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }

  void pushKey() {
    switch (pick(4)) {
      case 0: lua_pushboolean(L_, pick(2)); break;
      case 1: pushNumber(); break;
      case 2: pushString(); break;
      default: pushPointer(); break;
    }
  }

  void pushValue(int depth) {
    switch (pick(depth < 8 ? 9 : 8)) {
      case 0: lua_pushnil(L_); break;
      case 1: lua_pushboolean(L_, pick(2)); break;
      case 2: pushNumber(); break;
      case 3: pushSpecialNumber(); break;
      case 4:
      case 5: pushString(); break;
      case 6: pushPointer(); break;
      case 7: pushDirectObject(); break;
      default: pushTable(depth + 1); break;
    }
  }

  void pushNumber() {
    if (pick(2)) {
      lua_pushnumber(L_, pick(2001) - 1000);
    } else {
      lua_pushnumber(L_, std::uniform_real_distribution<double>(-1e6, 1e6)(random_));
    }
  }

  void pushSpecialNumber() {
    const double specials[] = {std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity(), -0.0,
                               std::numeric_limits<double>::denorm_min(), 9007199254740993.0};
    lua_pushnumber(L_, specials[pick(6)]);
  }

  void pushString() {
    static const char alphabet[] = {'\0', 'a', 'z', ' ', '\n', '\xff', '"'};
    std::string text(pick(4) == 0 ? 1024 + pick(16) : pick(20), ' ');
    for (char &c : text) c = alphabet[pick(sizeof alphabet)];
    lua_pushlstring(L_, text.data(), text.size());
  }

  void pushPointer() {
    lua_pushlightuserdata(L_, reinterpret_cast<void *>(static_cast<uintptr_t>(random_() | 1)));
  }

  void pushDirectObject() {
    auto *instance = static_cast<unsigned char *>(TqDirectObject_checkPushAllocToLua(L_, &kPlainClass));
    for (int i = 0; i < 16; ++i) instance[i] = static_cast<unsigned char>(random_());
  }

  lua_State *L_;
  std::mt19937_64 random_;
};

// The packed size as the format states it, computed from the Lua value.
size_t formulaSize(lua_State *L, int index) {
  switch (lua_type(L, index)) {
    case LUA_TSTRING: return 16 + (lua_objlen(L, index) + 8) / 8 * 8;
    case LUA_TUSERDATA: return 16 + kPlainClass.instanceSize;
    case LUA_TTABLE: {
      size_t size = 16;
      lua_pushnil(L);
      while (lua_next(L, index)) {
        size += formulaSize(L, lua_gettop(L) - 1) + formulaSize(L, lua_gettop(L));
        lua_pop(L, 1);
      }
      return size;
    }
    default: return 16;
  }
}

// Pushes onto B the same scalar key as A holds at index.
void pushKeyCopy(lua_State *A, int a, lua_State *B) {
  switch (lua_type(A, a)) {
    case LUA_TBOOLEAN: lua_pushboolean(B, lua_toboolean(A, a)); break;
    case LUA_TNUMBER: lua_pushnumber(B, lua_tonumber(A, a)); break;
    case LUA_TLIGHTUSERDATA: lua_pushlightuserdata(B, lua_touserdata(A, a)); break;
    default: {
      size_t length = 0;
      const char *bytes = lua_tolstring(A, a, &length);
      lua_pushlstring(B, bytes, length);
    }
  }
}

int pairCount(lua_State *L, int index) {
  int count = 0;
  lua_pushnil(L);
  while (lua_next(L, index)) {
    ++count;
    lua_pop(L, 1);
  }
  return count;
}

::testing::AssertionResult sameValue(lua_State *A, int a, lua_State *B, int b) {
  if (lua_type(A, a) != lua_type(B, b)) {
    return ::testing::AssertionFailure() << luaL_typename(A, a) << " arrived as " << luaL_typename(B, b);
  }
  switch (lua_type(A, a)) {
    case LUA_TNUMBER: {
      const double x = lua_tonumber(A, a), y = lua_tonumber(B, b);
      if (std::isnan(x) ? std::isnan(y) : std::memcmp(&x, &y, sizeof x) == 0) break;
      return ::testing::AssertionFailure() << x << " arrived as " << y;
    }
    case LUA_TSTRING: {
      size_t lengthA = 0, lengthB = 0;
      const char *x = lua_tolstring(A, a, &lengthA), *y = lua_tolstring(B, b, &lengthB);
      if (std::string(x, lengthA) == std::string(y, lengthB)) break;
      return ::testing::AssertionFailure() << "a string of " << lengthA << " bytes changed";
    }
    case LUA_TBOOLEAN:
      if (lua_toboolean(A, a) == lua_toboolean(B, b)) break;
      return ::testing::AssertionFailure() << "a boolean changed";
    case LUA_TLIGHTUSERDATA:
      if (lua_touserdata(A, a) == lua_touserdata(B, b)) break;
      return ::testing::AssertionFailure() << "a pointer changed";
    case LUA_TUSERDATA: {
      void *x = TqDirectObject_fromLua(A, a, &kPlainClass), *y = TqDirectObject_fromLua(B, b, &kPlainClass);
      if (x && y && std::memcmp(x, y, 16) == 0) break;
      return ::testing::AssertionFailure() << "a direct object changed";
    }
    case LUA_TTABLE: {
      if (lua_getmetatable(B, b)) return ::testing::AssertionFailure() << "a table arrived with a metatable";
      if (pairCount(A, a) != pairCount(B, b)) return ::testing::AssertionFailure() << "pair counts differ";
      lua_pushnil(A);
      while (lua_next(A, a)) {
        pushKeyCopy(A, lua_gettop(A) - 1, B);
        lua_rawget(B, b);
        ::testing::AssertionResult same = sameValue(A, lua_gettop(A), B, lua_gettop(B));
        lua_pop(A, 1);
        lua_pop(B, 1);
        if (!same) {
          lua_pop(A, 1);
          return same;
        }
      }
      break;
    }
    default: break;
  }
  return ::testing::AssertionSuccess();
}

class RoundTripTest : public TwoStatesTest {};

TEST_F(RoundTripTest, RandomTreesArriveDeeplyEqual) {
  ValueGenerator generator(source, 0x7A5C0DE);
  for (int round = 0; round < 600; ++round) {
    SCOPED_TRACE(round);
    lua_settop(source, 0);
    lua_settop(destination, 0);
    generator.pushTree(1 + round % 8);
    const size_t measured = TqTransitValue_pack(source, 1, round % 2, nullptr);
    ASSERT_EQ(measured, formulaSize(source, 1));
    std::vector<unsigned char> bytes(measured, 0xAB);
    ASSERT_EQ(TqTransitValue_pack(source, 1, round % 2, bytes.data()), measured);
    ASSERT_EQ(lua_gettop(source), 1);
    ASSERT_EQ(TqTransitValue_unpack(destination, bytes.data()), measured);
    ASSERT_EQ(lua_gettop(destination), 1);
    ASSERT_TRUE(sameValue(source, 1, destination, 1));
  }
}

}  // namespace
}  // namespace transit_test
