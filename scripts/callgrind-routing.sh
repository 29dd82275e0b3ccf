#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Instructions per routed event against a plain std::function call, counted by
# callgrind: unlike a time, the count does not drift with the machine's load.
# Usage: scripts/callgrind-routing.sh [path to edidvm-bench-routing] [loops]
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bench=${1:-$root/build-x86_64/bench/edidvm-bench-routing}
loops=${2:-100000}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

count() {
  valgrind --tool=callgrind --callgrind-out-file="$out/$1.out" --collect-atstart=no \
    --toggle-collect="$1" "$bench" --callgrind-loop="$loops" >/dev/null 2>&1
  callgrind_annotate "$out/$1.out" | awk '/PROGRAM TOTALS/ { gsub(",", "", $1); print $1 }'
}

route=$(count edidvm_route_loop)
plain=$(count edidvm_plain_loop)
awk -v r="$route" -v p="$plain" -v n="$loops" 'BEGIN {
  printf "instructions per routed event: %.1f\n", r / n
  printf "instructions per plain std::function call: %.1f\n", p / n
  printf "route/plain: %.2fx\n", r / p
}'
