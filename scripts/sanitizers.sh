#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the whole project with gcc and AddressSanitizer + UndefinedBehavior-
# Sanitizer in build-asan, the simulator with its EDID decoder and scenario
# reader included, and runs every test; then with ThreadSanitizer in
# build-tsan and runs every test again. Any sanitizer report fails its test
# and so the run. Native x86-64 only: the sanitizers do not work under
# qemu-user. Installs nothing (scripts/install-deps.sh does).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# Two cores shared with others: at most two jobs.
jobs=$(( $(nproc) < 2 ? $(nproc) : 2 ))
# GCC's flow analysis gives false maybe-uninitialized warnings on
# instrumented code (std::optional copies under UBSan); they stay warnings
# here, and errors in the plain builds.
common=(-G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
  -DEDIDVM_BUILD_BENCH=OFF -DEDIDVM_BUILD_FUZZ=OFF
  -DCMAKE_CXX_FLAGS=-Wno-error=maybe-uninitialized)

echo "== sanitizers: address,undefined (build-asan)"
# Without the desktop page: Qt's offscreen platform leaks its own screen
# objects at exit, which LeakSanitizer reports for every page test; the page
# runs in the plain build.
CC=gcc CXX=g++ cmake -S "$root" -B "$root/build-asan" "${common[@]}" -DEDIDVM_SANITIZE=address,undefined \
  -DEDIDVM_BUILD_SIM=ON -DEDIDVM_BUILD_PAGE=OFF
cmake --build "$root/build-asan" -j "$jobs"
ASAN_OPTIONS="halt_on_error=1:detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1" \
UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1" \
  ctest --test-dir "$root/build-asan" --output-on-failure -j "$jobs"

echo "== sanitizers: thread (build-tsan)"
# With the simulator's libraries, which the probe's capture test plays its
# captures with; without the desktop page (Qt's offscreen platform).
CC=gcc CXX=g++ cmake -S "$root" -B "$root/build-tsan" "${common[@]}" -DEDIDVM_SANITIZE=thread \
  -DEDIDVM_BUILD_SIM=ON -DEDIDVM_BUILD_PAGE=OFF
cmake --build "$root/build-tsan" -j "$jobs"
TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1" \
  ctest --test-dir "$root/build-tsan" --output-on-failure -j "$jobs"

echo "== sanitizers: passed"
