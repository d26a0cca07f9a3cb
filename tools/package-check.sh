#!/usr/bin/env bash
# The SDK as an application meets it, from a build tree that `./zm build` made:
#  1. installed to a temporary prefix, each public header compiles on its own with nothing
#     but that prefix and the C++ standard library;
#  2. a host program builds with pkg-config alone, and the examples with the CMake package;
#  3. the console example plays the sample origin's VOD through the installed library, and the
#     GTK player shows the picture with a moving seek bar under Xvfb;
#  4. the Debian packages, unpacked into a temporary root, build and run the console example.
# Usage: tools/package-check.sh [BUILD [DEBS]]; DEBS is a folder of packages that cpack already
# made from BUILD (otherwise they are made here).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-build}" && pwd)
debs=${2:-}
work=$(mktemp -d)
origin_pid=
trap 'kill "$origin_pid" 2>/dev/null || true; rm -rf "$work"' EXIT
step() { printf '== %s\n' "$*"; }

prefix=$work/prefix
step "install to a temporary prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'libzarvomediaplayer.so' | head -1)")

step "each installed header compiles on its own"
# Headers of the libraries the SDK is built on must not be reachable from the public ones.
export forbidden='/(glib-2\.0|gstreamer-1\.0|curl|sqlite3\.h|httplib\.h|nlohmann|uuid|X11)'
export prefix
check_header() {
  local name=${1#"$prefix/include/"} deps
  deps=$(echo "#include <$name>" |
    g++ -std=c++20 -fsyntax-only -Wall -Wextra -Werror -I"$prefix/include" -x c++ - -M -MF /dev/stdout) ||
    { echo "$name does not compile on its own" >&2; return 255; }
  if echo "$deps" | grep -Eq "$forbidden"; then
    echo "$name reaches a header of a dependency:" >&2
    echo "$deps" | tr ' ' '\n' | grep -E "$forbidden" >&2
    return 255
  fi
}
export -f check_header
find "$prefix/include/zarvo" -name '*.h' -print0 | sort -z |
  xargs -0 -n 1 -P "$(nproc)" bash -c 'check_header "$1"' _
echo "$(find "$prefix/include/zarvo" -name '*.h' | wc -l) headers"

step "a host program with pkg-config alone"
export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046
g++ -std=c++20 -Wall -Wextra -Werror "$root/examples/console-host/main.cpp" -o "$work/pc-host" \
  $(pkg-config --cflags --libs zarvomediaplayer glib-2.0)
# Without an address it loads the library and stops at its usage line.
rc=0
LD_LIBRARY_PATH=$libdir "$work/pc-host" >/dev/null 2>&1 || rc=$?
[ "$rc" = 2 ] || { echo "the pkg-config host did not run (exit $rc)" >&2; exit 1; }

step "the examples with the CMake package"
for example in console-host gtk-player; do
  [ -f "$root/examples/$example/CMakeLists.txt" ] || continue
  cmake -S "$root/examples/$example" -B "$work/$example" -G Ninja \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
  cmake --build "$work/$example" >/dev/null
done

step "the console example plays the sample origin's VOD through the installed library"
# shellcheck source=tools/origin.sh
. "$root/tools/origin.sh"
start_origin "$prefix/bin" "$work/origin.log"
LD_LIBRARY_PATH=$libdir "$work/console-host/zm-console-host" "$origin/vod/master.m3u8" --for 4 \
  >"$work/console.log"
grep -q '^playback playing' "$work/console.log" || { cat "$work/console.log" >&2; exit 1; }
# ZMPlayer::version() is the version that the package carries.
version=$(pkg-config --modversion zarvomediaplayer)
grep -qx "ZarvoMediaPlayer $version" "$work/console.log" || {
  echo "ZMPlayer::version() is not $version:" >&2
  head -1 "$work/console.log" >&2
  exit 1
}
grep -m1 '^time' "$work/console.log"

if [ -x "$work/gtk-player/zm-gtk-player" ]; then
  step "the GTK player under Xvfb"
  LD_LIBRARY_PATH=$libdir "$root/examples/gtk-player/check-under-xvfb.sh" \
    "$work/gtk-player/zm-gtk-player" "$prefix/bin/zm-origin" "$work/screenshots"
fi

step "the Debian packages"
if [ -z "$debs" ]; then
  debs=$work/debs
  (cd "$build" && cpack -G DEB -B "$debs" >/dev/null)
fi
for deb in "$debs"/*.deb; do
  echo "$(basename "$deb"): $(dpkg-deb -f "$deb" Depends)"
  dpkg-deb -x "$deb" "$work/root"
done
cmake -S "$root/examples/console-host" -B "$work/deb-console" -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/root/usr" >/dev/null
cmake --build "$work/deb-console" >/dev/null
debs_lib=$(dirname "$(find "$work/root" -name 'libzarvomediaplayer.so.*' | head -1)")
LD_LIBRARY_PATH=$debs_lib "$work/deb-console/zm-console-host" "$origin/vod/master.m3u8" --for 3 |
  grep -m1 '^playback playing'
echo "package check passed"
