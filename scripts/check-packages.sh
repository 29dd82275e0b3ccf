#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the Debian packages in the given build directories (cpack) and checks
# what they hold: the plug-in package ships the stripped library in its
# private plug-in directory, its translation and Debian's files, is
# Multi-Arch: same and depends on what dpkg-shlibdeps found; the simulator
# package ships the stripped program, its scenarios and manual page, needs no
# Qt GUI library, and the program unpacked with the plug-in plays its default
# scenario against the unpacked library; the page package ships the page's
# module, which the unpacked program loads to draw the default scenario; the
# probe package ships the stripped probe beside the plug-in, exporting only
# the two entry points; each has a -dbgsym package with the symbols of its
# binary. lintian must report no error and no warning that the packages'
# overrides do not justify.
# Usage: scripts/check-packages.sh BUILD_DIR:ARCH [BUILD_DIR:ARCH ...]
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
version=$(dpkg-parsechangelog -l "$root/packaging/changelog" -S Version)

fail() { echo "packages: $*" >&2; exit 1; }

# Every lintian override says why, in the comment line above it.
for overrides in "$root"/packaging/*.lintian-overrides; do
  awk '/^[^#[:space:]]/ && prev !~ /^#/ {print FILENAME ":" FNR ": an override without its reason"; bad=1}
       {prev=$0} END {exit bad}' "$overrides" >&2 || fail "$overrides: give each override a reason"
done

# The binary in an unpacked package is stripped, and the package's -dbgsym
# holds the symbols under its build id.
check_stripped() {
  local deb=$1 binary=$2 arch=$3 unpacked id
  unpacked=$(mktemp -d)
  dpkg-deb -x "$deb" "$unpacked"
  file -b "$unpacked$binary" | grep -q ', stripped' || fail "$deb: $binary is not stripped"
  id=$(readelf -n "$unpacked$binary" | awk '/Build ID/ {print $3}')
  rm -rf "$unpacked"
  local dbgsym=${deb%_"${version}_${arch}".deb}-dbgsym_${version}_${arch}.ddeb
  [ -f "$dbgsym" ] || fail "no $dbgsym"
  grep -q "\./usr/lib/debug/\.build-id/${id:0:2}/${id:2}\.debug$" <<<"$(dpkg-deb -c "$dbgsym")" \
    || fail "$dbgsym: no symbols for build id $id of $binary"
}

# The package holds exactly the files given.
check_files() {
  local deb=$1 files expected
  shift
  files=$(dpkg-deb -c "$deb" | awk '{print $6}' | grep -v '/$' | sort)
  expected=$(printf '%s\n' "$@" | sort)
  [ "$files" = "$expected" ] || fail "$deb holds:
$files
expected exactly:
$expected"
}

# The machine a binary in the package is built for, and the symbols it exports.
read_binary() {
  local deb=$1 binary=$2 unpacked
  unpacked=$(mktemp -d)
  dpkg-deb -x "$deb" "$unpacked"
  machine=$(readelf -h "$unpacked$binary" | awk -F: '/Machine/ {print $2}')
  exports=$(readelf --dyn-syms -W "$unpacked$binary" | awk '$5 == "GLOBAL" && $7 != "UND" {print $8}' \
    | sed 's/@.*//' | sort | tr '\n' ' ')
  rm -rf "$unpacked"
  [[ "$machine" == *"$machine_name"* ]] || fail "$deb: $binary built for$machine"
}

for entry in "$@"; do
  build=${entry%%:*}
  arch=${entry##*:}
  case "$arch" in
    amd64) machine_name=X86-64 ;;
    arm64) machine_name=AArch64 ;;
    *) fail "unknown architecture $arch" ;;
  esac
  (cd "$build" && rm -f ./*.deb ./*.ddeb && cpack -G DEB >/dev/null)
  plugin_dir=$(sed -n 's/^EDIDVM_PLUGIN_INSTALL_DIR:[A-Z]*=//p' "$build/CMakeCache.txt")
  library=/usr/$plugin_dir/liboutputedidviewmodel.so

  plugin="$build/liboutputedidviewmodel_${version}_${arch}.deb"
  [ -f "$plugin" ] || fail "no plug-in package for $arch in $build"
  [ "$(dpkg-deb -f "$plugin" Architecture)" = "$arch" ] || fail "$plugin: architecture is not $arch"
  [ "$(dpkg-deb -f "$plugin" Multi-Arch)" = same ] || fail "$plugin: not Multi-Arch: same"
  # Computed from the library: Qt Core, and the C and C++ runtimes.
  depends=$(dpkg-deb -f "$plugin" Depends)
  for needed in libqt5core5a libstdc++6 libgcc-s1 libc6; do
    grep -q "\b$needed (>= " <<<"$depends" || fail "$plugin: Depends lacks $needed: $depends"
  done
  check_files "$plugin" ".$library" "./usr/share/outputedidviewmodel/translations/outputedidviewmodel_de.qm" \
    ./usr/share/doc/liboutputedidviewmodel/{copyright,changelog.Debian.gz} \
    "./usr/share/lintian/overrides/liboutputedidviewmodel"
  read_binary "$plugin" "$library"
  [ "$exports" = "pluginfo pluginit " ] || fail "$plugin: the library exports $exports"
  check_stripped "$plugin" "$library" "$arch"
  echo "packages: $(basename "$plugin") holds the stripped $arch library in $(dirname "$library"), its translation and symbols package"
  echo "packages: $(basename "$plugin") Depends: $depends"

  probe="$build/liboutputedidviewmodel-probe_${version}_${arch}.deb"
  probe_library=/usr/$plugin_dir/liboutputedidviewmodel-probe.so
  [ -f "$probe" ] || fail "no probe package for $arch in $build"
  [ "$(dpkg-deb -f "$probe" Multi-Arch)" = same ] || fail "$probe: not Multi-Arch: same"
  check_files "$probe" ".$probe_library" \
    ./usr/share/doc/liboutputedidviewmodel-probe/{copyright,changelog.Debian.gz,probe.md} \
    "./usr/share/lintian/overrides/liboutputedidviewmodel-probe"
  read_binary "$probe" "$probe_library"
  [ "$exports" = "pluginfo pluginit " ] || fail "$probe: the probe exports $exports"
  check_stripped "$probe" "$probe_library" "$arch"
  echo "packages: $(basename "$probe") holds the stripped $arch probe beside the plug-in, exporting $exports"

  simulator="$build/edidsim_${version}_${arch}.deb"
  if [ -f "$simulator" ]; then
    listing=$(dpkg-deb -c "$simulator" | awk '{print $6}')
    for path in ./usr/bin/edidsim ./usr/share/edidsim/scenarios/default.json ./usr/share/man/man1/edidsim.1.gz \
      ./usr/share/doc/edidsim/copyright ./usr/share/doc/edidsim/changelog.Debian.gz; do
      grep -qx "$path" <<<"$listing" || fail "$simulator: no $path"
    done
    [ "$(dpkg-deb -f "$simulator" Architecture)" = "$arch" ] || fail "$simulator: architecture is not $arch"
    depends=$(dpkg-deb -f "$simulator" Depends)
    grep -q "liboutputedidviewmodel (= $version)" <<<"$depends" \
      || fail "$simulator: does not depend on the plug-in package: $depends"
    grep -q '\blibqt5core5a (>= ' <<<"$depends" || fail "$simulator: Depends lacks libqt5core5a: $depends"
    # Decoding and playing scenarios need no Qt GUI: that is the page package's.
    for gui in libqt5gui5 libqt5quick5 libqt5qml5 libqt5network5; do
      ! grep -q "\b$gui\b" <<<"$depends" || fail "$simulator: Depends names $gui: $depends"
    done
    unpacked=$(mktemp -d)
    dpkg-deb -x "$plugin" "$unpacked"
    dpkg-deb -x "$simulator" "$unpacked"
    grep -q '^License: CC-BY-4.0$' "$unpacked/usr/share/doc/edidsim/copyright" \
      || { rm -rf "$unpacked"; fail "$simulator: the copyright file lacks the EDIDs' licence"; }
    run=()
    [ "$arch" = arm64 ] && [ "$(uname -m)" != aarch64 ] && run=(qemu-aarch64 -L /)
    # A broken unpacked library must fail to load: proof that the program
    # took the one beside it, not a build tree's.
    played=$("${run[@]}" "$unpacked/usr/bin/edidsim" 2>&1) \
      || { rm -rf "$unpacked"; fail "$simulator: the unpacked program fails:
$played"; }
    echo 'not a library' >"$unpacked$library"
    status=0
    broken=$("${run[@]}" "$unpacked/usr/bin/edidsim" 2>&1) || status=$?
    rm -rf "$unpacked"
    grep -q '== scenario .*/scenarios/default.json: ' <<<"$played" || fail "$simulator: the default scenario was not played"
    [ "$status" = 3 ] && grep -q "$library: cannot be loaded" <<<"$broken" \
      || fail "$simulator: the unpacked program does not load the unpacked library:
$broken"
    check_stripped "$simulator" /usr/bin/edidsim "$arch"
    echo "packages: $(basename "$simulator") holds the stripped simulator, its scenarios and manual page, and plays them unpacked"
    echo "packages: $(basename "$simulator") Depends: $depends"
  fi

  page="$build/edidsim-page_${version}_${arch}.deb"
  if [ -f "$page" ]; then
    module=/usr/lib/$(dpkg-architecture -a"$arch" -qDEB_HOST_MULTIARCH 2>/dev/null)/edidsim/libedidsim-page.so
    check_files "$page" ".$module" ./usr/share/doc/edidsim-page/{copyright,changelog.Debian.gz} \
      "./usr/share/lintian/overrides/edidsim-page" ./usr/share/edidsim/translations/edidsim_de.qm
    depends=$(dpkg-deb -f "$page" Depends)
    grep -q "edidsim (= $version)" <<<"$depends" || fail "$page: does not depend on the simulator package: $depends"
    # The QML modules are loaded at run time: no library names them.
    for needed in libqt5quick5 qml-module-qtquick2 qml-module-qtquick-controls2 qml-module-qtquick-layouts \
      qml-module-qtquick-window2; do
      grep -q "\b$needed\b" <<<"$depends" || fail "$page: Depends lacks $needed: $depends"
    done
    unpacked=$(mktemp -d)
    for deb in "$plugin" "$simulator" "$page"; do dpkg-deb -x "$deb" "$unpacked"; done
    run=()
    [ "$arch" = arm64 ] && [ "$(uname -m)" != aarch64 ] && run=(qemu-aarch64 -L /)
    # The unpacked program loads the unpacked module, which draws every step.
    pictures=$("${run[@]}" "$unpacked/usr/bin/edidsim" page --screenshots "$unpacked/pictures" 2>&1) \
      && ls "$unpacked/pictures"/step-00-*.png >/dev/null 2>&1 \
      || { rm -rf "$unpacked"; fail "$page: the unpacked page draws nothing:
$pictures"; }
    rm -rf "$unpacked"
    check_stripped "$page" "$module" "$arch"
    echo "packages: $(basename "$page") holds the stripped page module, which the unpacked edidsim loads and draws with"
    echo "packages: $(basename "$page") Depends: $depends"
  fi

  # Overrides shipped in the packages justify each warning they silence.
  debs=("$build"/*.deb "$build"/*.ddeb)
  lintian --fail-on error,warning "${debs[@]}" \
    || fail "lintian reports errors or unjustified warnings for the $arch packages"
  echo "packages: lintian passes the $arch packages: $(cd "$build" && echo *.deb *.ddeb)"
done
