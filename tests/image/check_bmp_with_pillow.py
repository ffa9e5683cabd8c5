#!/usr/bin/env python3
"""Checks BMP files against a manifest with Pillow, a reader this project did
not write. Each manifest line: name mode width height pixel values, top row
first, channels in file order (B, G, R for colour). Exits non-zero on the
first mismatch."""
import os
import sys

from PIL import Image

folder = sys.argv[1]
with open(os.path.join(folder, "manifest.txt")) as manifest:
    for line in manifest:
        name, mode, width, height, *values = line.split()
        width, height, values = int(width), int(height), [int(v) for v in values]
        with Image.open(os.path.join(folder, name)) as img:
            if img.format != "BMP" or img.mode != mode or img.size != (width, height):
                sys.exit(f"{name}: got {img.format} {img.mode} {img.size}, want BMP {mode} {(width, height)}")
            got = []
            for r, g, b in img.getdata() if mode == "RGB" else ((v,) * 3 for v in img.getdata()):
                got.extend([b, g, r] if mode == "RGB" else [r])
            if got != values:
                first = next(i for i, (a, b) in enumerate(zip(got, values)) if a != b)
                sys.exit(f"{name}: pixel value {first} is {got[first]}, want {values[first]}")
print("pillow agrees")
