// Lua's print, replaced by a writer to the log channel.
#include <tqkernel/toolkit.h>

namespace {

// Replaces the argument at index by its text through the global tostring (at
// tostringIndex): "< unknown >" when that fails, nothing for a result that is neither a
// string nor a number.
void replaceByText(lua_State *L, int index, int tostringIndex) {
  if (lua_type(L, index) == LUA_TSTRING) return;
  lua_pushvalue(L, tostringIndex);
  lua_pushvalue(L, index);
  if (lua_pcall(L, 1, 1, 0) != 0) {
    lua_pop(L, 1);
    lua_pushliteral(L, "< unknown >");
  } else if (lua_type(L, -1) == LUA_TNUMBER) {
    lua_tostring(L, -1);  // converts in place, "%.14g"
  } else if (lua_type(L, -1) != LUA_TSTRING) {
    lua_pop(L, 1);
    lua_pushliteral(L, "");
  }
  lua_replace(L, index);
}

}  // namespace

int TqLua_alwaysPrint_L(lua_State *L) {
  const int count = lua_gettop(L);
  luaL_checkstack(L, 3, "printing");
  lua_getglobal(L, "tostring");
  const int tostringIndex = count + 1;
  for (int index = 1; index <= count; ++index) replaceByText(L, index, tostringIndex);
  lua_pop(L, 1);
  luaL_Buffer buffer;
  luaL_buffinit(L, &buffer);
  for (int index = 1; index <= count; ++index) {
    if (index > 1) luaL_addchar(&buffer, '\t');
    size_t length = 0;
    const char *text = lua_tolstring(L, index, &length);
    luaL_addlstring(&buffer, text, length);
  }
  luaL_pushresult(&buffer);
  TqLua_alwaysLogString(lua_tostring(L, -1));
  return 0;
}

int TqLua_alwaysStdout_L(lua_State *L) { return TqLua_alwaysPrint_L(L); }

int TqLua_debugPrint_L(lua_State *) { return 0; }
