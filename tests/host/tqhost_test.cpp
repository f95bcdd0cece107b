// tqhost's exit statuses and messages. Scripts that run to their end under tqhost are tests
// of their own (tests/host/*.lua under CTest).
#include <gtest/gtest.h>

#include <string>

#include "support/process.h"

namespace {

struct Case {
  std::string arguments;  // after tqhost; SCRIPT stands for the script's path
  const char *script;
  int exitStatus;
  const char *output;  // a part of what it prints
};

TEST(Tqhost, ExitStatusesAndMessages) {
  const std::string examples = TQ_EXAMPLES_DIR;
  const Case cases[] = {
      {"SCRIPT", "local t = nil\nprint(t.field)\n", 1, ":2: attempt to index local 't' (a nil value)"},
      {"SCRIPT", "print((\n", 1, ":2: unexpected symbol near '<eof>'"},
      {"/nonexistent/script.lua", "", 2, "tqhost: cannot open script '/nonexistent/script.lua'\n"},
      {"", "", 2, "usage: tqhost"},
      {"--frobnicate x.lua", "", 2, "usage: tqhost"},
      {"--help", "", 0, "usage: tqhost"},
      {"SCRIPT", "spawnUniverse('bad', 'error(\"boom\")')\nspawnUniverse('good', 'print(\"good done\")')\n", 1,
       "tqhost: universe 'bad': bad:1: boom"},
      {"SCRIPT", "spawnUniverse('good', 'for i = 1, 1e5 do end print(\"good done\")') error('x')", 1, "L: good done\r\n"},
      {examples + "/worker_pool.lua 3 300", "", 0, "L: 300 items processed by 3 workers in "},
      {examples + "/hello.lua one", "", 0, "Hello from the main universe"},
  };
  for (const Case &run : cases) {
    std::string arguments = run.arguments;
    if (arguments == "SCRIPT") arguments = tqtest::writeTemporaryFile(run.script, ".lua");
    const auto result = tqtest::runProcess(std::string(TQ_TQHOST) + " " + arguments);
    EXPECT_EQ(result.exitStatus, run.exitStatus) << arguments << "\n" << result.output;
    EXPECT_NE(result.output.find(run.output), std::string::npos) << arguments << "\n" << result.output;
  }
}

}  // namespace
