#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the libFuzzer harnesses with clang (address and undefined-behaviour
# sanitizers and coverage on every target, warnings as errors) in build-fuzz,
# and runs each for a bounded time on a copy of its seed corpus: the view
# model's checked-in corpus, and for the EDID decoder and the scenario reader
# the repository's own EDID and scenario files, gathered here at run time.
# Fails on any crash, leak, sanitizer report or hang. Installs nothing
# (scripts/install-deps.sh does).
#
#   EDIDVM_FUZZ_SECONDS           view model run time in seconds (default 60)
#   EDIDVM_FUZZ_EDID_SECONDS      EDID decoder run time (default 30)
#   EDIDVM_FUZZ_SCENARIO_SECONDS  scenario reader run time (default 30)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build-fuzz"
# Two cores shared with others: the build uses at most two jobs.
jobs=$(( $(nproc) < 2 ? $(nproc) : 2 ))

echo "== fuzz: clang build in $build"
# Every target is instrumented (the libraries with coverage, not libFuzzer's
# main); the plug-in and the probe, linked with -z defs, take the sanitizer
# runtime as a shared library since they cannot carry the static one. The fuzz build brings
# in the simulator's decoder and reader libraries, not the simulator.
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DEDIDVM_BUILD_FUZZ=ON -DEDIDVM_BUILD_TESTS=OFF -DEDIDVM_BUILD_BENCH=OFF -DEDIDVM_BUILD_SIM=OFF \
  -DEDIDVM_SANITIZE=address,undefined \
  -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link" \
  -DCMAKE_SHARED_LINKER_FLAGS="-shared-libsan" -DCMAKE_MODULE_LINKER_FLAGS="-shared-libsan"
cmake --build "$build" -j "$jobs"

# Seeds from the repository, named after where they come from. The runs
# grow copies, never the repository's files.
seed() {
  local corpus=$1 file
  shift
  for file in "$@"; do
    [ -f "$file" ] || continue
    cp "$file" "$corpus/$(realpath --relative-to="$root" "$file" | tr / _)"
  done
}

# fuzz NAME PROGRAM SECONDS MAX_LEN: runs PROGRAM on build-fuzz/corpus-NAME
# (filled beforehand); reproducers go to build-fuzz/artifacts-NAME.
failed=()
fuzz() {
  local name=$1 program=$2 seconds=$3 max_len=$4
  local corpus="$build/corpus-$name" artifacts="$build/artifacts-$name" log="$build/fuzz-$name.log"
  rm -rf "$artifacts"
  mkdir -p "$artifacts"
  echo "== fuzz: $name, ${seconds}s on $(ls "$corpus" | wc -l) seeds"
  set +e
  ASAN_OPTIONS="halt_on_error=1:detect_leaks=1:allocator_may_return_null=0" \
  UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1" \
    "$program" "$corpus" \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len="$max_len" \
    -print_final_stats=1 -artifact_prefix="$artifacts/" > "$log" 2>&1
  local status=$?
  set -e
  # A non-zero exit covers crashes, leaks, timeouts and memory limits; the
  # report check is a second guard.
  if [ "$status" -ne 0 ] || [ -n "$(ls -A "$artifacts")" ] || grep -qE 'ERROR: |runtime error:' "$log"; then
    tail -n 80 "$log" >&2
    echo "== fuzz: $name FAILED (exit $status); reproducer(s) in $artifacts:" >&2
    ls -l "$artifacts" >&2
    echo "   replay: $program <file>" >&2
    failed+=("$name")
    return 0
  fi
  grep -E '^(Done |stat::(number_of_executed_units|average_exec_per_sec|new_units_added|peak_rss_mb))' "$log"
}

for name in viewmodel edid scenario; do
  rm -rf "${build:?}/corpus-$name"
  mkdir -p "$build/corpus-$name"
done
cp "$root"/fuzz/corpus/* "$build/corpus-viewmodel"/
seed "$build/corpus-edid" "$root"/tests/edid/data/edid/*.edid "$root"/tests/edid/data/*.edid \
  "$root"/scenarios/edid/*.edid "$root"/tests/scenarios/data/*.edid
seed "$build/corpus-scenario" "$root"/scenarios/*.json "$root"/tests/scenarios/data/*.json

fuzz viewmodel "$build/fuzz/edidvm-fuzz" "${EDIDVM_FUZZ_SECONDS:-60}" 4096
# An EDID has at most 255 extension blocks of 128 bytes after the base block.
fuzz edid "$build/fuzz/edidvm-fuzz-edid" "${EDIDVM_FUZZ_EDID_SECONDS:-30}" 32768
fuzz scenario "$build/fuzz/edidvm-fuzz-scenario" "${EDIDVM_FUZZ_SCENARIO_SECONDS:-30}" 16384

if [ "${#failed[@]}" -ne 0 ]; then
  echo "== fuzz: FAILED: ${failed[*]}" >&2
  exit 1
fi
echo "== fuzz: passed"
