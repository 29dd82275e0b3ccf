#!/usr/bin/env bash
# Installs the Debian packages that the build and the tests need, for x86-64
# and for the AArch64 cross build. Safe to run again.
set -euo pipefail

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive

if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  $SUDO dpkg --add-architecture arm64
fi
$SUDO apt-get update
$SUDO apt-get install -y --no-install-recommends \
  build-essential cmake ninja-build pkg-config binutils file \
  qtbase5-dev qttools5-dev-tools \
  libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev \
  crossbuild-essential-arm64 qemu-user \
  qtbase5-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64
