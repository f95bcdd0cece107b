# Runs one Lua program on tqlua and on the stock Lua 5.1 interpreter and fails unless both
# give the same standard output, standard error and exit status.
#
# The library's luaL_loadfile names a file's chunk by its path without Lua's '@' mark, so
# tqlua shows positions in files as [string "name.lua"]:line where the stock interpreter
# shows name.lua:line; the comparison maps the former (also with its quotes escaped, as
# string.format's %q shows it) to the latter.
#
#   cmake -DTQLUA=... -DSTOCK_LUA=... [options] -P compare_interpreters.cmake -- ARGS...
#
# ARGS are the interpreter's arguments (options, script, script arguments). Options:
#   WORKING_DIRECTORY  where both run
#   INPUT_FILE         standard input (default /dev/null)
#   INPUT_COMMAND      a command line whose output becomes standard input instead
#   RUN_OUTPUT_FILE    a compiled chunk the program writes in WORKING_DIRECTORY; each
#                      interpreter then runs the one it wrote, and that run is compared too
#   MEMORY_LIMIT_MB    run under this memory limit (ulimit -v). Sanitizers cannot run
#                      under ulimit -v, so a sanitized tqlua instead gets a cap of a quarter
#                      of it on single allocations (max_allocation_size_mb), and the
#                      sanitizer's warnings about the allocations it refuses are dropped
#   TQLUA_SANITIZER_OPTIONS  the options variable of tqlua's sanitizer (ASAN_OPTIONS,
#                      TSAN_OPTIONS), empty when tqlua is not sanitized

foreach(_required TQLUA STOCK_LUA)
  if(NOT DEFINED ${_required})
    message(FATAL_ERROR "${_required} is not set")
  endif()
endforeach()
if(NOT EXISTS "${STOCK_LUA}")
  message(FATAL_ERROR "The stock Lua 5.1 interpreter ${STOCK_LUA} is missing: these tests "
    "compare against it. Install the Debian package lua5.1 (apt-get install lua5.1).")
endif()
if(NOT WORKING_DIRECTORY)
  set(WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
endif()

set(_args "")
set(_after_separator FALSE)
math(EXPR _last "${CMAKE_ARGC} - 1")
foreach(_i RANGE ${_last})
  if(_after_separator)
    list(APPEND _args "${CMAKE_ARGV${_i}}")
  elseif(CMAKE_ARGV${_i} STREQUAL "--")
    set(_after_separator TRUE)
  endif()
endforeach()

set(_input "/dev/null")
if(INPUT_FILE)
  set(_input "${INPUT_FILE}")
endif()
if(INPUT_COMMAND)
  separate_arguments(_producer UNIX_COMMAND "${INPUT_COMMAND}")
  string(MD5 _tag "${_args}${INPUT_COMMAND}")  # one name per test: tests run in parallel
  set(_input "${WORKING_DIRECTORY}/.compare_input_${_tag}")
  execute_process(COMMAND ${_producer} WORKING_DIRECTORY "${WORKING_DIRECTORY}"
    OUTPUT_FILE "${_input}" RESULT_VARIABLE _rc)
  if(NOT _rc EQUAL 0)
    file(REMOVE "${_input}")
    message(FATAL_ERROR "Input command failed (${_rc}): ${INPUT_COMMAND}")
  endif()
endif()

# Runs the interpreter; sets <prefix>_output (stdout, then stderr with the program name
# normalized to "lua", then what running RUN_OUTPUT_FILE gives) and <prefix>_status.
function(run_interpreter prefix interpreter sanitizer_options)
  set(_command "${interpreter}" ${_args})
  if(MEMORY_LIMIT_MB)
    if(sanitizer_options)
      math(EXPR _cap "${MEMORY_LIMIT_MB} / 4")
      set(ENV{${sanitizer_options}}
        "$ENV{${sanitizer_options}}:allocator_may_return_null=1:max_allocation_size_mb=${_cap}")
    else()
      math(EXPR _kilobytes "${MEMORY_LIMIT_MB} * 1024")
      set(_command sh -c "ulimit -v ${_kilobytes} && exec \"$0\" \"$@\"" ${_command})
    endif()
  endif()
  if(RUN_OUTPUT_FILE)
    file(REMOVE "${WORKING_DIRECTORY}/${RUN_OUTPUT_FILE}")
  endif()
  execute_process(COMMAND ${_command}
    WORKING_DIRECTORY "${WORKING_DIRECTORY}"
    INPUT_FILE "${_input}"
    OUTPUT_VARIABLE _stdout ERROR_VARIABLE _stderr RESULT_VARIABLE _status)
  string(REPLACE "${interpreter}: " "lua: " _stderr "${_stderr}")
  foreach(_stream _stdout _stderr)
    string(REGEX REPLACE "\\[string \\\\?\"([^\"\\]*\\.lua)\\\\?\"\\]" "\\1" ${_stream} "${${_stream}}")
  endforeach()
  if(MEMORY_LIMIT_MB AND sanitizer_options)
    string(REGEX REPLACE "==[0-9]+==WARNING: [A-Za-z]+Sanitizer failed to allocate 0x[0-9a-f]+ bytes\n" ""
      _stderr "${_stderr}")
  endif()
  set(_output "--- standard output\n${_stdout}--- standard error\n${_stderr}")
  if(RUN_OUTPUT_FILE)
    set(_file "${WORKING_DIRECTORY}/${RUN_OUTPUT_FILE}")
    execute_process(COMMAND "${interpreter}" "${RUN_OUTPUT_FILE}"
      WORKING_DIRECTORY "${WORKING_DIRECTORY}" INPUT_FILE /dev/null
      OUTPUT_VARIABLE _run_stdout ERROR_VARIABLE _run_stderr RESULT_VARIABLE _run_status)
    file(REMOVE "${_file}")
    string(REPLACE "${interpreter}: " "lua: " _run_stderr "${_run_stderr}")
    string(APPEND _output "--- running ${RUN_OUTPUT_FILE} (exit status ${_run_status})\n"
      "${_run_stdout}--- its standard error\n${_run_stderr}")
  endif()
  set(${prefix}_output "${_output}" PARENT_SCOPE)
  set(${prefix}_status "${_status}" PARENT_SCOPE)
endfunction()

run_interpreter(stock "${STOCK_LUA}" "")
run_interpreter(ours "${TQLUA}" "${TQLUA_SANITIZER_OPTIONS}")
if(INPUT_COMMAND)
  file(REMOVE "${_input}")
endif()

if(NOT stock_output STREQUAL ours_output OR NOT stock_status STREQUAL ours_status)
  message(FATAL_ERROR "tqlua and ${STOCK_LUA} disagree on: ${_args}\n"
    "=== ${STOCK_LUA} (exit status ${stock_status})\n${stock_output}"
    "=== tqlua (exit status ${ours_status})\n${ours_output}")
endif()
message(STATUS "same output and exit status ${ours_status}")
