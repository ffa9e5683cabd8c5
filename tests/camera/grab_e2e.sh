#!/usr/bin/env bash
# grabsys grab and grabsys cameras, run as a user runs them, with Aravis's
# in-process simulated camera (no network) and an address nothing answers.
# Usage: grab_e2e.sh <grabsys binary>
set -uo pipefail
G="$1"
T="$(mktemp -d)"
trap 'rm -rf "$T"' EXIT
PY=/usr/bin/python3

fail() { echo "FAIL: $*" >&2; exit 1; }
run() { "$G" "$@" >"$T/out" 2>"$T/err"; }
expect_error() {  # expect_error <text on the one stderr line> <args...>
  local text="$1"; shift
  run "$@" && fail "grabsys $* should fail"
  [ "$(wc -l <"$T/err")" -eq 1 ] || fail "grabsys $* printed not one error line: $(cat "$T/err")"
  grep -q -- "$text" "$T/err" || fail "grabsys $*: stderr lacks '$text': $(cat "$T/err")"
}

# Every pixel of 300 frames (the ids wrap), in 8 and 16 bit.
for format in Mono8 Mono16; do
  run grab --simulated --width 96 --height 64 --fps 1000 --pixel-format $format --frames 300 --verify --json \
    || fail "grab $format: $(cat "$T/err")"
  $PY - "$T/out" <<'PY' || fail "grab --json: $(cat "$T/out")"
import json, sys
d = json.load(open(sys.argv[1]))
c = d["counters"]
assert d["verified"] == d["taken"] == 300 and d["wrong_frames"] == 0, d
assert d["balanced"] and c["sent"] == c["pushed"] + c["refused_no_free_node"] + c["refused_too_large"] \
    + c["overwritten"] + c["incomplete"] + c["missed"], c
assert d["error"] is None
PY
done

# Arm views of consecutive frames: 2 cameras x (1 x 2 x 4) Sin + 2 white = 18 frames a view.
run grab --simulated --width 64 --height 48 --fps 1000 --frames 100 --cameras 2 --sin 1 2 4 -o "$T/views" \
  || fail "grab to views: $(cat "$T/err")"
grep -q "views written: 5 .armraw files" "$T/out" || fail "views not reported: $(cat "$T/out")"
grep -q "frames after the last whole view: 10" "$T/out" || fail "left-over frames not reported: $(cat "$T/out")"
run info --json "$T/views/4.armraw" || fail "info on a grabbed view: $(cat "$T/err")"
grep -q '"width": 64' "$T/out" || fail "grabbed view not described: $(cat "$T/out")"

# BMP frames, then files of 256 KiB where no file may exceed 200 KiB
# (RLIMIT_FSIZE): the failed write names its file and the cause.
run grab --simulated --width 64 --height 48 --frames 5 --write bmp -o "$T/bmp" || fail "grab to BMP: $(cat "$T/err")"
[ "$(ls "$T/bmp" | wc -l)" -eq 5 ] || fail "not 5 BMP files"
( trap '' XFSZ; ulimit -f 200; "$G" grab --simulated --width 512 --height 512 --fps 1000 --frames 50 --write raw \
    -o "$T/full" >"$T/out" 2>"$T/err" ) && fail "grab onto a full file system should fail"
grep -q "full/frame.*\.raw: .*(File too large)" "$T/err" || fail "failed write not named: $(cat "$T/err")"

start=$(date +%s)
expect_error "camera at 192.0.2.1: no GigE Vision camera answers there" grab --address 192.0.2.1 --frames 1
[ $(( $(date +%s) - start )) -le 6 ] || fail "an absent camera took more than 6 s to be reported"
expect_error "camera at 300.1.1.1: not an IPv4 address" grab --address 300.1.1.1
expect_error "camera nosuch: not found" grab --id nosuch
expect_error "pixel format RGB8 is not supported" grab --simulated --pixel-format RGB8
expect_error "region 4000 x 10 at 0,0 does not fit" grab --simulated --width 4000 --height 10
expect_error "written as raw files only" grab --simulated --pixel-format Mono16 -o "$T/x"
expect_error "verify" grab --simulated --verify --frame-attr counter

run cameras || fail "cameras: $(cat "$T/err")"
grep -q "GigE Vision cameras: --discover, which broadcasts, or --address IP" "$T/out" \
  || grep -q "USB3Vision" "$T/out" || fail "cameras without discovery: $(cat "$T/out")"
run cameras --simulated S7 --json || fail "cameras --simulated: $(cat "$T/err")"
grep -q '"serial": "S7"' "$T/out" || fail "simulated camera not described: $(cat "$T/out")"
run grab --help && grep -q "Example" "$T/out" || fail "grab --help has no example"
echo "ok: grab"
