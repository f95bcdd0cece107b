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

TEST(Tqhost, SpawnedUniversesGetTheirArgumentsAndRunToTheEnd) {
  const std::string script = writeTemporaryFile(
      "spawnUniverse('worker', 'local n, t = ... print(debug.getregistry().universeName, n, t.word)',"
      " 7, {word = 'seven'})\n"
      "spawnUniverse('parent', 'spawnUniverse(\"child\", \"print(42)\")')\n",
      ".lua");
  const auto result = runProcess(tqhost(script));
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_NE(result.output.find("L: worker\t7\tseven\r\n"), std::string::npos) << result.output;
  EXPECT_NE(result.output.find("L: 42\r\n"), std::string::npos) << result.output;
}

TEST(Tqhost, FailingSpawnedUniverseIsNamedAndFailsTheRunAfterTheOthers) {
  const std::string script = writeTemporaryFile(
      "spawnUniverse('bad', 'error(\"boom\")')\n"
      "spawnUniverse('good', 'for i = 1, 1e5 do end print(\"good done\")')\n"
      "print('main done')\n",
      ".lua");
  const auto result = runProcess(tqhost(script));
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_NE(result.output.find("tqhost: universe 'bad': bad:1: boom"), std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find("good done"), std::string::npos);
  EXPECT_NE(result.output.find("main done"), std::string::npos);
}

TEST(Tqhost, UnsendableArgumentsAreRefused) {
  const std::string script = writeTemporaryFile("spawnUniverse('w', '', print)\n", ".lua");
  const auto result = runProcess(tqhost(script));
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_NE(result.output.find("spawnUniverse: the arguments cannot be sent to another universe"),
            std::string::npos)
      << result.output;
}

TEST(Tqhost, WorkerPoolExampleProcessesEveryItem) {
  const auto result = runProcess(tqhost(std::string(TQ_EXAMPLES_DIR) + "/worker_pool.lua 3 300"));
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_NE(result.output.find("L: 300 items processed by 3 workers in "), std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find(", 0 wrong"), std::string::npos) << result.output;
}

TEST(Tqhost, QueueSentToASpawnedUniverseCarriesItsReplies) {
  const std::string script = writeTemporaryFile(
      "local requests, replies = newTransitQueue(), newTransitQueue()\n"
      "spawnUniverse('echo', 'local q = ... local m = q:dequeue() m.reply:enqueue(m.text:upper())',"
      " requests)\n"
      "requests:enqueue({ text = 'ping', reply = replies })\n"
      "print(replies:dequeue(true, 30))\n",
      ".lua");
  const auto result = runProcess(tqhost(script));
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_NE(result.output.find("L: PING\r\n"), std::string::npos) << result.output;
}

TEST(Tqhost, ExampleRuns) {
  const auto result = runProcess(tqhost(std::string(TQ_EXAMPLES_DIR) + "/hello.lua one"));
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_NE(result.output.find("Hello from the main universe"), std::string::npos);
}

}  // namespace
