#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The test command: installs what it needs, builds the library and its tests
# for x86-64 and runs them with the ABI check, cross-builds the same for
# AArch64 and runs them under qemu-user, makes and checks the Debian packages
# for both, measures the line and branch coverage of the library by its
# tests, then runs every test again under
# AddressSanitizer + UndefinedBehaviorSanitizer and under ThreadSanitizer,
# and the fuzzers: the component for a minute, the simulator's EDID decoder
# and scenario reader for half a minute each. Fails on the first failure.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

if [ "${EDIDVM_SKIP_INSTALL:-0}" != "1" ]; then
  bash "$root/scripts/install-deps.sh"
fi

echo "== x86-64: build and test"
cmake -S "$root" -B "$root/build-x86_64" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$root/build-x86_64" -j "$jobs"
ctest --test-dir "$root/build-x86_64" --output-on-failure -j "$jobs"

echo "== x86-64: binary interface against the committed baseline"
bash "$root/scripts/abi-check.sh" "$root/build-x86_64/plugin/liboutputedidviewmodel.so"

echo "== x86-64: Debian packages"
bash "$root/scripts/check-packages.sh" "$root/build-x86_64:amd64"

echo "== AArch64: cross-build and test under qemu-user"
cmake -S "$root" -B "$root/build-aarch64" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64-linux-gnu.cmake" \
  -DEDIDVM_BUILD_BENCH=OFF
cmake --build "$root/build-aarch64" -j "$jobs"
file "$root/build-aarch64/plugin/liboutputedidviewmodel.so" 2>/dev/null || true
ctest --test-dir "$root/build-aarch64" --output-on-failure -j "$jobs"
echo "== AArch64: Debian packages"
bash "$root/scripts/check-packages.sh" "$root/build-aarch64:arm64"

# Sanitizers, coverage and the fuzzer run natively: they do not work under qemu-user.
bash "$root/scripts/coverage.sh"
bash "$root/scripts/sanitizers.sh"
bash "$root/scripts/fuzz.sh"
