// The host's hooks, and the core's file opening and library loading that go through them.
#include <tqkernel/hooks.h>

#include <cerrno>
#include <cstdio>

#include "core/tq_corehooks.h"
#include "runtime/hooks_internal.h"
#include "runtime/platform/platform.h"

namespace {

// Set by the host before the first universe exists, read without a lock afterwards.
KrFOpenHook sFOpenHook = nullptr;
KrLoadLibraryHook sLoadLibraryHook = nullptr;
void *sMainWindow = nullptr;

}  // namespace

void KrHooks_setFOpenHook(KrFOpenHook hook) { sFOpenHook = hook; }

void KrHooks_setLoadLibraryHook(KrLoadLibraryHook hook) { sLoadLibraryHook = hook; }

void KrHooks_setMainWindow(void *window) { sMainWindow = window; }

void *tq::mainWindow() { return sMainWindow; }

FILE *tqcore_fopen(const char *path, const char *mode) {
  if (!sFOpenHook) return std::fopen(path, mode);
  errno = 0;
  FILE *file = sFOpenHook(path, mode);
  // The io library reports errno; a refusal without a reason reads as a missing file.
  if (!file && errno == 0) errno = ENOENT;
  return file;
}

void *tqcore_loadlibrary(const char *path) {
  if (!sLoadLibraryHook) return tq::platform::loadLibrary(path);
  // Forget any older failure, so that a hook refusing without a reason is not blamed for it.
  tq::platform::libraryError();
  return sLoadLibraryHook(path);
}

void *tqcore_librarysymbol(void *library, const char *name) {
  return tq::platform::librarySymbol(library, name);
}

void tqcore_unloadlibrary(void *library) { tq::platform::unloadLibrary(library); }

const char *tqcore_libraryerror() {
  const char *reason = tq::platform::libraryError();
  return reason ? reason : "cannot load library (no reason given)";
}
