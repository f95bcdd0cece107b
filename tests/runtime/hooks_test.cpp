// Host hooks, set the way a host sets them and met the way scripts meet them: io, dofile
// and require of Lua and native modules.
#include <dlfcn.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/lua_fixture.h"

namespace {

namespace fs = std::filesystem;
using tqtest::eval;
using tqtest::run;

// What the hooks were asked, and which paths they refuse (by prefix).
std::vector<std::string> sOpened;
std::vector<std::string> sLoaded;
std::string sRefusedPrefix;
bool sRefuseLibraries = false;

bool refused(const char *path) {
  return !sRefusedPrefix.empty() && std::string(path).rfind(sRefusedPrefix, 0) == 0;
}

FILE *openFile(const char *path, const char *mode) {
  sOpened.push_back(std::string(path) + " " + mode);
  return refused(path) ? nullptr : std::fopen(path, mode);
}

void *loadLibrary(const char *path) {
  sLoaded.push_back(path);
  return sRefuseLibraries ? nullptr : dlopen(path, RTLD_NOW);
}

class HooksTest : public tqtest::UniverseTest {
protected:
  void SetUp() override {
    sOpened.clear();
    sLoaded.clear();
    sRefusedPrefix.clear();
    sRefuseLibraries = false;
    UniverseTest::SetUp();
    dir_ = fs::temp_directory_path() /
           (std::string("tq-hooks-") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_ / "first");
    fs::create_directories(dir_ / "second");
  }
  void TearDown() override {
    UniverseTest::TearDown();
    KrHooks_setFOpenHook(nullptr);
    KrHooks_setLoadLibraryHook(nullptr);
    fs::remove_all(dir_);
  }
  std::string write(const std::string &name, const std::string &text) {
    const fs::path path = dir_ / name;
    std::ofstream(path) << text;
    return path.string();
  }
  std::string path(const std::string &name) const { return (dir_ / name).string(); }
  static std::string quoted(const std::string &text) { return "[==[" + text + "]==]"; }

  fs::path dir_;
};

TEST_F(HooksTest, WithoutHookIoOpenIsPlainFopen) {
  const std::string missing = path("missing.txt");
  EXPECT_EQ(eval(L, "select(2, io.open(" + quoted(missing) + "))"), missing + ": No such file or directory");
  const std::string written = path("written.txt");
  EXPECT_EQ(run(L, "local f = io.open(" + quoted(written) + ", 'w') f:write('text') f:close()"), "");
  EXPECT_EQ(eval(L, "io.open(" + quoted(written) + "):read('*a')"), "text");
}

TEST_F(HooksTest, FileOpenHookSeesEveryOpenOfTheIoLibraryWithItsMode) {
  const std::string file = write("data.txt", "line\n");
  KrHooks_setFOpenHook(openFile);
  const std::string name = quoted(file);
  EXPECT_EQ(run(L, "io.open(" + name + ", 'a+'):close()"), "");
  EXPECT_EQ(run(L, "for line in io.lines(" + name + ") do end"), "");
  EXPECT_EQ(run(L, "io.input(" + name + ") io.input():close()"), "");
  EXPECT_EQ(run(L, "io.output(" + name + ") io.output():close()"), "");
  EXPECT_EQ(sOpened, (std::vector<std::string>{file + " a+", file + " r", file + " r", file + " w"}));
}

TEST_F(HooksTest, RefusedOpenReadsAsAMissingFile) {
  const std::string file = write("data.txt", "line\n");
  KrHooks_setFOpenHook(openFile);
  sRefusedPrefix = dir_.string();
  EXPECT_EQ(eval(L, "select(2, io.open(" + quoted(file) + "))"), file + ": No such file or directory");
  EXPECT_EQ(run(L, "io.lines(" + quoted(file) + ")"), "test:1: bad argument #1 to 'lines' (" + file +
                                                          ": No such file or directory)");
  EXPECT_EQ(run(L, "dofile(" + quoted(file) + ")"), "cannot open " + file + ": No such file or directory");
}

TEST_F(HooksTest, DofileReadsThroughTheHookInBinaryMode) {
  const std::string script = write("script.lua", "return 'ran'");
  KrHooks_setFOpenHook(openFile);
  EXPECT_EQ(eval(L, "dofile(" + quoted(script) + ")"), "ran");
  EXPECT_EQ(sOpened, std::vector<std::string>{script + " rb"});
}

TEST_F(HooksTest, RequireOfALuaModuleMovesPastARefusedCandidate) {
  const std::string first = write("first/mod.lua", "return 'first'");
  const std::string second = write("second/mod.lua", "return 'second'");
  KrHooks_setFOpenHook(openFile);
  sRefusedPrefix = path("first");
  EXPECT_EQ(run(L, "package.path = " + quoted(path("first/?.lua;") + path("second/?.lua"))), "");
  EXPECT_EQ(eval(L, "require('mod')"), "second");
  EXPECT_EQ(sOpened, (std::vector<std::string>{first + " r", second + " r", second + " rb"}));
}

class NativeModuleTest : public HooksTest {
protected:
  void SetUp() override {
    HooksTest::SetUp();
    module_ = TQ_NATIVE_MODULE;
    ASSERT_EQ(run(L, "package.path = '' package.cpath = " +
                         quoted(path("first/?.so;") + fs::path(module_).parent_path().string() + "/?.so")),
              "");
  }
  std::string module_;
};

TEST_F(NativeModuleTest, RequireGoesThroughBothHooks) {
  KrHooks_setFOpenHook(openFile);
  KrHooks_setLoadLibraryHook(loadLibrary);
  EXPECT_EQ(eval(L, "require('tqnative').answer()"), "42");
  EXPECT_EQ(sOpened, (std::vector<std::string>{path("first/tqnative.so") + " r", module_ + " r"}));
  EXPECT_EQ(sLoaded, std::vector<std::string>{module_});
}

TEST_F(NativeModuleTest, RefusedCandidateIsSkipped) {
  write("first/tqnative.so", "not a library");
  KrHooks_setFOpenHook(openFile);
  KrHooks_setLoadLibraryHook(loadLibrary);
  sRefusedPrefix = path("first");
  EXPECT_EQ(eval(L, "require('tqnative').answer()"), "42");
  EXPECT_EQ(sLoaded, std::vector<std::string>{module_});
}

TEST_F(NativeModuleTest, LibraryHookReturningNullGivesThePackageLibrarysError) {
  KrHooks_setLoadLibraryHook(loadLibrary);
  sRefuseLibraries = true;
  EXPECT_EQ(run(L, "require('tqnative')"), "error loading module 'tqnative' from file '" + module_ +
                                               "':\n\tcannot load library (no reason given)");
  sRefuseLibraries = false;
  KrHooks_setLoadLibraryHook(nullptr);
  EXPECT_EQ(eval(L, "require('tqnative').answer()"), "42");
}

}  // namespace
