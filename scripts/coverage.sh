#!/usr/bin/env bash
# Line and branch coverage of the library's own code (plugin/, framework/,
# message/, protomodel/, viewmodel/) by its fast suites: a gcc --coverage
# build in build-coverage without the simulator, benchmarks or fuzzers, its
# ctest, then gcovr. The HTML report goes to build-coverage/coverage/; the
# figures are printed, the whole and message/ and viewmodel/ apart. Installs
# nothing (scripts/install-deps.sh does).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build-coverage"
jobs=$(( $(nproc) < 2 ? $(nproc) : 2 ))

echo "== coverage: gcc --coverage build in $build"
CC=gcc CXX=g++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DEDIDVM_BUILD_SIM=OFF -DEDIDVM_BUILD_BENCH=OFF -DEDIDVM_BUILD_FUZZ=OFF \
  -DCMAKE_CXX_FLAGS="--coverage" -DCMAKE_EXE_LINKER_FLAGS="--coverage" \
  -DCMAKE_SHARED_LINKER_FLAGS="--coverage" -DCMAKE_MODULE_LINKER_FLAGS="--coverage"
cmake --build "$build" -j "$jobs"
# Counts from an earlier run would add up.
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" --output-on-failure -j "$jobs"

# Branches that only exceptions or the compiler's own code take are left out:
# they are not decisions of the code.
cd "$root"
gcov_options=(--root "$root" --object-directory "$build" --exclude-throw-branches --exclude-unreachable-branches)
library='(plugin|framework|message|protomodel|viewmodel)/'
mkdir -p "$build/coverage"
gcovr "${gcov_options[@]}" --filter "$library" \
  --html-details "$build/coverage/index.html" --json "$build/coverage/coverage.json" > /dev/null
# figures FILTER LABEL: "coverage: LABEL lines 97.1% branches 71.3%"
figures() {
  gcovr "${gcov_options[@]}" --filter "$1" --json-summary - |
    python3 -c 'import json, sys
s = json.load(sys.stdin)
print("coverage: %-10s lines %.1f%% (%d of %d) branches %.1f%% (%d of %d)" % (sys.argv[1],
      s["line_percent"], s["line_covered"], s["line_total"],
      s["branch_percent"], s["branch_covered"], s["branch_total"]))' "$2"
}
figures "$library" library
figures 'message/' message/
figures 'viewmodel/' viewmodel/
echo "== coverage: report in $build/coverage/index.html"
