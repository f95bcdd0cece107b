// The toolkit assertion: a failed condition raises "Assertion failed: " and the condition
// as written, as a Lua error on L (no position) or, with L NULL, as a program error.
// Macros in the condition are expanded in the text, so lua_istable(L, -2) reads
// "(lua_type(L, (-2)) == 5)".
#ifndef TQ_TOOLKIT_ASSERT_H
#define TQ_TOOLKIT_ASSERT_H

#include <tqkernel/exceptions.h>

#define TQ_ASSERT_TEXT(condition) #condition
#define TQ_ASSERT(L, condition)                                                            \
  do {                                                                                     \
    if (!(condition)) TqLua_throwProgramError((L), "Assertion failed: " TQ_ASSERT_TEXT(condition)); \
  } while (0)

#endif
