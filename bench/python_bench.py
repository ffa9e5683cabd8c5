#!/usr/bin/env python3
"""The Python module reading a view into numpy against the C++ codec reading the same file.

Writes one view of 48 fringe-like Sin frames and 2 white frames at 2448 x 2048
through grabsystem.write_arm_view, then alternates rounds of the C++ benchmark
BM_DecodeViewFile (arm_bench, told the file by GRABSYS_BENCH_VIEW) and of
grabsystem.read_arm_view in this process, so a busy machine slows both alike.
Prints the medians and the line
    RATIO python_read_view_vs_cpp <python MiB/s / C++ MiB/s> target 0.90

Usage: python_bench.py <build dir>   (with <build dir>/python on PYTHONPATH)
"""
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np

import grabsystem

WIDTH, HEIGHT, CAMERAS, DIMS = 2448, 2048, 2, (1, 2, 12)
ROUNDS, READS_PER_ROUND = 5, 3


def fringe_view():
    y, x = np.mgrid[0:HEIGHT, 0:WIDTH].astype(np.float32)
    inside = ((x - WIDTH / 2) / (WIDTH * 0.35)) ** 2 + ((y - HEIGHT / 2) / (HEIGHT * 0.4)) ** 2 < 1
    rng = np.random.default_rng(7)
    frames = []
    for k in range(CAMERAS * DIMS[0] * DIMS[1] * DIMS[2]):
        period = 16 * 2 ** (k % 4)
        wave = 128 + 100 * np.cos(2 * np.pi * x / period + k * np.pi / 6)
        noise = rng.integers(0, 4, size=(HEIGHT, WIDTH), dtype=np.uint8)
        frames.append(np.where(inside, wave, 8).astype(np.uint8) + noise)
    white = np.stack([np.where(inside, 220, 8).astype(np.uint8)] * CAMERAS)
    return np.stack(frames), white


def cpp_round(bench, path):
    out = subprocess.run(
        [bench, "--benchmark_filter=^BM_DecodeViewFile/", "--benchmark_format=json",
         "--benchmark_repetitions=3", "--benchmark_min_time=0.2"],
        env=dict(os.environ, GRABSYS_BENCH_VIEW=path), check=True, capture_output=True, text=True).stdout
    return [b["bytes_per_second"] for b in json.loads(out)["benchmarks"] if b.get("run_type") == "iteration"]


def python_round(path, frame_bytes):
    speeds = []
    for _ in range(READS_PER_ROUND):
        start = time.perf_counter()
        view = grabsystem.read_arm_view(path)
        elapsed = time.perf_counter() - start
        assert view.sin.shape == (48, HEIGHT, WIDTH) and view.white.shape == (CAMERAS, HEIGHT, WIDTH)
        speeds.append(frame_bytes / elapsed)
        del view
    return speeds


def main():
    build = sys.argv[1]
    bench = os.path.join(build, "bench", "arm_bench")
    scratch = "/dev/shm" if os.path.isdir("/dev/shm") else tempfile.gettempdir()
    with tempfile.TemporaryDirectory(dir=scratch) as folder:
        path = os.path.join(folder, "0.armraw")
        sin, white = fringe_view()
        grabsystem.write_arm_view(path, 0, sin, white, list(range(CAMERAS)), DIMS)
        frame_bytes = sin.nbytes + white.nbytes
        del sin, white
        cpp, py = [], []
        for _ in range(ROUNDS):
            cpp += cpp_round(bench, path)
            py += python_round(path, frame_bytes)
    cpp_mib, py_mib = statistics.median(cpp) / 2**20, statistics.median(py) / 2**20
    print(f"  one view of 50 frames, {frame_bytes / 2**20:.0f} MiB of pixels")
    print(f"  {'C++ codec + liblz4 (BM_DecodeViewFile)':<44} {cpp_mib:10.1f} MiB/s")
    print(f"  {'grabsystem.read_arm_view':<44} {py_mib:10.1f} MiB/s")
    print(f"RATIO python_read_view_vs_cpp {py_mib / cpp_mib:.2f} target 0.90")


if __name__ == "__main__":
    main()
