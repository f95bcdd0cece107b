// Where the patched Lua core opens files and loads native libraries: through the host's
// hooks (runtime/hooks.cpp). Included by the core's io and package libraries.
#ifndef TQ_COREHOOKS_H
#define TQ_COREHOOKS_H

#include <cstdio>

// fopen, or the host's file-open hook when one is set.
FILE *tqcore_fopen(const char *path, const char *mode);

// The host's library-load hook, or the platform's loader; NULL when the library is not
// loaded, tqcore_libraryerror() then telling why.
void *tqcore_loadlibrary(const char *path);
void *tqcore_librarysymbol(void *library, const char *name);
void tqcore_unloadlibrary(void *library);
// The last failure of the calls above on this thread.
const char *tqcore_libraryerror();

#endif
