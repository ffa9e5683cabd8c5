#!/usr/bin/env bash
# End-to-end checks of the grabsys tool, run as a user would run it.
# Usage: grabsys_e2e.sh <grabsys binary> <case>
set -uo pipefail
G="$1"
CASE="$2"
T="$(mktemp -d)"
trap 'rm -rf "$T"' EXIT
PY=/usr/bin/python3

fail() { echo "FAIL: $*" >&2; exit 1; }
# Runs the tool, keeps stdout/stderr, and returns its exit code.
run() { "$G" "$@" >"$T/out" 2>"$T/err"; }
expect_error() {  # expect_error <text on stderr> <args...>
  local text="$1"; shift
  run "$@" && fail "grabsys $* should fail"
  [ "$(wc -l <"$T/err")" -eq 1 ] || fail "grabsys $* printed not one error line: $(cat "$T/err")"
  grep -q -- "$text" "$T/err" || fail "grabsys $*: stderr lacks '$text': $(cat "$T/err")"
}

small_demo() {  # a small demo whose output feeds the other cases
  run demo --frames 12 --camera-fps 0 --consumer-ms 0 --width 320 --height 240 --views 2 --cameras 2 \
      --arm-width 96 --arm-height 64 --package-frames 3 -o "$T/demo" || fail "demo failed: $(cat "$T/err")"
}

case "$CASE" in
demo)
  small_demo
  grep -q "all frames verified bit for bit" "$T/out" || fail "demo did not verify its frames"
  grep -q "arm compress + write" "$T/out" || fail "demo table lacks the arm stage"
  [ -f "$T/demo/armraw/1.armraw" ] || fail "demo wrote no .armraw files"
  run demo --help && grep -q "Example" "$T/out" || fail "demo --help has no example"
  ;;
package)
  small_demo
  mkdir -p "$T/frames" && cp "$T"/demo/armbmp/Cam1Q/0/img*.bmp "$T/frames/"
  run package create --from "$T/frames" -o "$T/cam.dbg" --camera 4 --group 1 --jump 2 || fail "create: $(cat "$T/err")"
  run info --json "$T/cam.dbg" || fail "info: $(cat "$T/err")"
  $PY - "$T/out" <<'PY' || fail "info --json does not describe the image package"
import json, sys
d = json.load(open(sys.argv[1]))[0]
assert d["type"] == "image debug package" and d["jump_index"] == 2, d
r = d["records"][0]
assert (r["frames"], r["camera"], r["group"], r["width"], r["height"]) == (12, 4, 1, 96, 64), r
PY
  run package export "$T/cam.dbg" --root "$T/root" || fail "export: $(cat "$T/err")"
  grep -q "Cam4: 12 BMP files" "$T/out" || fail "export tree not reported: $(cat "$T/out")"
  # img<k>.bmp in the source is frame k; exported as FrameCount x group + jump + k.
  $PY - "$T/frames" "$T/root/D/ImgTest/CamImgInput/Cam4" <<'PY' || fail "exported frames differ from the source BMPs"
import sys
from PIL import Image
src, dst = sys.argv[1], sys.argv[2]
for k in range(12):
    a = Image.open(f"{src}/img{k}.bmp").tobytes()
    b = Image.open(f"{dst}/img{12 + 2 + k}.bmp").tobytes()
    assert a == b, k
PY
  echo "<project/>" >"$T/p.fpz"
  # A jump index beyond a byte is the general form's, wherever --general stands.
  run package create --from "$T/frames" -o "$T/gen.dbg" --jump 300 --general --project "$T/p.fpz" || fail "create general"
  run info "$T/gen.dbg" && [ "$(grep -cE 'project_file_bytes: 11|frame_blocks: 12|complete: yes' "$T/out")" = 3 ] ||
    fail "info of the general package: $(cat "$T/out")"
  run package export "$T/gen.dbg" --root "$T/root2" || fail "export general: $(cat "$T/err")"
  grep -q "project file .*: 11 bytes" "$T/out" || fail "project file size not reported"
  cmp -s "$T/p.fpz" "$T/root2/D/vormex/importTmp.fpz" || fail "project file differs"
  ;;
arm)
  small_demo
  run arm list "$T/demo/armraw" || fail "list: $(cat "$T/err")"
  grep -q "2 views" "$T/out" || fail "list did not find 2 views"
  run arm extract "$T/demo/armraw" -o "$T/one" --jobs 1 || fail "extract --jobs 1: $(cat "$T/err")"
  run arm extract "$T/demo/armraw" -o "$T/two" --jobs 2 || fail "extract --jobs 2: $(cat "$T/err")"
  diff -r "$T/one" "$T/two" >/dev/null || fail "--jobs 1 and --jobs 2 trees differ"
  [ "$(find "$T/one" -name '*.bmp' | wc -l)" -eq 100 ] || fail "expected 100 BMP files"
  diff -r "$T/one" "$T/demo/armbmp" >/dev/null || fail "the tool's tree differs from the demo's"
  run info "$T/demo/armraw/0.armraw" "$T/demo/frame0.raw" || fail "info: $(cat "$T/err")"
  [ "$(grep -cE '^  (complete: yes|record 49:|type: raw image)' "$T/out")" = 4 ] || fail "info of a view, a raw image: $(cat "$T/out")"
  ;;
errors)
  small_demo
  expect_error "Directory does not exist" arm list "$T/missing"
  cp -r "$T/demo/armraw" "$T/damaged"
  head -c 5000 "$T/demo/armraw/1.armraw" >"$T/damaged/1.armraw"
  expect_error "damaged/1.armraw: arm view: the file ends after .* (view 1 failed" arm extract "$T/damaged" -o "$T/dx"
  printf 'file' >"$T/plainfile"
  expect_error "output folder" arm extract "$T/demo/armraw" -o "$T/plainfile/sub"
  expect_error "File does not exist" package export "$T/missing.dbg"
  printf '\001\000\000\000\001\000\000' >"$T/short.dbg"  # version 1 wants an 8-byte head
  expect_error "too short" package export "$T/short.dbg"
  # An image package that counts no records does not load.
  printf '\002\000\000\000\000\000\000\000\000\000\000\000' >"$T/norecords.dbg"
  expect_error "failed to load" package export "$T/norecords.dbg" --root "$T/r"
  # A package cut short is exported as far as the system reads it, and named.
  head -c 3000 "$T/demo/packages/general.dbg" >"$T/cut.dbg"
  expect_error "cut.dbg: general package: .*exported as far as" package export "$T/cut.dbg" --root "$T/r2"
  expect_error "not a file of this system" info "$T/plainfile"
  # A damaged file is still described, and fails the command.
  head -c 100000 "$T/demo/armraw/0.armraw" >"$T/cut.armraw"
  expect_error "cut.armraw: arm view: the records do not end" info "$T/cut.armraw"
  grep -q "complete: no" "$T/out" || fail "info of a cut view does not describe it: $(cat "$T/out")"
  expect_error "nothing was written" package create --from "$T/demo/armbmp/Cam0P/0" -o "$T/plainfile/p.dbg"
  expect_error "Directory does not exist" package create --from "$T/missing" -o "$T/p.dbg"
  expect_error "requires --general" package create --from "$T/demo/armbmp/Cam0P/0" -o "$T/p.dbg" --project "$T/plainfile"
  expect_error "--jump: .* not in range" package create --from "$T/demo/armbmp/Cam0P/0" -o "$T/p.dbg" --jump 256
  run arm --help && grep -q "extract" "$T/out" || fail "arm --help"
  ;;
*)
  fail "unknown case $CASE"
  ;;
esac
echo "ok: $CASE"
