// luaL_loadfile as dofile, loadfile and require meet it: chunk names, whole-file reads,
// unreadable files and code capture of files.
#include <filesystem>
#include <fstream>
#include <string>

#include "toolkit/chunks_fixture.h"

namespace {

namespace fs = std::filesystem;
using tqtest::eval;
using tqtest::run;

class ChunkFileTest : public tqtest::DebuggedUniverseTest {
protected:
  void SetUp() override {
    DebuggedUniverseTest::SetUp();
    dir_ = fs::temp_directory_path() /
           ("tq-chunks-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
            "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
    lua_register(L, "codeChunk", [](lua_State *L) { return TqLua_getFunctionCodeChunk(L, 1); });
  }
  void TearDown() override {
    fs::remove_all(dir_);
    DebuggedUniverseTest::TearDown();
  }
  std::string write(const std::string &name, const std::string &text) {
    const fs::path path = dir_ / name;
    std::ofstream(path, std::ios::binary) << text;
    return path.string();
  }
  static std::string quoted(const std::string &text) { return "[==[" + text + "]==]"; }

  fs::path dir_;
};

TEST_F(ChunkFileTest, ChunkNameIsThePathAfterItsLastBackslash) {
  const std::string plain = write("plain.lua", "return debug.getinfo(1, 'S').source");
  EXPECT_EQ(eval(L, "dofile(" + quoted(plain) + ")"), plain);
  const std::string windowsLike = write("C:\\scripts\\tool.lua", "return debug.getinfo(1, 'S').source");
  EXPECT_EQ(eval(L, "dofile(" + quoted(windowsLike) + ")"), "tool.lua");
}

TEST_F(ChunkFileTest, FileChunkRunsInTheGlobalsAndReadsWhole) {
  std::string big;
  for (int i = 0; i < 20000; ++i) big += "count = count + 1\n";
  const std::string path = write("big.lua", "count = 0\n" + big + "return count");
  ASSERT_GT(big.size(), static_cast<size_t>(LUAL_BUFFERSIZE));
  EXPECT_EQ(eval(L, "loadfile(" + quoted(path) + ")()"), "20000");
  EXPECT_EQ(eval(L, "count"), "20000");
}

TEST_F(ChunkFileTest, InterpreterLineIsSkippedKeepingLineNumbers) {
  const std::string path =
      write("script.lua", "#!/usr/bin/env tqlua\nreturn debug.getinfo(1, 'l').currentline");
  EXPECT_EQ(eval(L, "dofile(" + quoted(path) + ")"), "2");
}

TEST_F(ChunkFileTest, UnreadableFileGivesStatusOneAndTheReason) {
  const std::string missing = (dir_ / "missing.lua").string();
  EXPECT_EQ(luaL_loadfile(L, missing.c_str()), 1);
  EXPECT_EQ(std::string(lua_tostring(L, -1)), "cannot open " + missing + ": No such file or directory");
  lua_pop(L, 1);
  EXPECT_EQ(run(L, "dofile(" + quoted(missing) + ")"),
            "cannot open " + missing + ": No such file or directory");
  EXPECT_EQ(eval(L, "select(2, loadfile(" + quoted(dir_.string()) + "))"),
            "cannot read " + dir_.string() + ": Is a directory");
}

TEST_F(ChunkFileTest, CapturedFileTextIsTheFileBytes) {
  TqLua_setCodeCapturing(&capture, 1);
  const char bytes[] = "local s = 'zero\0byte'\nreturn #s";
  const std::string text(bytes, sizeof bytes - 1);
  const std::string path = write("zero.lua", text);
  EXPECT_EQ(run(L, "f = loadfile(" + quoted(path) + ")"), "");
  EXPECT_EQ(eval(L, "f()"), "9");
  lua_getglobal(L, "f");
  ASSERT_EQ(TqLua_getFunctionCodeChunk(L, -1), 1);
  size_t length = 0;
  const char *captured = lua_tolstring(L, -1, &length);
  EXPECT_EQ(std::string(captured, length), text);
  lua_pop(L, 2);
}

}  // namespace
