/* The Lua toolkit: checks, conversions, caches, chunk loading, printing and logging on top
 * of the Lua C interface. */
#ifndef TQKERNEL_TOOLKIT_H
#define TQKERNEL_TOOLKIT_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include <tqkernel/export.h>
#include <tqkernel/lua_api.h>
#include <tqkernel/universe.h>

TQ_BEGIN_DECLS

/* ---- Value checks and conversions ----
 * Unlike the auxiliary library's checks these never convert between strings and numbers,
 * test integers for integrality, and know the native object: a full userdata tagged 1
 * (see userdata.h), of type kTqLuaTypeNativeObject and named "native object". A full
 * userdata is a "heavy" userdata here; heavy and light are never taken for each other
 * except where a name says only "userdata".
 *
 * check* raise "bad argument #n to 'f' (<expected> expected, got <type>)"; opt* return
 * the default for no value or nil and otherwise check; to*, is* and has* never raise.
 * Type codes are Lua's (LUA_TNONE .. LUA_TTHREAD) plus kTqLuaTypeNativeObject. */

enum { kTqLuaTypeNativeObject = -2 };

/* -2 for a native object, -1 for no value. Index 0 is allowed only on an empty stack. */
TQ_API int TqLua_type(lua_State *L, int index);
/* "native object", "no value" or Lua's type name. */
TQ_API const char *TqLua_typename(lua_State *L, int index);
/* False only for no value. */
TQ_API int TqLua_isAny(lua_State *L, int index);
/* A table or a full userdata. */
TQ_API int TqLua_isIndexable(lua_State *L, int index);
TQ_API int TqLua_isHeavyUserdata(lua_State *L, int index);
TQ_API int TqLua_isStringNoConvert(lua_State *L, int index);
TQ_API int TqLua_isNumberNoConvert(lua_State *L, int index);
TQ_API void *TqLua_toHeavyUserdata(lua_State *L, int index);
TQ_API void *TqLua_toLightUserdata(lua_State *L, int index);
TQ_API const char *TqLua_toStringNoConvert(lua_State *L, int index);
TQ_API lua_Number TqLua_toNumberNoConvert(lua_State *L, int index);
/* Truncates toward zero (saturating); no integrality test. */
TQ_API int64_t TqLua_toIntegerNoConvert(lua_State *L, int index);
/* The byte length of a string; 0 for anything else. */
TQ_API size_t TqLua_strlen(lua_State *L, int index);
/* A string (strictly) whose whole length and characters equal those of s. */
TQ_API int TqLua_equalsString(lua_State *L, int index, const char *s);
/* Pops a nil on top and returns 1; otherwise changes nothing and returns 0. */
TQ_API int TqLua_popNil(lua_State *L);

TQ_API lua_Number TqLua_checkNumber(lua_State *L, int index);
/* A number without fraction within the 64-bit range; else the located error
 * "expected integer, got %f". */
TQ_API int64_t TqLua_checkInteger(lua_State *L, int index);
TQ_API const char *TqLua_checkString(lua_State *L, int index);
/* A boolean only (nil is not false); returns 0 or 1. */
TQ_API int TqLua_checkBoolean(lua_State *L, int index);
/* A heavy or a light userdata (which may hold NULL). */
TQ_API void *TqLua_checkUserdata(lua_State *L, int index);
TQ_API void *TqLua_checkHeavyUserdata(lua_State *L, int index);
TQ_API void *TqLua_checkLightUserdata(lua_State *L, int index);
/* Any value, nil included; no value is "value expected". */
TQ_API void TqLua_checkAny(lua_State *L, int index);
/* type is a type code, name an optional expected name for the message. A native object
 * counts as a full userdata unless type is kTqLuaTypeNativeObject; a type outside the
 * codes expects "unknown type". */
TQ_API void TqLua_checkType(lua_State *L, int index, int type, const char *name);

TQ_API lua_Number TqLua_optNumber(lua_State *L, int index, lua_Number def);
TQ_API int64_t TqLua_optInteger(lua_State *L, int index, int64_t def);
TQ_API const char *TqLua_optString(lua_State *L, int index, const char *def);
TQ_API int TqLua_optBoolean(lua_State *L, int index, int def);
TQ_API void *TqLua_optUserdata(lua_State *L, int index, void *def);
TQ_API void *TqLua_optHeavyUserdata(lua_State *L, int index, void *def);
TQ_API void *TqLua_optLightUserdata(lua_State *L, int index, void *def);

/* Makes the stack hold exactly expectedCount values: extra values are dropped, too few is
 * the located error "Insufficent parameters. Wanted %d, received %d.". */
TQ_API void TqLua_warnParameterCount(lua_State *L, int expectedCount);
/* A relative index (-1 .. -9999) made absolute; other indices unchanged. Reaching below
 * the bottom raises "Assertion failed: 0 <= index". */
TQ_API int TqLua_normalize(lua_State *L, int index);

/* The located error: the running function's caller position (luaL_where(L, 1)) followed by
 * the text formatted with lua_pushfstring's rules, raised as a Lua error. */
TQ_API TQ_NORETURN void TqLua_errorText(lua_State *L, const char *format, ...);
TQ_API TQ_NORETURN void TqLua_errorText_va(lua_State *L, const char *format, va_list arguments);

/* ---- Cached and weak tables, methods and dereferencing ----
 * Caches live in the registry, registry[name][light userdata udRef], and are keyed by
 * addresses the caller owns for the life of the process. They are never emptied. */

/* Pushes the cached table, creating it empty; returns 1 when it was just created (the
 * caller fills it), else 0. udRef NULL raises "Assertion failed: udRef != 0". */
TQ_API int TqLua_pushCachedTable(lua_State *L, const char *name, const void *udRef);
/* Pushes the cached table and returns 1 if it exists; else pushes nothing, returns 0. */
TQ_API int TqLua_pushOptCachedTable(lua_State *L, const char *name, const void *udRef);
/* As TqLua_pushCachedTable; a new table gets the weak mode "v", "k" or "kv". */
TQ_API int TqLua_pushCachedWeakValuedTable(lua_State *L, const char *name, const void *udRef);
TQ_API int TqLua_pushCachedWeakKeyedTable(lua_State *L, const char *name, const void *udRef);
TQ_API int TqLua_pushCachedFullyWeakTable(lua_State *L, const char *name, const void *udRef);
/* Pushes the Lua string of the text, interned once per text address (the text must stay
 * valid and unchanged while the state lives). Returns 1. */
TQ_API int TqLua_pushCachedLiteral_imp(lua_State *L, const char *text, size_t length);
#define TqLua_pushCachedLiteral(L, literal) \
  TqLua_pushCachedLiteral_imp((L), "" literal, sizeof(literal) - 1)
/* Push a new table whose shared per-mode metatable makes it weak; return 1. */
TQ_API int TqLua_makeWeakValuedTable(lua_State *L);
TQ_API int TqLua_makeWeakKeyedTable(lua_State *L);
TQ_API int TqLua_makeFullyWeakTable(lua_State *L);
/* Neither flag: a plain new table. Returns 1. */
TQ_API int TqLua_makeWeakTable(lua_State *L, int weakKeys, int weakValues);

/* With the method name on top: replaces it with the method and returns 1, or removes it
 * and returns 0. A metatable field "__hasmethods" names the method table; otherwise the
 * method is object[name] and must be a table, function or full userdata. */
TQ_API int TqLua_getMethod(lua_State *L, int objectIndex);
/* As TqLua_getMethod with the name given, any non-nil result counting; pushes the method
 * and returns 1, or pushes nothing and returns 0 (always for a nil object). */
TQ_API int TqLua_getMethodByName(lua_State *L, int objectIndex, const char *name);
/* Replaces the key on top with t[key] (metamethods apply); nil for a nil t or key. */
TQ_API void TqLua_getTable(lua_State *L, int tableIndex);
/* Replace t, key on top with t[key]: with metamethods, raw (t must be a table). */
TQ_API void TqLua_deref(lua_State *L);
TQ_API void TqLua_rawDeref(lua_State *L);
/* Replaces the table on top with its raw element n. */
TQ_API void TqLua_rawDerefIndexed(lua_State *L, int n);
/* Pushes the raw t[light userdata pointer]; t must be a table. */
TQ_API void TqLua_rawGetUD(lua_State *L, int source, const void *pointer);
/* Sets t[name] = function (metamethods apply) for each entry up to the one whose name and
 * function are both NULL; a NULL list does nothing. A NULL name or function in an entry
 * raises "Assertion failed: key" or "Assertion failed: function". */
TQ_API void TqLua_addFunctionsToTable(lua_State *L, int tableIndex, const luaL_Reg *functions);
/* Lua function (x, ...): returns x alone. */
TQ_API int TqLua_chain(lua_State *L);
/* Pushes a copy and returns 1: the same value for nil, booleans, light userdata, numbers,
 * strings and functions; a one-level copy with the same metatable for a table. Pushes
 * nothing and returns 0 for a full userdata, a thread or no value. */
TQ_API int TqLua_shallowCopy(lua_State *L, int index);
/* Gives the value a metatable whose field access raises "Attempted to access an
 * invalidated native object proxy ..." and whose tostring tells it is invalidated. */
TQ_API void TqLua_invalidateProxyUserdata(lua_State *L, int index);

/* ---- Printing, logging and dumps ----
 * Every logged line goes to one process-wide output function as three pieces: "L: ", the
 * text, "\r\n". Under a size limit, the line that crosses it is written whole and every
 * later line is dropped; only message texts count. The debug forms print nothing. */

/* Receives each piece of each logged line. */
typedef void (*TqLuaLogOutput)(const char *piece);

/* Nonzero: log to standard output (flushed per piece); zero: to the debugger output
 * (standard error here). Returns 0. */
TQ_API int TqLua_setLogToConsole(int toConsole);
/* Sends the log to output instead (NULL: back to the debugger output); returns the output
 * function in use before. For hosts that keep their own log. */
TQ_API TqLuaLogOutput TqLua_setLogOutput(TqLuaLogOutput output);
/* 0 removes the limit. */
TQ_API void TqLua_setLogSizeLimit(uint64_t limit);
TQ_API void TqLua_alwaysLogString(const char *text);
TQ_API void TqLua_debugLogString(const char *text);
/* Formats with lua_pushfstring's rules and logs the result as one line. */
TQ_API void TqLua_printf(lua_State *L, const char *format, ...);
TQ_API void TqLua_dprintf(lua_State *L, const char *format, ...);
/* Lua's print: the arguments through the global tostring ("< unknown >" when that fails),
 * joined by tabs, logged as one line. Returns no results. */
TQ_API int TqLua_alwaysPrint_L(lua_State *L);
/* The same as TqLua_alwaysPrint_L. */
TQ_API int TqLua_alwaysStdout_L(lua_State *L);
/* Prints nothing. */
TQ_API int TqLua_debugPrint_L(lua_State *L);

/* Pushes on target a short description of the value at index in source ("aTable",
 * "\"text\"", "aNativeObject", ...) and returns its text. */
TQ_API const char *TqLua_shortStringDescription(lua_State *source, lua_State *target, int index);
TQ_API const char *TqLua_stringDescription(lua_State *source, lua_State *target, int index);

/* The dumps build their listing on the state's stack and discard it: they may stay in
 * code at no output cost. The one output: TqLua_dumpStack of a NULL state prints
 * "nil is not a valid Lua state.\n" to standard output. */
TQ_API void TqLua_dumpStack(lua_State *L, const char *label);
TQ_API void TqLua_dumpStackVerbose(lua_State *L, const char *label);
TQ_API void TqLua_dumpStackComment(lua_State *L, const char *comment);
TQ_API void TqLua_dumpValue(lua_State *L, int index, const char *label);
/* Unlabelled forms. */
TQ_API void dumpState(lua_State *L);
TQ_API void dumpValue(lua_State *L, int index);

/* Pushes the traceback text and returns 1: the message and "\n" (nothing for NULL), one
 * line per call level from skipLevels upward, then "---------------------------------". A
 * traceback requested while another is being built (on any thread) is "(push traceback
 * failed due to re-entry!)". reserved is unused (0). */
TQ_API int TqLua_pushTraceback(lua_State *L, const char *message, int reserved, int skipLevels);
/* Logs the traceback as one line, unless the message contains "<TqErrorID>" (such errors
 * have been reported already). */
TQ_API void TqLua_dumpTraceback(lua_State *L, const char *message, int reserved);
TQ_API void TqLua_dumpTracebackVerbose(lua_State *L, const char *message, int reserved);
/* As TqLua_dumpTraceback, from skipLevels levels further up the call stack. */
TQ_API void TqLua_dumpTracebackSkippingLevels(lua_State *L, const char *message, int skipLevels);
/* TqLua_dumpTraceback with an empty message. */
TQ_API void dumpTrace(lua_State *L);

/* ---- Chunk loading and calling ----
 * Every chunk is loaded through TqLua_loadChunkFromBuffer. The caller puts the chunk's
 * environment on top of the stack first (a table, or nil for the globals): the loader
 * replaces that slot with the loaded function, or with the error message, so the stack
 * height is unchanged. A NULL chunk name loads as "< anonymous >".
 *
 * In a universe with a debugger, the registry function "loadCodeFromDebugger", called with
 * the chunk name, may return substitute source (a string or number); a substitute that
 * does not compile is ignored. While the debugger's code capture is on, each loaded
 * function gets an environment holding "< code chunk >" (the exact text loaded) and
 * "< chunk name >", whose metatable passes every other read and write through to the
 * environment the function would have had. luaL_loadfile (hence dofile, loadfile and
 * require) loads through the same loader. */

/* Called with each chunk loaded while it is set: (L, the source text actually loaded, its
 * byte length, the chunk name or NULL). */
typedef void (*TqLuaCodeCaptureHook)(lua_State *L, const char *source, size_t length,
                                     const char *chunkName);
/* The code-capture settings that a debugger owns and attaches to its universes. */
typedef struct TqLuaCodeCapture {
  TqLuaCodeCaptureHook hook;
  int32_t capturing;
} TqLuaCodeCapture;

/* Return the previous hook or flag. A NULL capture is the program error "Pointer was
 * null: capture". */
TQ_API TqLuaCodeCaptureHook TqLua_setCodeCaptureHook(TqLuaCodeCapture *capture,
                                                     TqLuaCodeCaptureHook hook);
TQ_API int TqLua_setCodeCapturing(TqLuaCodeCapture *capture, int capturing);
/* Attaches the settings (which must outlive the attachment; NULL detaches). They apply
 * only while the universe has a debugger. */
TQ_API void TqLuaUniverse_setCodeCapture(TqLuaUniverse *universe, TqLuaCodeCapture *capture);

/* Lua's load status; the environment slot on top holds the function or the error message.
 * An empty stack (no slot) raises "Assertion failed: 0 < environmentIndex"; a slot that
 * is neither nil nor a table raises Lua's type error for its index. */
TQ_API int TqLua_loadChunkFromBuffer(lua_State *L, const char *source, size_t size,
                                     const char *chunkName);
TQ_API int TqLua_loadChunkFromString(lua_State *L, const char *source, const char *chunkName);
/* Load and call with no arguments, raising any load or run error; the results stand where
 * the environment slot stood. Return the number of results. */
TQ_API int TqLua_callChunkFromBuffer(lua_State *L, const char *source, size_t size,
                                     const char *chunkName);
TQ_API int TqLua_callChunkFromString(lua_State *L, const char *source, const char *chunkName);
/* Load and call protected, without a message handler: the load status when it is not 0,
 * else lua_pcall's; the results or the error message from the slot on. */
TQ_API int TqLua_pcallChunkFromBuffer(lua_State *L, const char *source, size_t size,
                                      const char *chunkName);
TQ_API int TqLua_pcallChunkFromString(lua_State *L, const char *source, const char *chunkName);
/* Lua function (source, chunkName [, environment]): the loaded function; raises the load
 * error. With two arguments the environment is the globals table. */
TQ_API int TqLua_loadAndCaptureChunk_L(lua_State *L);
/* For a Lua function loaded under code capture, push its chunk name or its source text
 * and return 1; otherwise push nothing and return 0. */
TQ_API int TqLua_getFunctionChunkName(lua_State *L, int index);
TQ_API int TqLua_getFunctionCodeChunk(lua_State *L, int index);

/* Sends a message: the object, then inCount arguments, are on the stack. Calls the
 * object's method of that name (TqLua_getMethod) with the object and the arguments,
 * unprotected, for outCount results (-1 for all); returns the number of results, which
 * replace the object and the arguments. No method is the error "method not found: %s". */
TQ_API int TqLua_send_imp(lua_State *L, const char *name, size_t length, int inCount,
                          int outCount);
#define TqLua_send(L, literal, inCount, outCount) \
  TqLua_send_imp((L), "" literal, sizeof(literal) - 1, (inCount), (outCount))
/* As TqLua_send, with the message name (a string) already pushed above the arguments. */
TQ_API int TqLua_stackSend(lua_State *L, int inCount, int outCount);

/* lua_pushcclosure, except that a NULL function without upvalues pushes nil. Returns 1. */
TQ_API int TqLua_pushCClosure(lua_State *L, lua_CFunction func, int values);
/* Pushes the one function object kept in the registry for key, creating it from func the
 * first time (later calls push that first function whatever func is); a NULL key pushes a
 * new function each time. Returns 1. */
TQ_API int TqLua_pushCFunctionWithUDRef(lua_State *L, lua_CFunction func, const void *key);
/* Lua function (f, ...): returns f(...), unprotected. There are no autorelease pools on
 * this platform: it is a plain call. */
TQ_API int TqLua_callWithAutoReleasePool(lua_State *L);

/* ---- Named integers ----
 * Native enumerations seen from Lua as names. Each TqNamedIntegers record is static: its
 * address keys a per-state lookup table (registry cache "cachedNamedIntegers") holding
 * t[name] = value and t[value] = name, built on first use and never rebuilt. When values
 * repeat, the last name listed wins. A NULL type name reads "< unknown >" in messages. */

typedef struct TqNamedInteger {
  const char *name; /* NULL ends the list */
  int32_t value;
} TqNamedInteger;

typedef struct TqNamedIntegers {
  const char *typeName;
  const TqNamedInteger *entries;
} TqNamedIntegers;

/* 1 and *value when name matches an entry exactly; 0 when not, or when record, its
 * entries or name is NULL. */
TQ_API int TqNamedIntegers_getByName(const TqNamedIntegers *record, const char *name,
                                     int32_t *value);
/* Pushes the lookup table; returns 1. */
TQ_API int TqLua_pushCachedNamedIntegersTable(lua_State *L, const TqNamedIntegers *record);
/* Pushes the name of value; returns 1. An unknown value is the error "Could not push named
 * integer of type '%s'. Unknown value. (%d)". */
TQ_API int TqLua_pushNamedInteger(lua_State *L, int32_t value, const TqNamedIntegers *record);
/* The value named by the string at index (a number is refused even when it is a value). */
TQ_API int32_t TqLua_checkNamedInteger(lua_State *L, int index, const TqNamedIntegers *record);
/* def for no value or nil; otherwise as TqLua_checkNamedInteger. */
TQ_API int32_t TqLua_optNamedInteger(lua_State *L, int index, const TqNamedIntegers *record,
                                     int32_t def);
/* As TqLua_optNamedInteger but never raises: a failure prints a line to standard error
 * and gives def. */
TQ_API int32_t TqLua_optNamedInteger_noThrow(lua_State *L, int index,
                                             const TqNamedIntegers *record, int32_t def);

/* ---- Table field accessors ----
 * Read and write one field of the table at tableIndex (any index; metamethods apply) by
 * name (key) or by integer (AtIndex), leaving the stack as it was. Readers treat a nil
 * table as a table without the field. The opt and check readers raise the argument error
 * for index -1 ("bad argument #-1 to '%s' (string expected, got number)"); the has, is
 * and to readers never raise and never convert between strings and numbers, except
 * TqLuaTable_toBoolean, which follows Lua's truth. A NULL key raises "Assertion failed:
 * key" in readers and TqLuaTable_setFrom; the other writers let Lua refuse the nil key. */

/* A NULL text stores nil. */
TQ_API void TqLuaTable_setString(lua_State *L, int tableIndex, const char *key, const char *value);
TQ_API void TqLuaTable_setStringAtIndex(lua_State *L, int tableIndex, int32_t index,
                                        const char *value);
TQ_API void TqLuaTable_setNumber(lua_State *L, int tableIndex, const char *key, lua_Number value);
TQ_API void TqLuaTable_setNumberAtIndex(lua_State *L, int tableIndex, int32_t index,
                                        lua_Number value);
TQ_API void TqLuaTable_setBoolean(lua_State *L, int tableIndex, const char *key, int value);
/* Stores the value at valueIndex. */
TQ_API void TqLuaTable_setFrom(lua_State *L, int tableIndex, const char *key, int valueIndex);

/* True for a value of the kind; then stores it through out when out is not NULL. */
TQ_API int TqLuaTable_hasString(lua_State *L, int tableIndex, const char *key, const char **out);
TQ_API int TqLuaTable_hasStringAtIndex(lua_State *L, int tableIndex, int32_t index,
                                       const char **out);
TQ_API int TqLuaTable_hasNumber(lua_State *L, int tableIndex, const char *key, lua_Number *out);
TQ_API int TqLuaTable_hasNumberAtIndex(lua_State *L, int tableIndex, int32_t index,
                                       lua_Number *out);
TQ_API int TqLuaTable_hasBoolean(lua_State *L, int tableIndex, const char *key, int *out);
/* True for any value but nil. */
TQ_API int TqLuaTable_hasKey(lua_State *L, int tableIndex, const char *key);

/* def when the field is nil. */
TQ_API const char *TqLuaTable_optString(lua_State *L, int tableIndex, const char *key,
                                        const char *def);
TQ_API const char *TqLuaTable_optStringAtIndex(lua_State *L, int tableIndex, int32_t index,
                                               const char *def);
TQ_API lua_Number TqLuaTable_optNumber(lua_State *L, int tableIndex, const char *key,
                                       lua_Number def);
TQ_API lua_Number TqLuaTable_optNumberAtIndex(lua_State *L, int tableIndex, int32_t index,
                                              lua_Number def);
TQ_API int TqLuaTable_optBoolean(lua_State *L, int tableIndex, const char *key, int def);

TQ_API int TqLuaTable_isString(lua_State *L, int tableIndex, const char *key);
TQ_API int TqLuaTable_isStringAtIndex(lua_State *L, int tableIndex, int32_t index);
TQ_API int TqLuaTable_isNumber(lua_State *L, int tableIndex, const char *key);
TQ_API int TqLuaTable_isNumberAtIndex(lua_State *L, int tableIndex, int32_t index);
TQ_API int TqLuaTable_isBoolean(lua_State *L, int tableIndex, const char *key);

TQ_API const char *TqLuaTable_checkString(lua_State *L, int tableIndex, const char *key);
TQ_API const char *TqLuaTable_checkStringAtIndex(lua_State *L, int tableIndex, int32_t index);
TQ_API lua_Number TqLuaTable_checkNumber(lua_State *L, int tableIndex, const char *key);
TQ_API lua_Number TqLuaTable_checkNumberAtIndex(lua_State *L, int tableIndex, int32_t index);
TQ_API int TqLuaTable_checkBoolean(lua_State *L, int tableIndex, const char *key);

/* NULL, 0.0 or 0 when the field is missing or of another kind (toBoolean: Lua's truth). */
TQ_API const char *TqLuaTable_toString(lua_State *L, int tableIndex, const char *key);
TQ_API const char *TqLuaTable_toStringAtIndex(lua_State *L, int tableIndex, int32_t index);
TQ_API lua_Number TqLuaTable_toNumber(lua_State *L, int tableIndex, const char *key);
TQ_API lua_Number TqLuaTable_toNumberAtIndex(lua_State *L, int tableIndex, int32_t index);
TQ_API int TqLuaTable_toBoolean(lua_State *L, int tableIndex, const char *key);

/* luaL_ref of the value on top (popped) into the table, after making room for 5 values
 * ("stack overflow (space for ref)" when there is none). */
TQ_API int TqLuaTable_ref(lua_State *L, int tableIndex);
/* luaL_unref; LUA_NOREF is ignored. */
TQ_API void TqLuaTable_unref(lua_State *L, int tableIndex, int ref);

TQ_END_DECLS

#endif
