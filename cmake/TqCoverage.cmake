# gcc line coverage of everything built (tools/coverage.sh reads it back with lcov).
option(TQ_COVERAGE "Build with gcc --coverage" OFF)
if(TQ_COVERAGE)
  add_compile_options(--coverage -O0)
  add_link_options(--coverage)
endif()
