// A universe whose Lua code can plant halts and look at prototypes through a few globals.
#ifndef TQ_TESTS_CORE_FIXTURE_H
#define TQ_TESTS_CORE_FIXTURE_H

#include <vector>

#include "support/lua_fixture.h"

namespace coretest {

// The 0-based pc of every halt hit by recordingHook, in order.
std::vector<int> &haltHits();

// A halt hook that records the halted instruction (as lua_getinfo's currentpc) and returns.
void recordingHook(lua_State *L, lua_Debug *ar);

// Number of instructions of the Lua function at idx.
int codeSize(lua_State *L, int idx);

// Globals for the tests' Lua code:
//   haltall(f)         plants recordingHook on every instruction of f; returns #gethalts(f)
//   sethalt(f, pc)     lua_sethalt with recordingHook;   clearhalt(f, pc): lua_clearhalt
//   gethalts(f)        lua_gethalts;   describe(f): lua_describefunction (nothing for others)
//   disassemble(w)     lua_disassemble;   hits(): #haltHits()
class CoreTest : public tqtest::UniverseTest {
protected:
  void SetUp() override;
};

}  // namespace coretest

#endif
