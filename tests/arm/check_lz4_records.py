#!/usr/bin/env python3
"""Decodes arm frame records with python3-lz4 (an LZ4 this project did not
write) and compares them with the original pixels. Manifest lines: record
file, pixel file, uncompressed size."""
import os
import sys

import lz4.block

folder = sys.argv[1]
with open(os.path.join(folder, "manifest.txt")) as manifest:
    for line in manifest:
        record, pixels, size = line.split()
        with open(os.path.join(folder, record), "rb") as f:
            data = lz4.block.decompress(f.read(), uncompressed_size=int(size))
        with open(os.path.join(folder, pixels), "rb") as f:
            if data != f.read():
                sys.exit(f"{record} does not decode to {pixels}")
print("lz4 agrees")
