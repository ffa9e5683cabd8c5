#!/usr/bin/env python3
"""Runs every benchmark program and prints each figure against its baseline.

Subject and baseline run in the same process with random interleaving, so a
machine that is busy slows both alike; figures are medians of repetitions.
The summary lines have the form
    RATIO <name> <value> target <target>
where value = subject throughput / baseline throughput.
"""
import json
import os
import subprocess
import sys


def run(binary, repetitions):
    out = subprocess.run(
        [binary, "--benchmark_format=json", f"--benchmark_repetitions={repetitions}",
         "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.2"],
        check=True, capture_output=True, text=True).stdout
    medians = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("aggregate_name") == "median":
            medians[b["run_name"].replace("/real_time", "")] = b
    return medians


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
        for name, b in results[bench].items():
            print(f"  {name:<40} {b['bytes_per_second'] / 2**20:10.1f} MiB/s  ({b['real_time']:.1f} {b['time_unit']})")
    lines = []
    for r in ratios:
        got = results[r["bench"]]
        value = got[r["subject"]]["bytes_per_second"] / got[r["baseline"]]["bytes_per_second"]
        lines.append(f"RATIO {r['name']} {value:.2f} target {r['target']:.2f}")
    print()
    print("\n".join(lines))


if __name__ == "__main__":
    main()
