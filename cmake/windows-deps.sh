#!/usr/bin/env bash
# Builds the Windows (mingw-w64) dependencies that Debian ships only as
# sources: LZ4 from Debian's own source package of lz4 (a deb-src entry for
# the same archive is added when missing). CLI11, header-only, is copied from
# libcli11-dev so the cross compiler need not see the host's /usr/include.
# GoogleTest is built by CMake from /usr/src/googletest (libgtest-dev).
# Output: build/windows-deps/{include,lib}. Nothing is downloaded from
# anywhere but Debian's archive.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="$root/build/windows-deps"
mkdir -p "$out/include"
if [ ! -d "$out/include/CLI" ]; then
  [ -f /usr/include/CLI/CLI.hpp ] || { echo "CLI11 headers missing: install libcli11-dev" >&2; exit 1; }
  cp -r /usr/include/CLI "$out/include/"
fi
[ -f "$out/lib/liblz4.a" ] && { echo "== windows deps present: $out"; exit 0; }

SUDO=""; [ "$(id -u)" = 0 ] || SUDO=sudo
if ! grep -rqs '^Types:.*deb-src\|^deb-src' /etc/apt/sources.list /etc/apt/sources.list.d/; then
  echo "== adding a deb-src entry for Debian's archive"
  if [ -f /etc/apt/sources.list.d/debian.sources ]; then
    sed 's/^Types: deb$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources |
      $SUDO tee /etc/apt/sources.list.d/grabsys-deb-src.sources >/dev/null
  else
    grep '^deb ' /etc/apt/sources.list | sed 's/^deb /deb-src /' |
      $SUDO tee /etc/apt/sources.list.d/grabsys-deb-src.list >/dev/null
  fi
  $SUDO apt-get update -qq
fi
command -v dpkg-source >/dev/null || $SUDO apt-get install -y -qq dpkg-dev

src="$out/src"
rm -rf "$src" && mkdir -p "$src" "$out/include" "$out/lib"
echo "== fetching Debian's source package of lz4"
(cd "$src" && apt-get source -qq lz4 >/dev/null 2>&1)
lz4dir="$(find "$src" -maxdepth 1 -type d -name 'lz4-*' | head -n 1)"
[ -n "$lz4dir" ] || { echo "apt-get source lz4 gave no source tree" >&2; exit 1; }

echo "== building liblz4.a for x86_64-w64-mingw32"
x86_64-w64-mingw32-gcc-posix -O2 -c "$lz4dir/lib/lz4.c" -o "$src/lz4.o"
x86_64-w64-mingw32-ar rcs "$out/lib/liblz4.a" "$src/lz4.o"
cp "$lz4dir/lib/lz4.h" "$out/include/"
echo "== windows deps ready: $out"
