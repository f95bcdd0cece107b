/* Universes and states.
 *
 * A universe is one Lua main state plus the library's record beside it. Every state the
 * library creates or adopts carries a pointer to its universe in the word in front of the
 * lua_State; Lua threads inherit it. A universe and its states are used by one thread at
 * a time.
 *
 * Start-up: KrInit on the thread that becomes the main thread; TqLuaState_addSetupProc
 * for the host's own setup procedures; TqLuaUniverse_createMainUniverse; then
 * TqLuaState_open for each Lua thread and TqLuaUniverse_open for each further universe. */
#ifndef TQKERNEL_UNIVERSE_H
#define TQKERNEL_UNIVERSE_H

#include <stdarg.h>

#include <tqkernel/exceptions.h>
#include <tqkernel/export.h>
#include <tqkernel/lua_api.h>

TQ_BEGIN_DECLS

typedef struct TqLuaUniverse TqLuaUniverse;
/* The set of live function prototypes that the debugger keeps for a universe. */
typedef struct TqLuaInternalProtos TqLuaInternalProtos;

/* Answers TqLuaUniverse_getConfiguration with the caller's further arguments. */
typedef void *(*TqLuaConfigurationHandler)(lua_State *L, va_list arguments);
/* Called with each new state of a debugged universe. */
typedef void (*TqLuaDebugHook)(lua_State *L);

/* Kinds of state a setup procedure runs on. */
enum {
  TqLuaSetupProc_mainState = 0, /* a universe's main state, at creation */
  TqLuaSetupProc_thread = 1     /* each Lua thread opened with TqLuaState_open */
};

/* Library start-up; once per process, on the main thread, before any universe. */
TQ_API void KrInit(void);

/* The main universe, named "main". Fails if one exists or was closed. */
TQ_API TqLuaUniverse *TqLuaUniverse_createMainUniverse(void *debugger);
/* A secondary universe with a new Lua state; NULL when creation fails. */
TQ_API TqLuaUniverse *TqLuaUniverse_open(void *debugger, const char *name);
/* A universe around an existing state, which it then owns; NULL when creation fails. */
TQ_API TqLuaUniverse *TqLuaUniverse_attachToLuaState(lua_State *L, void *applicationData,
                                                       void *debugger, const char *name);
/* Lets the debugger and coverage finish, closes the Lua state, frees the record.
 * NULL does nothing. Returns 0. */
TQ_API int TqLuaUniverse_close(TqLuaUniverse *universe);

TQ_API TqLuaUniverse *TqLuaUniverse_getMain(void);
/* The universe's Lua main state; NULL for a NULL universe. */
TQ_API lua_State *TqLuaUniverse_getLuaState(TqLuaUniverse *universe);
TQ_API int TqLuaUniverse_isMain(TqLuaUniverse *universe);
TQ_API int TqLuaUniverse_mainClosing(void);
TQ_API int TqLuaUniverse_mainClosed(void);
TQ_API void *TqLuaUniverse_getApplicationData(TqLuaUniverse *universe);
TQ_API void *TqLuaUniverse_getDebugger(TqLuaUniverse *universe);
TQ_API void TqLuaUniverse_setProtos(TqLuaUniverse *universe, TqLuaInternalProtos *protos);
TQ_API TqLuaInternalProtos *TqLuaUniverse_getProtos(TqLuaUniverse *universe);
TQ_API void TqLuaUniverse_setExceptionHandlers(TqLuaUniverse *universe,
                                               const TqLuaExceptionHandlers *handlers);
TQ_API TqLuaExceptionHandlers TqLuaUniverse_getExceptionHandlers(TqLuaUniverse *universe);
TQ_API void TqLuaUniverse_setConfigurationHandler(TqLuaUniverse *universe,
                                                  TqLuaConfigurationHandler handler);
/* NULL when L has no universe or the universe has no handler. */
TQ_API void *TqLuaUniverse_getConfiguration(lua_State *L, ...);
/* Stores the hook and, when it is not NULL, calls it at once with the main state. */
TQ_API void TqLuaUniverse_setDebugHook(TqLuaUniverse *universe, TqLuaDebugHook hook);

/* A new Lua thread of the universe, anchored in its registry; NULL when setup fails. */
TQ_API lua_State *TqLuaState_open(TqLuaUniverse *universe);
/* Drops the anchor of a thread from TqLuaState_open; never closes the universe. */
TQ_API void TqLuaState_close(lua_State *L);
TQ_API TqLuaUniverse *TqLuaState_getUniverse(lua_State *L);
TQ_API int TqLuaState_isMainUniverse(lua_State *L);
/* Raises "Not operating in main universe." unless L belongs to the main universe. */
TQ_API void TqLuaState_checkMainUniverse(lua_State *L);
/* Adds a procedure to the application setup list; only before the first universe.
 * Procedures run in ascending order (equal orders in the order added) with lua_cpcall
 * and receive the universe as their light-userdata argument. */
TQ_API void TqLuaState_addSetupProc(int order, const char *name, lua_CFunction proc,
                                    unsigned stateKind);

/* A Lua state with no universe: no setup procedures, no registry entries. */
TQ_API lua_State *TqRawLuaState_open(void);
TQ_API void TqRawLuaState_close(lua_State *L);

/* The prototype set; deleting also accepts NULL. */
TQ_API TqLuaInternalProtos *TqLuaInternalProtos_newProtos(void);
TQ_API void TqLuaInternalProtos_deleteProtos(TqLuaInternalProtos *protos);

TQ_END_DECLS

#endif
