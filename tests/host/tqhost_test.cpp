#include <gtest/gtest.h>

#include "support/process.h"

namespace {

using tqtest::runProcess;
using tqtest::writeTemporaryFile;

std::string tqhost(const std::string &arguments) { return std::string(TQ_TQHOST) + " " + arguments; }

TEST(Tqhost, RunsAScriptWithItsArguments) {
  const std::string script = writeTemporaryFile(
      "local a, b = ...\nprint(a .. '+' .. b, #arg, arg[0] == ...)\n", ".lua");
  const auto result = runProcess(tqhost(script + " left right"));
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_NE(result.output.find("left+right"), std::string::npos) << result.output;
}

TEST(Tqhost, LuaErrorExitsWithOneAndTheMessage) {
  const std::string script = writeTemporaryFile("local t = nil\nprint(t.field)\n", ".lua");
  const auto result = runProcess(tqhost(script));
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_NE(result.output.find(":2: attempt to index local 't' (a nil value)"), std::string::npos)
      << result.output;
}

TEST(Tqhost, SyntaxErrorExitsWithOne) {
  const std::string script = writeTemporaryFile("print((\n", ".lua");
  const auto result = runProcess(tqhost(script));
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_NE(result.output.find(":2: unexpected symbol near '<eof>'"), std::string::npos) << result.output;
}

TEST(Tqhost, MissingScriptExitsWithTwoAndOneLine) {
  const auto result = runProcess(tqhost("/nonexistent/script.lua"));
  EXPECT_EQ(result.exitStatus, 2);
  EXPECT_EQ(result.output, "tqhost: cannot open script '/nonexistent/script.lua'\n");
}

TEST(Tqhost, UsageErrorsAndHelp) {
  EXPECT_EQ(runProcess(tqhost("")).exitStatus, 2);
  EXPECT_EQ(runProcess(tqhost("--frobnicate x.lua")).exitStatus, 2);
  const auto help = runProcess(tqhost("--help"));
  EXPECT_EQ(help.exitStatus, 0);
  EXPECT_EQ(help.output.rfind("usage: tqhost", 0), 0u);
}

TEST(Tqhost, ExampleRuns) {
  const auto result = runProcess(tqhost(std::string(TQ_EXAMPLES_DIR) + "/hello.lua one"));
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_NE(result.output.find("Hello from the main universe"), std::string::npos);
}

}  // namespace
