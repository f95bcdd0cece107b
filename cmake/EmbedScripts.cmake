# Compiles scripts/*.lua into the library: a generated C++ table of (name, bytes, length)
# that runtime/resources.cpp searches. The table is rebuilt whenever a script changes.
function(tq_embed_scripts target)
  file(GLOB _scripts CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/scripts/*.lua")
  list(SORT _scripts)
  set(_out "${CMAKE_CURRENT_BINARY_DIR}/embedded_scripts.cpp")
  add_custom_command(
    OUTPUT "${_out}"
    COMMAND "${CMAKE_COMMAND}" "-DOUT=${_out}" "-DSCRIPTS=${_scripts}"
            -P "${PROJECT_SOURCE_DIR}/cmake/embed_scripts.cmake"
    DEPENDS ${_scripts} "${PROJECT_SOURCE_DIR}/cmake/embed_scripts.cmake"
    COMMENT "Embedding Lua scripts"
    VERBATIM)
  target_sources(${target} PRIVATE "${_out}")
endfunction()
