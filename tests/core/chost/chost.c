/* A host program written in C99: the public headers compile as C and the library's
 * start-up, universes and Lua C interface link from C. Exits 0 when every check holds. */
#include <tqkernel/tqkernel.h>

#include <stdio.h>
#include <string.h>

static int failures = 0;

static void expect(int condition, const char *what) {
  if (!condition) {
    fprintf(stderr, "chost: check failed: %s\n", what);
    failures++;
  }
}

/* Loads and runs a chunk; returns the status and leaves the error text (or "") in text. */
static int runChunk(lua_State *L, const char *code, char *text, size_t size) {
  int status = luaL_loadstring(L, code);
  if (status == 0) status = lua_pcall(L, 0, 0, 0);
  text[0] = '\0';
  if (status != 0) {
    const char *message = lua_tostring(L, -1);
    snprintf(text, size, "%s", message ? message : "(not a string)");
    lua_pop(L, 1);
  }
  return status;
}

int main(void) {
  TqLuaUniverse *universe;
  lua_State *L;
  char text[256];
  int status;

  KrInit();
  universe = TqLuaUniverse_open(NULL, "chost");
  expect(universe != NULL, "TqLuaUniverse_open");
  if (!universe) return 1;
  L = TqLuaUniverse_getLuaState(universe);
  expect(TqLuaState_getUniverse(L) == universe, "the state knows its universe");

  status = runChunk(L, "answer = 6 * 7", text, sizeof text);
  expect(status == 0, "a chunk runs");
  lua_getglobal(L, "answer");
  expect(lua_tointeger(L, -1) == 42, "the chunk's global is visible from C");
  lua_pop(L, 1);

  status = runChunk(L, "error('raised in Lua')", text, sizeof text);
  expect(status == LUA_ERRRUN, "a run-time error gives LUA_ERRRUN");
  expect(strcmp(text, "[string \"error('raised in Lua')\"]:1: raised in Lua") == 0,
         "the run-time error's message");

  status = runChunk(L, "local x = = 1", text, sizeof text);
  expect(status == LUA_ERRSYNTAX, "a syntax error gives LUA_ERRSYNTAX");
  expect(strstr(text, "unexpected symbol near '='") != NULL, "the syntax error's message");

  status = runChunk(L, "return ('x'):rep(3)", text, sizeof text);
  expect(status == 0 && lua_gettop(L) == 0, "the stack is balanced after errors");

  expect(TqLuaUniverse_close(universe) == 0, "TqLuaUniverse_close");
  if (failures == 0) puts("chost: all checks passed");
  return failures == 0 ? 0 : 1;
}
