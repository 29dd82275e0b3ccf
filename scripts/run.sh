#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The run command: installs what it needs, builds the library and the
# simulator, and plays a scenario (the default one without arguments). Any
# arguments go to edidsim, e.g. scenarios/two-screens-confirmed.json or --json.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
if [ "${EDIDVM_SKIP_INSTALL:-0}" != "1" ]; then
  bash "$root/scripts/install-deps.sh" --native
fi
cmake -S "$root" -B "$root/build-x86_64" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$root/build-x86_64" -j "$(nproc)" --target edidsim outputedidviewmodel
exec "$root/build-x86_64/edidsim/edidsim" "$@"
