// Helpers shared by the test binaries.
#ifndef TQ_TESTS_LUA_FIXTURE_H
#define TQ_TESTS_LUA_FIXTURE_H

#include <gtest/gtest.h>
#include <tqkernel/tqkernel.h>

#include <functional>
#include <string>

namespace tqtest {

// Runs a chunk with lua_pcall; returns "" on success, else the error value as text.
std::string run(lua_State *L, const std::string &code);

// The message of the TqLuaException that f throws, or "nothing thrown".
std::string programErrorOf(const std::function<void()> &f);

// Runs body(L) inside lua_cpcall; returns "" or the error text.
std::string protect(lua_State *L, const std::function<void(lua_State *)> &body);

// A secondary universe (creating it calls KrInit first) with the standard libraries.
class UniverseTest : public ::testing::Test {
protected:
  void SetUp() override;
  void TearDown() override;
  TqLuaUniverse *universe = nullptr;
  lua_State *L = nullptr;
};

// Runs body in a fresh child process (the binary re-executed for this test only), for
// tests of process-wide state such as the setup lists or the main universe. Failures of
// gtest assertions inside body fail the test.
void inFreshProcess(const std::function<void()> &body);

}  // namespace tqtest

#endif
