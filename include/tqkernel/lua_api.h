/* The Lua 5.1 C interface of TqKernel's core: lua.h, lauxlib.h and lualib.h as patched.
 *
 * The functions keep C linkage, so code written against stock Lua 5.1 headers links
 * against libtqkernel unchanged. */
#ifndef TQKERNEL_LUA_API_H
#define TQKERNEL_LUA_API_H

#if defined(__cplusplus)
extern "C" {
#endif
#include <tqkernel/lua51/lua.h>
#include <tqkernel/lua51/lauxlib.h>
#include <tqkernel/lua51/lualib.h>
#if defined(__cplusplus)
}
#endif

#endif
