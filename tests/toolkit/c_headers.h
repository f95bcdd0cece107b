/* A function of the C test source, callable from the C++ tests. */
#ifndef TQ_TESTS_TOOLKIT_C_HEADERS_H
#define TQ_TESTS_TOOLKIT_C_HEADERS_H

#include <tqkernel/lua_api.h>

#ifdef __cplusplus
extern "C"
#endif
int tqtestTypeOfNativeObjectFromC(lua_State *L);

#endif
