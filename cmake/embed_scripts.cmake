# Script mode: writes OUT, a C++ file defining tq::embeddedScripts from the files in SCRIPTS.
set(_body "")
set(_entries "")
set(_i 0)
foreach(_file IN LISTS SCRIPTS)
  get_filename_component(_name "${_file}" NAME_WE)
  file(READ "${_file}" _hex HEX)
  string(LENGTH "${_hex}" _hexlen)
  math(EXPR _len "${_hexlen} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," _bytes "${_hex}")
  string(APPEND _body "static const char kScript${_i}[] = {${_bytes}'\\0'};\n")
  string(APPEND _entries "  {\"${_name}\", kScript${_i}, ${_len}},\n")
  math(EXPR _i "${_i} + 1")
endforeach()
file(WRITE "${OUT}.tmp"
"// Generated from scripts/*.lua at build time; do not edit.
#include \"runtime/resources.h\"

namespace tq {
${_body}
const EmbeddedScript embeddedScripts[] = {
${_entries}  {nullptr, nullptr, 0},
};
}  // namespace tq
")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
