#include "host/universes.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace tqhost {
namespace {

std::mutex sThreadsMutex;
std::vector<std::thread> sThreads;
std::atomic<bool> sAnyFailed{false};

void reportFailure(const std::string &name, const char *message) {
  std::fprintf(stderr, "tqhost: universe '%s': %s\n", name.c_str(), message);
  sAnyFailed = true;
}

// Runs source in a new universe with the arguments packed in message; on its own thread.
void runUniverse(const std::string &name, const std::string &source, TqTransitMessage *message) {
  TqLuaUniverse *universe = TqLuaUniverse_open(nullptr, name.c_str());
  if (!universe) {
    TqTransitMessage_free(message);
    reportFailure(name, "the universe could not be created");
    return;
  }
  lua_State *L = TqLuaUniverse_getLuaState(universe);
  try {
    lua_pushcfunction(L, addTraceback);
    const std::string chunkName = "=" + name;  // errors read "name:line:"
    const int status = luaL_loadbuffer(L, source.data(), source.size(), chunkName.c_str());
    TqTransitValue_unpack(L, TqTransitMessage_packedValue(message));
    if (status != 0) {
      reportFailure(name, lua_tostring(L, -2));
    } else {
      const int count = static_cast<int>(lua_objlen(L, -1));
      luaL_checkstack(L, count, "too many arguments");
      for (int i = 1; i <= count; ++i) lua_rawgeti(L, -i, i);
      lua_remove(L, -count - 1);
      if (lua_pcall(L, count, 0, 1) != 0) reportFailure(name, lua_tostring(L, -1));
    }
  } catch (const std::exception &e) {
    reportFailure(name, e.what());
  }
  TqTransitMessage_free(message);
  try {
    TqLuaUniverse_close(universe);
  } catch (const std::exception &e) {
    reportFailure(name, e.what());
  }
}

// spawnUniverse(name, source, ...): runs source in a new universe on a new thread,
// passing the extra arguments across by transit.
int spawnUniverse_L(lua_State *L) {
  const std::string name = luaL_checkstring(L, 1);
  size_t length = 0;
  const char *source = luaL_checklstring(L, 2, &length);
  const int count = lua_gettop(L) - 2;
  lua_createtable(L, count, 0);
  for (int i = 1; i <= count; ++i) {
    lua_pushvalue(L, i + 2);
    lua_rawseti(L, -2, i);
  }
  TqTransitMessage *message = TqTransitMessage_fromLuaValue(L, -1, 0);
  if (!message) return luaL_error(L, "spawnUniverse: the arguments cannot be sent to another universe");
  try {
    std::lock_guard<std::mutex> lock(sThreadsMutex);
    sThreads.emplace_back(runUniverse, name, std::string(source, length), message);
  } catch (const std::system_error &e) {
    TqTransitMessage_free(message);
    return luaL_error(L, "spawnUniverse: %s", e.what());
  }
  return 0;
}

const auto sStarted = std::chrono::steady_clock::now();

// elapsedSeconds(): wall-clock seconds since tqhost started.
int elapsedSeconds_L(lua_State *L) {
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - sStarted;
  lua_pushnumber(L, elapsed.count());
  return 1;
}

int hostSetup(lua_State *L) {
  lua_register(L, "print", TqLua_alwaysPrint_L);
  lua_register(L, "newTransitQueue", TqTransitQueue_new_L);
  lua_register(L, "spawnUniverse", spawnUniverse_L);
  lua_register(L, "elapsedSeconds", elapsedSeconds_L);
  return 0;
}

}  // namespace

void addHostSetupProc() {
  TqLuaState_addSetupProc(0, "tqhost", hostSetup, TqLuaSetupProc_mainState);
}

int addTraceback(lua_State *L) {
  const char *message = lua_tostring(L, 1);
  TqLua_pushTraceback(L, message ? message : luaL_typename(L, 1), 0, 1);
  return 1;
}

bool joinSpawnedUniverses() {
  for (;;) {
    std::vector<std::thread> running;
    {
      std::lock_guard<std::mutex> lock(sThreadsMutex);
      running.swap(sThreads);
    }
    if (running.empty()) break;
    for (std::thread &thread : running) thread.join();
  }
  return !sAnyFailed;
}

}  // namespace tqhost
