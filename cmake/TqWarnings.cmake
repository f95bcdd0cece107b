# Our own code builds warning-free; Lua's sources are third-party and are compiled with -w.
function(tq_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()
