#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the Debian packages that the build and the tests need. With
# --native, only what the x86-64 build needs; otherwise the AArch64 cross
# toolchain, the AArch64 libraries and qemu-user as well. Safe to run again.
set -euo pipefail

native_only=0
[ "${1:-}" = "--native" ] && native_only=1

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive

packages=(
  build-essential cmake ninja-build pkg-config binutils file dpkg-dev
  qtbase5-dev qttools5-dev-tools
  libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libcli11-dev
  edid-decode gcovr lintian
  # The checks of the scenario schema, the simulator's JSON trace and JUnit report.
  python3-jsonschema python3-junitparser
  # The desktop page, its QML modules, and a font to draw its pictures with.
  qtdeclarative5-dev qtquickcontrols2-5-dev qml-module-qtquick2 qml-module-qtquick-controls2
  qml-module-qtquick-layouts qml-module-qtquick-window2 qml-module-qtquick-templates2 fonts-dejavu-core
)
if [ "$native_only" -eq 0 ]; then
  if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    $SUDO dpkg --add-architecture arm64
  fi
  # The cross build, and the hardening runs: sanitizers and the fuzzer with
  # clang, the ABI check, instruction counts.
  packages+=(crossbuild-essential-arm64 qemu-user qtbase5-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64
    clang libclang-rt-14-dev libfuzzer-14-dev abigail-tools valgrind)
fi

$SUDO apt-get update
$SUDO apt-get install -y --no-install-recommends "${packages[@]}"
