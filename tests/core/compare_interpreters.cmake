# Runs one Lua program on tqlua and on the stock Lua 5.1 interpreter and fails unless both
# give the same standard output, standard error and exit status.
#
#   cmake -DTQLUA=... -DSTOCK_LUA=... [options] -P compare_interpreters.cmake -- ARGS...
#
# ARGS are the interpreter's arguments (options, script, script arguments). Options:
#   WORKING_DIRECTORY  where both run
#   INPUT_FILE         standard input (default /dev/null)
#   INPUT_COMMAND      a command line whose output becomes standard input instead
#   OUTPUT_FILE        a file the program writes in WORKING_DIRECTORY; compared as well
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
  string(RANDOM LENGTH 8 _tag)
  set(_input "${WORKING_DIRECTORY}/.compare_input_${_tag}")
  execute_process(COMMAND ${_producer} WORKING_DIRECTORY "${WORKING_DIRECTORY}"
    OUTPUT_FILE "${_input}" RESULT_VARIABLE _rc)
  if(NOT _rc EQUAL 0)
    file(REMOVE "${_input}")
    message(FATAL_ERROR "Input command failed (${_rc}): ${INPUT_COMMAND}")
  endif()
endif()

# Runs the interpreter; sets <prefix>_output (stdout, then stderr with the program name
# normalized to "lua", then OUTPUT_FILE's bytes in hex) and <prefix>_status.
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
  if(OUTPUT_FILE)
    file(REMOVE "${WORKING_DIRECTORY}/${OUTPUT_FILE}")
  endif()
  execute_process(COMMAND ${_command}
    WORKING_DIRECTORY "${WORKING_DIRECTORY}"
    INPUT_FILE "${_input}"
    OUTPUT_VARIABLE _stdout ERROR_VARIABLE _stderr RESULT_VARIABLE _status)
  string(REPLACE "${interpreter}: " "lua: " _stderr "${_stderr}")
  if(MEMORY_LIMIT_MB AND sanitizer_options)
    string(REGEX REPLACE "==[0-9]+==WARNING: [A-Za-z]+Sanitizer failed to allocate 0x[0-9a-f]+ bytes\n" ""
      _stderr "${_stderr}")
  endif()
  set(_output "--- standard output\n${_stdout}--- standard error\n${_stderr}")
  if(OUTPUT_FILE)
    set(_file "${WORKING_DIRECTORY}/${OUTPUT_FILE}")
    if(EXISTS "${_file}")
      file(READ "${_file}" _bytes HEX)
      file(REMOVE "${_file}")
      string(APPEND _output "--- ${OUTPUT_FILE}\n${_bytes}\n")
    else()
      string(APPEND _output "--- ${OUTPUT_FILE} was not written\n")
    endif()
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
