# Runs tqhost and fails unless it exits with EXIT_STATUS and its output (standard output and
# standard error) contains OUTPUT.
#   cmake -DTQHOST=... -DNAME=test -DEXIT_STATUS=n -DOUTPUT=text [-DSCRIPT_TEXT=lua] -P run_tqhost.cmake -- ARGS...
# With SCRIPT_TEXT, the text is written to a script (named after the test) whose path replaces
# the argument SCRIPT.
set(_args "")
set(_after_separator FALSE)
math(EXPR _last "${CMAKE_ARGC} - 1")
foreach(_i RANGE ${_last})
  if(_after_separator)
    set(_arg "${CMAKE_ARGV${_i}}")
    if(_arg STREQUAL "SCRIPT")
      set(_arg "${CMAKE_CURRENT_BINARY_DIR}/tqhost_${NAME}.lua")
      file(WRITE "${_arg}" "${SCRIPT_TEXT}")
      set(_script "${_arg}")
    endif()
    list(APPEND _args "${_arg}")
  elseif(CMAKE_ARGV${_i} STREQUAL "--")
    set(_after_separator TRUE)
  endif()
endforeach()
execute_process(COMMAND "${TQHOST}" ${_args} INPUT_FILE /dev/null
  OUTPUT_VARIABLE _out ERROR_VARIABLE _out RESULT_VARIABLE _status)
if(_script)
  file(REMOVE "${_script}")
endif()
string(FIND "${_out}" "${OUTPUT}" _at)
if(NOT _status STREQUAL "${EXIT_STATUS}" OR _at EQUAL -1)
  message(FATAL_ERROR "tqhost ${_args}: exit status ${_status} (expected ${EXIT_STATUS}), output:\n${_out}\n"
    "expected to contain:\n${OUTPUT}")
endif()
