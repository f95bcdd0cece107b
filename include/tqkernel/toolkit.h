/* The Lua toolkit: checks, conversions, caches, chunk loading, printing and logging on top
 * of the Lua C interface. */
#ifndef TQKERNEL_TOOLKIT_H
#define TQKERNEL_TOOLKIT_H

#include <stdint.h>

#include <tqkernel/export.h>
#include <tqkernel/lua.h>

TQ_BEGIN_DECLS

/* ---- Printing, logging and dumps ----
 * Every logged line goes to one process-wide output function as three pieces: "L: ", the
 * text, "\r\n". Under a size limit, the line that crosses it is written whole and every
 * later line is dropped; only message texts count. The debug forms print nothing. */

/* Nonzero: log to standard output (flushed per piece); zero: to the debugger output
 * (standard error here). Returns 0. */
TQ_API int TqLua_setLogToConsole(int toConsole);
/* 0 removes the limit. */
TQ_API void TqLua_setLogSizeLimit(uint64_t limit);
TQ_API void TqLua_alwaysLogString(const char *text);
TQ_API void TqLua_debugLogString(const char *text);
/* Formats with lua_pushfstring's rules and logs the result as one line. */
TQ_API void TqLua_printf(lua_State *L, const char *format, ...);
TQ_API void TqLua_dprintf(lua_State *L, const char *format, ...);

/* Builds a listing of the stack and discards it; a NULL state prints
 * "nil is not a valid Lua state.\n" to standard output. */
TQ_API void TqLua_dumpStack(lua_State *L, const char *label);

/* Pushes the traceback text: the message and "\n" (nothing for NULL), one line per call
 * level from skipLevels upward, then "---------------------------------". A traceback
 * requested while another is being built pushes "(push traceback failed due to
 * re-entry!)". reserved is unused (0). */
TQ_API void TqLua_pushTraceback(lua_State *L, const char *message, int reserved, int skipLevels);
/* Logs the traceback as one line, unless the message contains "<TqErrorID>". */
TQ_API void TqLua_dumpTraceback(lua_State *L, const char *message, int reserved);

TQ_END_DECLS

#endif
