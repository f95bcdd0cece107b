#!/usr/bin/env bash
# Line coverage of TqKernel's own sources (Lua's sources and the tests left out): builds the
# coverage preset, runs every test and prints the figures per folder and in total.
# Usage: tools/coverage.sh [ctest arguments...]; the lcov data is left in build/coverage/.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD build=$PWD/build/coverage jobs=${JOBS:-$(nproc)}
cmake --preset coverage >/dev/null
cmake --build --preset coverage -j"$jobs"
lcov -q --zerocounters --directory "$build"
status=0
ctest --preset coverage -j"$jobs" "$@" || status=$?
lcov -q --capture --directory "$build" --output-file "$build/all.info" 2>/dev/null
patterns=()
for folder in core toolkit runtime transit debugger host; do patterns+=("$root/$folder/*"); done
lcov -q --extract "$build/all.info" "${patterns[@]}" --output-file "$build/own.info" 2>/dev/null
awk -v root="$root/" '
  /^SF:/ { path = substr($0, 4); sub(root, "", path); split(path, part, "/"); folder = part[1] }
  /^LF:/ { found[folder] += substr($0, 4); total += substr($0, 4) }
  /^LH:/ { hit[folder] += substr($0, 4); covered += substr($0, 4) }
  END {
    n = split("core toolkit runtime transit debugger host", order, " ")
    for (i = 1; i <= n; ++i) if ((f = order[i]) in found) printf "%-10s %5.1f%% (%d of %d lines)\n", f, 100 * hit[f] / found[f], hit[f], found[f]
    printf "%-10s %5.1f%% (%d of %d lines)\n", "total", 100 * covered / total, covered, total
  }' "$build/own.info"
echo "per file: lcov --list $build/own.info; uncovered lines: genhtml $build/own.info -o DIR"
exit "$status"
