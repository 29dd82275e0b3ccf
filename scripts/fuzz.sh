#!/usr/bin/env bash
# Builds the libFuzzer harness with clang (address and undefined-behaviour
# sanitizers and coverage on every target, warnings as errors) in build-fuzz,
# and runs it for a bounded time on a copy of the checked-in seed corpus.
# Fails on any crash, leak, sanitizer report or hang. Installs nothing
# (scripts/install-deps.sh does).
#
#   EDIDVM_FUZZ_SECONDS  run time in seconds (default 60)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build-fuzz"
seconds="${EDIDVM_FUZZ_SECONDS:-60}"
# Two cores shared with others: the build uses at most two jobs.
jobs=$(( $(nproc) < 2 ? $(nproc) : 2 ))

echo "== fuzz: clang build in $build"
# Every target is instrumented (the libraries with coverage, not libFuzzer's
# main); the plug-in, linked with -z defs, takes the sanitizer runtime as a
# shared library since it cannot carry the static one.
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DEDIDVM_BUILD_FUZZ=ON -DEDIDVM_BUILD_TESTS=OFF -DEDIDVM_BUILD_BENCH=OFF -DEDIDVM_BUILD_SIM=OFF \
  -DEDIDVM_SANITIZE=address,undefined \
  -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link" \
  -DCMAKE_SHARED_LINKER_FLAGS="-shared-libsan"
cmake --build "$build" -j "$jobs"

# The run grows a copy of the corpus, never the checked-in one.
corpus="$build/corpus"
artifacts="$build/artifacts"
rm -rf "$corpus" "$artifacts"
mkdir -p "$corpus" "$artifacts"
cp "$root"/fuzz/corpus/* "$corpus"/

echo "== fuzz: ${seconds}s"
log="$build/fuzz.log"
set +e
ASAN_OPTIONS="halt_on_error=1:detect_leaks=1:allocator_may_return_null=0" \
UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1" \
  "$build/fuzz/edidvm-fuzz" "$corpus" \
  -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=4096 \
  -print_final_stats=1 -artifact_prefix="$artifacts/" > "$log" 2>&1
status=$?
set -e

# A non-zero exit covers crashes, leaks, timeouts and memory limits; the
# report check is a second guard.
if [ "$status" -ne 0 ] || [ -n "$(ls -A "$artifacts")" ] || grep -qE 'ERROR: |runtime error:' "$log"; then
  tail -n 80 "$log" >&2
  echo "== fuzz: FAILED (exit $status); reproducer(s) in $artifacts:" >&2
  ls -l "$artifacts" >&2
  echo "   replay: EDIDVM_FUZZ_VERBOSE=1 $build/fuzz/edidvm-fuzz <file>" >&2
  exit 1
fi
grep -E '^(Done |stat::(number_of_executed_units|average_exec_per_sec|new_units_added|peak_rss_mb))' "$log"
echo "== fuzz: passed"
