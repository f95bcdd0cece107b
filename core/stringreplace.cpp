// string.replace(s, find, repl [, n]): replaces occurrences of find in s by repl, both taken
// as plain text (no patterns, no captures, no % escapes), scanning left to right without
// overlaps; at most n replacements when n is given. Returns the new string and the number of
// replacements, as string.gsub does. An empty find is an argument error ("empty search
// string"): there is no sensible place for an empty needle to match.
#include <algorithm>

#include "lua.h"

#include "lauxlib.h"

#include "tq_corelib.h"

int tqcore_str_replace(lua_State *L) {
  size_t sourceLength = 0;
  size_t findLength = 0;
  size_t replacementLength = 0;
  const char *source = luaL_checklstring(L, 1, &sourceLength);
  const char *find = luaL_checklstring(L, 2, &findLength);
  luaL_argcheck(L, findLength > 0, 2, "empty search string");
  const char *replacement = luaL_checklstring(L, 3, &replacementLength);
  const lua_Integer most = luaL_optinteger(L, 4, static_cast<lua_Integer>(sourceLength));

  luaL_Buffer result;
  luaL_buffinit(L, &result);
  const char *at = source;
  const char *const end = source + sourceLength;
  lua_Integer count = 0;
  while (count < most) {
    const char *hit = std::search(at, end, find, find + findLength);
    if (hit == end) break;
    luaL_addlstring(&result, at, static_cast<size_t>(hit - at));
    luaL_addlstring(&result, replacement, replacementLength);
    at = hit + findLength;
    count++;
  }
  luaL_addlstring(&result, at, static_cast<size_t>(end - at));
  luaL_pushresult(&result);
  lua_pushinteger(L, count);
  return 2;
}
