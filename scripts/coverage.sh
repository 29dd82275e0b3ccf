#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Line and branch coverage of the library's own code (plugin/, framework/,
# message/, protomodel/, viewmodel/) by its suites and the shipped scenarios
# (the flows end to end): a gcc --coverage build in build-coverage with the
# simulator but without its page, benchmarks or fuzzers, its ctest, then gcovr. The HTML report goes to build-coverage/coverage/; the
# figures are printed, the whole and message/ and viewmodel/ apart. Installs
# nothing (scripts/install-deps.sh does).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build-coverage"
jobs=$(( $(nproc) < 2 ? $(nproc) : 2 ))

echo "== coverage: gcc --coverage build in $build"
# -O0 without debug information: exact line counts, and the quickest build.
CC=gcc CXX=g++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 \
  -DEDIDVM_BUILD_SIM=ON -DEDIDVM_BUILD_PAGE=OFF -DEDIDVM_BUILD_BENCH=OFF -DEDIDVM_BUILD_FUZZ=OFF \
  -DCMAKE_CXX_FLAGS="--coverage" -DCMAKE_EXE_LINKER_FLAGS="--coverage" \
  -DCMAKE_SHARED_LINKER_FLAGS="--coverage" -DCMAKE_MODULE_LINKER_FLAGS="--coverage"
cmake --build "$build" -j "$jobs"
# Counts from an earlier run would add up.
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" --output-on-failure -j "$jobs"

# Branches that only exceptions or the compiler's own code take are left out:
# they are not decisions of the code.
cd "$root"
mkdir -p "$build/coverage"
gcovr --root "$root" --object-directory "$build" --exclude-directories '.*/CMakeFiles/[^/]+/CompilerId' \
  --exclude-throw-branches --exclude-unreachable-branches \
  --filter '(plugin|framework|message|protomodel|viewmodel)/' \
  --html-details "$build/coverage/index.html" --json "$build/coverage/coverage.json" > /dev/null
# The whole, then message/ and viewmodel/ apart, from gcovr's own counts.
python3 - "$build/coverage/coverage.json" <<'PY'
import json, sys
files = json.load(open(sys.argv[1]))["files"]
for label, prefixes in (("library", ("plugin/", "framework/", "message/", "protomodel/", "viewmodel/")),
                        ("message/", ("message/",)), ("viewmodel/", ("viewmodel/",))):
    lines = [l for f in files if f["file"].startswith(prefixes) for l in f["lines"]
             if not l.get("gcovr/noncode") and not l.get("gcovr/excluded")]
    branches = [b for l in lines for b in l["branches"] if not b.get("throw")]
    covered = sum(l["count"] > 0 for l in lines)
    taken = sum(b["count"] > 0 for b in branches)
    print("coverage: %-10s lines %.1f%% (%d of %d) branches %.1f%% (%d of %d)" % (
        label, 100.0 * covered / max(len(lines), 1), covered, len(lines),
        100.0 * taken / max(len(branches), 1), taken, len(branches)))
PY
echo "== coverage: report in $build/coverage/index.html"
