#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Compares the binary interface of the built plug-in library with the
# committed x86-64 baseline and fails on any difference: an exported function
# added, removed or changed, or a change in a type that one reaches (the
# description record, the component record and its function objects, the
# handler's virtual table).
#
#   scripts/abi-check.sh [LIBRARY]            check LIBRARY
#   scripts/abi-check.sh --update [LIBRARY]   rewrite the baseline from LIBRARY
#
# LIBRARY defaults to build-x86_64/plugin/liboutputedidviewmodel.so.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
baseline="$root/abi/liboutputedidviewmodel.x86_64.abi"

update=0
if [ "${1:-}" = "--update" ]; then
  update=1
  shift
fi
library=${1:-$root/build-x86_64/plugin/liboutputedidviewmodel.so}

for tool in abidw abidiff; do
  if ! command -v "$tool" >/dev/null; then
    echo "abi-check: $tool not found (Debian package abigail-tools)" >&2
    exit 2
  fi
done
if [ ! -f "$library" ]; then
  echo "abi-check: no library at $library" >&2
  exit 2
fi
# The types come from the debug information: without it only the symbol
# names could be compared.
if ! readelf -S "$library" | grep -q '\.debug_info'; then
  echo "abi-check: $library has no debug information (build it RelWithDebInfo)" >&2
  exit 2
fi

# Only what the exported functions reach, so that internal changes pass; no
# paths of this checkout, so that the file is the same from any clone.
describe() {
  abidw --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs "$1" |
    sed "s|path='$root/|path='|"
}

fresh=$(mktemp --suffix=.abi)
trap 'rm -f "$fresh"' EXIT
describe "$library" >"$fresh"

if [ "$update" = 1 ]; then
  cat "$fresh" >"$baseline"
  echo "abi-check: baseline rewritten from $library; review 'git diff abi/' before committing it"
  exit 0
fi

if [ ! -f "$baseline" ]; then
  echo "abi-check: no baseline at $baseline" >&2
  exit 2
fi
status=0
abidiff "$baseline" "$fresh" || status=$?
if [ "$status" -ne 0 ]; then
  # abidiff's status is a bit set: 1 error, 2 usage, 4 change, 8 incompatible change.
  echo "abi-check: FAILED: the binary interface of $library differs from $baseline (abidiff status $status)" >&2
  echo "abi-check: if the change is intended, see abi/README.md" >&2
  exit 1
fi
echo "abi-check: $library matches $baseline"
