#!/usr/bin/env bash
# Runs the Windows build's test suite under Debian's wine64, in a private
# Wine prefix (build/windows/wine) whose drive D: is a fresh temporary
# folder, so that the library's fixed "D://..." paths are real Windows paths
# there. Arguments go to ctest.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
export WINEPREFIX="$root/build/windows/wine"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || { echo "wine64 is missing: apt-get install wine64" >&2; exit 1; }

if [ ! -f "$WINEPREFIX/system.reg" ]; then
  echo "== creating the Wine prefix $WINEPREFIX"
  "$wine" wineboot --init >/dev/null 2>&1
  /usr/lib/wine/wineserver --wait
fi

scratch="$(mktemp -d "${TMPDIR:-/tmp}/grabsys_drive_d.XXXXXX")"
cleanup() { /usr/lib/wine/wineserver --kill 2>/dev/null || true; rm -rf "$scratch"; }
trap cleanup EXIT
ln -sfn "$scratch" "$WINEPREFIX/dosdevices/d:"
echo "== drive D: of the Wine prefix is $scratch"

# The tests empty D: around each test only when told it is a scratch drive.
export GRABSYS_SCRATCH_DRIVE=D
cd "$root"
ctest --preset windows "$@"
