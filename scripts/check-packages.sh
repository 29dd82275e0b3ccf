#!/usr/bin/env bash
# Makes the Debian packages in the given build directories (cpack) and checks
# what they hold: the plug-in package ships the library for its architecture
# and its translation, nothing else, and depends on Qt Core; the simulator
# package ships the program and its scenarios, and the program unpacked with
# the plug-in plays its default scenario against the unpacked library.
# Usage: scripts/check-packages.sh BUILD_DIR:ARCH [BUILD_DIR:ARCH ...]
set -euo pipefail

fail() { echo "packages: $*" >&2; exit 1; }

for entry in "$@"; do
  build=${entry%%:*}
  arch=${entry##*:}
  (cd "$build" && rm -f ./*.deb && cpack -G DEB >/dev/null)
  plugin="$build/liboutputedidviewmodel_0.1.0_${arch}.deb"
  [ -f "$plugin" ] || fail "no plug-in package for $arch in $build"

  [ "$(dpkg-deb -f "$plugin" Architecture)" = "$arch" ] || fail "$plugin: architecture is not $arch"
  dpkg-deb -f "$plugin" Depends | grep -q 'libqt5core5a' || fail "$plugin: does not depend on libqt5core5a"
  files=$(dpkg-deb -c "$plugin" | awk '{print $6}' | grep -v '/$' | sort)
  case "$arch" in
    amd64) triplet=x86_64-linux-gnu ;;
    arm64) triplet=aarch64-linux-gnu ;;
    *) fail "unknown architecture $arch" ;;
  esac
  expected=$(printf '%s\n' "./usr/lib/$triplet/liboutputedidviewmodel.so" \
    "./usr/share/outputedidviewmodel/translations/outputedidviewmodel_de.qm" | sort)
  [ "$files" = "$expected" ] || fail "$plugin holds:
$files
expected exactly:
$expected"
  unpacked=$(mktemp -d)
  dpkg-deb -x "$plugin" "$unpacked"
  machine=$(readelf -h "$unpacked/usr/lib/$triplet/liboutputedidviewmodel.so" | awk -F: '/Machine/ {print $2}')
  rm -rf "$unpacked"
  case "$arch:$machine" in
    amd64:*X86-64*|arm64:*AArch64*) ;;
    *) fail "$plugin: library built for$machine" ;;
  esac
  echo "packages: $(basename "$plugin") holds the $arch library and its translation"

  simulator="$build/edidsim_0.1.0_${arch}.deb"
  if [ -f "$simulator" ]; then
    listing=$(dpkg-deb -c "$simulator" | awk '{print $6}')
    grep -qx './usr/bin/edidsim' <<<"$listing" || fail "$simulator: no usr/bin/edidsim"
    grep -qx './usr/share/edidsim/scenarios/default.json' <<<"$listing" || fail "$simulator: no default scenario"
    dpkg-deb -f "$simulator" Depends | grep -q 'liboutputedidviewmodel (= 0.1.0)' \
      || fail "$simulator: does not depend on the plug-in package"
    [ "$(dpkg-deb -f "$simulator" Architecture)" = "$arch" ] || fail "$simulator: architecture is not $arch"
    unpacked=$(mktemp -d)
    dpkg-deb -x "$plugin" "$unpacked"
    dpkg-deb -x "$simulator" "$unpacked"
    run=()
    [ "$arch" = arm64 ] && [ "$(uname -m)" != aarch64 ] && run=(qemu-aarch64 -L /)
    # A broken unpacked library must fail to load: proof that the program
    # took the one beside it, not a build tree's.
    played=$("${run[@]}" "$unpacked/usr/bin/edidsim" 2>&1) \
      || { rm -rf "$unpacked"; fail "$simulator: the unpacked program fails:
$played"; }
    echo 'not a library' >"$unpacked/usr/lib/$triplet/liboutputedidviewmodel.so"
    status=0
    broken=$("${run[@]}" "$unpacked/usr/bin/edidsim" 2>&1) || status=$?
    rm -rf "$unpacked"
    grep -q '== scenario default.json' <<<"$played" || fail "$simulator: the default scenario was not played"
    [ "$status" = 3 ] && grep -q "/usr/lib/$triplet/liboutputedidviewmodel.so: cannot be loaded" <<<"$broken" \
      || fail "$simulator: the unpacked program does not load the unpacked library:
$broken"
    echo "packages: $(basename "$simulator") holds the simulator and its scenarios, and plays them unpacked"
  fi
done
