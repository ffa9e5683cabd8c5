#!/usr/bin/env bash
# Seed corpora for the fuzz targets, made from files the library itself
# writes (nothing binary is committed). Usage: make_seeds.sh <grabsys> <out>
set -euo pipefail
G="$1"; OUT="$2"
W="$(mktemp -d)"; trap 'rm -rf "$W"' EXIT
"$G" demo -q --frames 6 --camera-fps 0 --consumer-ms 0 --width 64 --height 48 --views 2 --cameras 2 \
  --arm-width 32 --arm-height 24 --package-frames 2 --saved-frames 2 -o "$W/demo" >/dev/null
mkdir -p "$W/frames" && cp "$W"/demo/armbmp/Cam0P/0/img4.bmp "$W"/demo/armbmp/Cam0P/0/img5.bmp "$W/frames/"
"$G" package create -q --from "$W/frames" -o "$W/img.dbg" --jump 1
echo "<p/>" >"$W/p.fpz"
"$G" package create -q --from "$W/frames" -o "$W/gen.dbg" --general --project "$W/p.fpz"
for t in raw_image bmp img_info ffc_table value_raw arm_view image_package general_package exporter lz4; do
  mkdir -p "$OUT/$t"
done
cp "$W"/demo/frame*.raw "$OUT/raw_image/"
cp "$W"/demo/frame*.bmp "$W"/demo/armbmp/Cam0P/0/imgW.bmp "$OUT/bmp/"
cp "$W"/demo/frame*.raw "$W"/demo/frame*.bmp "$OUT/img_info/"
cp "$W"/demo/armraw/*.armraw "$OUT/arm_view/"
cp "$W/img.dbg" "$W"/demo/packages/image.dbg "$OUT/image_package/"
cp "$W/gen.dbg" "$W"/demo/packages/general.dbg "$OUT/general_package/"
cp "$W/img.dbg" "$W/gen.dbg" "$OUT/exporter/"
# LZ4 blocks: the first record of a view file, cut out of it.
python3 - "$W/demo/armraw/0.armraw" "$OUT/lz4/block0" <<'PY'
import struct, sys
data = open(sys.argv[1], "rb").read()
n = struct.unpack_from("<I", data, 1024 + 4)[0]
open(sys.argv[2], "wb").write(data[1024 + 64:1024 + 64 + n])
PY
# Flat-field streams and float files have no writer in the tool: the fuzzer
# starts them from the raw files' shapes.
cp "$W"/demo/frame*.raw "$OUT/ffc_table/"
cp "$W"/demo/frame*.raw "$OUT/value_raw/"
echo "seeds in $OUT"
