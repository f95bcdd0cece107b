// luaL_loadfile as the library provides it (and with it dofile, loadfile and require):
// the file is opened through the host's file-open hook, read whole and loaded by the
// library's chunk loader into the globals.
#include <tqkernel/toolkit.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "core/tq_corehooks.h"

namespace {

// The part of the path after its last backslash; slashes do not separate here.
const char *chunkNameOf(const char *path) {
  const char *backslash = std::strrchr(path, '\\');
  return backslash ? backslash + 1 : path;
}

// False, with errno telling why, on a read error or when memory runs out.
bool readAll(FILE *file, std::string &text) {
  try {
    char block[LUAL_BUFFERSIZE];
    size_t count;
    while ((count = std::fread(block, 1, sizeof block, file)) > 0) text.append(block, count);
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return false;
  }
  return !std::ferror(file);
}

// Like Lua's own loader, a first line starting with '#' (an interpreter line) is not
// compiled; its line end stays so that line numbers hold.
size_t interpreterLineLength(const std::string &text) {
  if (text.empty() || text[0] != '#') return 0;
  const size_t lineEnd = text.find('\n');
  return lineEnd == std::string::npos ? text.size() : lineEnd;
}

int fileError(lua_State *L, const char *what, const char *path, int error) {
  lua_pushfstring(L, "cannot %s %s: %s", what, path, std::strerror(error));
  return 1;
}

}  // namespace

int luaL_loadfile(lua_State *L, const char *path) {
  const char *shownPath = path ? path : "stdin";
  FILE *file = path ? tqcore_fopen(path, "rb") : stdin;
  if (!file) return fileError(L, "open", shownPath, errno);
  std::string text;
  const bool read = readAll(file, text);
  const int readError = errno;
  if (path) std::fclose(file);
  if (!read) return fileError(L, "read", shownPath, readError);
  const size_t skipped = interpreterLineLength(text);
  lua_pushvalue(L, LUA_GLOBALSINDEX);
  return TqLua_loadChunkFromBuffer(L, text.data() + skipped, text.size() - skipped,
                                   path ? chunkNameOf(path) : "=stdin");
}
