#!/usr/bin/env python3
"""grabsystem.dask against itself on fewer workers, and against a plain loop.

Writes an archive of 8 views (2 cameras, 48 fringe-like Sin frames and 2 white
frames of 1224 x 1024 each) into /dev/shm through grabsystem.write_arm_view,
starts two distributed LocalClusters on 127.0.0.1 (two worker processes and
one, one thread each), then in alternating rounds, so a busy machine slows
every side alike:
  - extract() of the whole archive on each cluster (a fresh output folder
    each time, removed outside the timing);
  - the mean of every Sin and white frame: read_views() computed on the
    one-worker cluster, against a loop of read_arm_view in this process.
Prints the medians and
    RATIO dask_extract_2_workers_vs_1 <one worker's time / two workers'> target 1.60
    RATIO dask_read_views_vs_loop <loop's time / read_views'> target 0.90
or, without Dask, one SKIP line per ratio.

Usage: dask_bench.py [<build dir>]   (with <build dir>/python on PYTHONPATH)
"""
import os
import shutil
import statistics
import sys
import tempfile
import time

import numpy as np

import grabsystem

WIDTH, HEIGHT, CAMERAS, DIMS, VIEWS, ROUNDS = 1224, 1024, 2, (1, 2, 12), 8, 5
NAMES = ("dask_extract_2_workers_vs_1", "dask_read_views_vs_loop")


def fringe_frames():
    y, x = np.mgrid[0:HEIGHT, 0:WIDTH].astype(np.float32)
    inside = ((x - WIDTH / 2) / (WIDTH * 0.35)) ** 2 + ((y - HEIGHT / 2) / (HEIGHT * 0.4)) ** 2 < 1
    rng = np.random.default_rng(11)
    frames = []
    for k in range(CAMERAS * DIMS[0] * DIMS[1] * DIMS[2]):
        wave = 128 + 100 * np.cos(2 * np.pi * x / (16 * 2 ** (k % 4)) + k * np.pi / 6)
        frames.append(np.where(inside, wave, 8).astype(np.uint8) + rng.integers(0, 4, (HEIGHT, WIDTH), dtype=np.uint8))
    return np.stack(frames), np.where(inside, 220, 8).astype(np.uint8)


def timed(run):
    start = time.perf_counter()
    result = run()
    return time.perf_counter() - start, result


def frame_means(archive, client):
    import dask

    return dask.compute(archive.sin.mean(axis=(2, 3)), archive.white.mean(axis=(2, 3)), scheduler=client.get)


def loop_means(paths):
    means = []
    for path in paths:
        view = grabsystem.read_arm_view(path)
        means.append((view.sin.mean(axis=(1, 2)), view.white.mean(axis=(1, 2))))
    return means


def main():
    try:
        from distributed import Client, LocalCluster

        from grabsystem import dask as gd
    except ImportError as error:
        for name in NAMES:
            print(f"SKIP {name}: {error}")
        return
    scratch = "/dev/shm" if os.path.isdir("/dev/shm") else tempfile.gettempdir()
    with tempfile.TemporaryDirectory(dir=scratch) as folder:
        views = os.path.join(folder, "views")
        os.mkdir(views)
        sin, white = fringe_frames()
        for v in range(VIEWS):
            grabsystem.write_arm_view(os.path.join(views, f"{v}.armraw"), v, sin, np.stack([white + v] * CAMERAS),
                                      list(range(CAMERAS)), DIMS)
        del sin, white
        paths = [os.path.join(views, f"{v}.armraw") for v in range(VIEWS)]
        # No dashboard_address would mean the fixed port 8787, taken by the first cluster.
        options = dict(threads_per_worker=1, processes=True, host="127.0.0.1", dashboard_address="127.0.0.1:0")
        one_time, two_time, dask_time, loop_time = [], [], [], []
        with LocalCluster(n_workers=1, **options) as one, LocalCluster(n_workers=2, **options) as two, \
                Client(one, set_as_default=False) as one_client, Client(two, set_as_default=False) as two_client:
            for _ in range(ROUNDS):
                for client, times in ((one_client, one_time), (two_client, two_time)):
                    out = os.path.join(folder, "bmp")
                    elapsed, outcomes = timed(lambda: gd.extract(views, out, client=client))
                    assert all(o.ok for o in outcomes) and sum(len(o.files) for o in outcomes) == VIEWS * 50
                    times.append(elapsed)
                    shutil.rmtree(out)
                elapsed, (sin_means, white_means) = timed(lambda: frame_means(gd.read_views(views), one_client))
                dask_time.append(elapsed)
                elapsed, means = timed(lambda: loop_means(paths))
                loop_time.append(elapsed)
                assert all(np.allclose(s, m[0]) and np.allclose(w, m[1])
                           for s, w, m in zip(sin_means, white_means, means))
    pixels = VIEWS * 50 * WIDTH * HEIGHT / 2**20
    figures = [("extract(), one worker process", one_time), ("extract(), two worker processes", two_time),
               ("read_views() frame means, one worker", dask_time), ("read_arm_view loop frame means", loop_time)]
    print(f"  {VIEWS} views of 50 frames of {WIDTH} x {HEIGHT}, {pixels:.0f} MiB of pixels; medians of {ROUNDS} rounds")
    for what, times in figures:
        print(f"  {what:<44} {statistics.median(times):8.2f} s {pixels / statistics.median(times):10.1f} MiB/s")
    print(f"RATIO {NAMES[0]} {statistics.median(one_time) / statistics.median(two_time):.2f} target 1.60")
    print(f"RATIO {NAMES[1]} {statistics.median(loop_time) / statistics.median(dask_time):.2f} target 0.90")


if __name__ == "__main__":
    sys.exit(main())
