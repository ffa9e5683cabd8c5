#!/usr/bin/env python3
"""Runs every benchmark program and prints each figure against its baseline.

Subject and baseline run in the same process with random interleaving, so a
machine that is busy slows both alike; figures are medians of repetitions.
The summary lines have the form
    RATIO <name> <value> target <target>
where value = subject throughput / baseline throughput, or, for a figure
that has no baseline (an entry with a "unit"),
    FIGURE <name> <value> <unit>
A program that cannot measure here (the GPU benchmark without a GPU, or
built without a CUDA toolkit) gives, for each of its entries,
    SKIP <name>: <why> Before them, a
scaling table for each benchmark run on 1, 2, 4 ... threads: throughput,
speed-up over one thread, and efficiency (speed-up / threads). When the
Python module was built, python_bench.py adds the module's reader against
the C++ codec, and dask_bench.py grabsystem.dask's extraction on two worker
processes against one and its arrays against a loop of read_arm_view.
"""
import json
import os
import re
import subprocess
import sys

# Benchmarks whose argument is a thread count, and what they do.
SCALING = {"BM_CompressView": "compress a view (AddOneViewImages, no file)",
           "BM_ExtractViews": "extract views to BMP",
           "BM_ExportPackage": "export an image package to BMP"}


# Programs that a build may go without, and why it would.
OPTIONAL = {"gpu_bench": "no CUDA toolkit (nvcc) at configure time",
            "camera_bench": "a build without Aravis"}


def run(binary, repetitions):
    """The medians by benchmark name, or the reason the program measured nothing."""
    if not os.path.exists(binary):
        name = os.path.basename(binary)
        return f"{name} was not built: {OPTIONAL.get(name, 'missing from the build')}"
    out = subprocess.run(
        [binary, "--benchmark_format=json", f"--benchmark_repetitions={repetitions}",
         "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.2"],
        check=True, capture_output=True, text=True).stdout
    if not out.lstrip().startswith("{"):
        # A program that cannot measure on this machine says why in one line.
        return out.strip()
    medians = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("aggregate_name") == "median":
            medians[b["run_name"].replace("/real_time", "")] = b
    return medians


def figure(b, unit):
    if unit == "GiB/s":
        return b["bytes_per_second"] / 2**30
    if unit == "MiB/s":
        return b["bytes_per_second"] / 2**20
    if unit == "frames/s":
        return b["items_per_second"]
    raise ValueError(f"unknown unit {unit}")


def main():
    bench_dir = sys.argv[1]
    repetitions = int(os.environ.get("GRABSYS_BENCH_REPETITIONS", "5"))
    here = os.path.dirname(os.path.abspath(__file__))
    with open(os.path.join(here, "ratios.json")) as f:
        ratios = json.load(f)
    results = {}
    for bench in sorted({r["bench"] for r in ratios}):
        print(f"== {bench}", flush=True)
        results[bench] = run(os.path.join(bench_dir, bench), repetitions)
        if isinstance(results[bench], str):
            print(f"  {results[bench]}")
            continue
        for name, b in results[bench].items():
            print(f"  {name:<40} {b['bytes_per_second'] / 2**20:10.1f} MiB/s  ({b['real_time']:.1f} {b['time_unit']})")
    print()
    for prefix, what in SCALING.items():
        runs = {}
        for got in results.values():
            for name, b in (got.items() if isinstance(got, dict) else ()):
                m = re.fullmatch(re.escape(prefix) + r"/(\d+)", name)
                if m:
                    runs[int(m.group(1))] = b["bytes_per_second"] / 2**20
        if 1 not in runs:
            continue
        print(f"SCALING {what}")
        print(f"  {'threads':>7} {'MiB/s':>9} {'speed-up':>9} {'efficiency':>10}")
        for n in sorted(runs):
            speedup = runs[n] / runs[1]
            print(f"  {n:>7} {runs[n]:9.1f} {speedup:9.2f} {speedup / n:10.2f}")
    lines = []
    for r in ratios:
        got = results[r["bench"]]
        if isinstance(got, str):
            lines.append(f"SKIP {r['name']}: {got}")
        elif "unit" in r:
            lines.append(f"FIGURE {r['name']} {figure(got[r['subject']], r['unit']):.1f} {r['unit']}")
        else:
            value = got[r["subject"]]["bytes_per_second"] / got[r["baseline"]]["bytes_per_second"]
            lines.append(f"RATIO {r['name']} {value:.2f} target {r['target']:.2f}")
    build = os.path.dirname(os.path.abspath(bench_dir))
    if os.path.isdir(os.path.join(build, "python", "grabsystem")):
        # Debian's interpreter, the one the module is built for.
        for script in ("python_bench.py", "dask_bench.py"):
            print(f"== {script[:-3]}", flush=True)
            out = subprocess.run(["/usr/bin/python3", os.path.join(here, script), build], check=True,
                                 capture_output=True, text=True,
                                 env=dict(os.environ, PYTHONPATH=os.path.join(build, "python"))).stdout
            for line in out.splitlines():
                if line.startswith(("RATIO ", "SKIP ")):
                    lines.append(line)
                else:
                    print(line)
    print()
    print("\n".join(lines))


if __name__ == "__main__":
    main()
