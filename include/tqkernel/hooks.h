/* Host hooks: how the library opens files, loads native libraries and owns its message
 * boxes. Set them once at start-up, before the first universe exists; they are read
 * without a lock. */
#ifndef TQKERNEL_HOOKS_H
#define TQKERNEL_HOOKS_H

#include <stdio.h>

#include <tqkernel/export.h>

TQ_BEGIN_DECLS

/* With fopen's meaning: the open stream, or NULL (setting errno when it can). Called by
 * luaL_loadfile ("rb"), io.open (the script's mode), io.input, io.output and io.lines
 * with a file name, and the package searchers' readability test of each candidate ("r").
 * A hook that refuses a path without setting errno reads as a missing file. */
typedef FILE *(*KrFOpenHook)(const char *path, const char *mode);
/* With dlopen's meaning: a handle for the platform's symbol lookup, or NULL. Called by
 * the package library's native loader (require, package.loadlib). */
typedef void *(*KrLoadLibraryHook)(const char *path);

/* NULL restores the standard open. */
TQ_API void KrHooks_setFOpenHook(KrFOpenHook hook);
/* NULL restores the platform's loader. */
TQ_API void KrHooks_setLoadLibraryHook(KrLoadLibraryHook hook);
/* The owner of the debugger's activation dialog; NULL for none. */
TQ_API void KrHooks_setMainWindow(void *window);

TQ_END_DECLS

#endif
