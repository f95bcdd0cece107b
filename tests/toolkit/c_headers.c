/* Compiled as C: the public headers must serve C hosts as well as C++ ones. */
#include <tqkernel/tqkernel.h>

#include "toolkit/c_headers.h"

int tqtestTypeOfNativeObjectFromC(lua_State *L) {
  int type;
  TqLuaInternal_makeTaggedHeavyUserdata(L, 16, TqLuaInternal_nativeObjectTag);
  type = TqLua_type(L, -1);
  lua_pop(L, 1);
  return type;
}
