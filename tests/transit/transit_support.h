// Helpers shared by the transit tests.
#ifndef TQ_TESTS_TRANSIT_SUPPORT_H
#define TQ_TESTS_TRANSIT_SUPPORT_H

#include <gtest/gtest.h>
#include <tqkernel/tqkernel.h>

#include "support/lua_fixture.h"

#include <functional>
#include <string>
#include <vector>

namespace transit_test {

// Two universes: values leave `source` and arrive in `destination`.
class TwoStatesTest : public ::testing::Test {
protected:
  void SetUp() override;
  void TearDown() override;
  TqLuaUniverse *sourceUniverse = nullptr;
  TqLuaUniverse *destinationUniverse = nullptr;
  lua_State *source = nullptr;
  lua_State *destination = nullptr;
};

// Runs body inside lua_cpcall on L; returns "" or the error text.
std::string protect(lua_State *L, const std::function<void(lua_State *)> &body);

// Runs the chunk and leaves its one result on top of L's stack.
void pushResult(lua_State *L, const std::string &code);

// The value at index packed into a buffer filled with 0xAB beforehand; fails the test when
// measuring and writing disagree.
std::vector<unsigned char> pack(lua_State *L, int index, int canUseMoveSemantics = 0);

// A class of plain data: 16 bytes, copied with TqDirectObject_memcpy.
extern const TqDirectObjectClass kPlainClass;

// A universe whose scripts can make queues: newTransitQueue (its move flag is argument 2).
class QueueTest : public tqtest::UniverseTest {
protected:
  void SetUp() override;
};

// A queue handle as it lies in memory: the mark, then the core.
struct HandleView {
  uint32_t mark;
  const void *core;
};
inline const HandleView &viewOf(const void *handle) {
  return *static_cast<const HandleView *>(handle);
}
// The handle inside the queue object at index.
TqTransitQueue *queueObjectAt(lua_State *L, int index);
// The handle of the queue object in the global of that name.
TqTransitQueue *queueObjectNamed(lua_State *L, const char *global);

}  // namespace transit_test

#endif
