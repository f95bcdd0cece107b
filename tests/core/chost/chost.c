/* A host program in C99: the public headers compile as C, and start-up, universes and the
 * Lua C interface link from C. Exits 0 when every check holds. */
#include <tqkernel/tqkernel.h>

#include <stdio.h>
#include <string.h>

static int failures = 0;

/* Runs a chunk; checks its status and the start of its error text (NULL: no error). */
static void expectRun(lua_State *L, const char *code, int status, const char *error) {
  int got = luaL_loadstring(L, code);
  if (got == 0) got = lua_pcall(L, 0, 0, 0);
  if (got != status || (error && strncmp(lua_tostring(L, -1), error, strlen(error)) != 0)) {
    fprintf(stderr, "chost: %s gave %d %s\n", code, got, got ? lua_tostring(L, -1) : "");
    failures++;
  }
  lua_settop(L, 0);
}

int main(void) {
  TqLuaUniverse *universe;
  lua_State *L;
  KrInit();
  universe = TqLuaUniverse_open(NULL, "chost");
  L = TqLuaUniverse_getLuaState(universe);
  failures += TqLuaState_getUniverse(L) != universe;
  expectRun(L, "answer = 6 * 7", 0, NULL);
  lua_getglobal(L, "answer");
  failures += lua_tointeger(L, -1) != 42;
  expectRun(L, "error('raised in Lua')", LUA_ERRRUN, "[string \"error('raised in Lua')\"]:1: raised in Lua");
  expectRun(L, "local x = = 1", LUA_ERRSYNTAX, "[string \"local x = = 1\"]:1: unexpected symbol near '='");
  failures += TqLuaUniverse_close(universe) != 0;
  return failures == 0 ? 0 : 1;
}
