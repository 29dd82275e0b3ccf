# SPDX-License-Identifier: MIT
# Cross build for the device (AArch64 Linux) on a Debian multiarch machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# Libraries and their CMake packages live under /usr/lib/aarch64-linux-gnu.
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# The multiarch loader: with the cross toolchain's own loader (-L
# /usr/aarch64-linux-gnu) programs hang at their first thread.
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-aarch64;-L;/")
