#!/usr/bin/env bash
# The run command: installs what it needs, builds the library and loads it on
# our host, which prints its description and its registrations.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
if [ "${EDIDVM_SKIP_INSTALL:-0}" != "1" ]; then
  bash "$root/scripts/install-deps.sh" --native
fi
cmake -S "$root" -B "$root/build-x86_64" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$root/build-x86_64" -j "$(nproc)" --target edidvm-describe outputedidviewmodel
"$root/build-x86_64/sim/edidvm-describe" "$root/build-x86_64/plugin/liboutputedidviewmodel.so"
