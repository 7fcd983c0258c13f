#!/usr/bin/env python3
"""Instructions per call of the key workloads, counted by valgrind's callgrind, for libVTLog,
spdlog, hand-configured Boost.Log and the floors; and how a record's cost grows with the sinks
registered in the process. Prints Markdown tables.

Each figure comes from two runs of one benchmark under callgrind, of N and M iterations
(VTLOG_BENCH_ITERATIONS, see fixed_iterations.hpp): the difference of the two instruction
counts over M - N is the work of one iteration, with everything that runs once (start-up,
set-up, the first record's lazy initialisation) cancelled out. Instruction counts do not
depend on the load of the machine, so the figures repeat from run to run to within a few
instructions. See bench/README.md.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SYSTEMS = ["libVTLog", "spdlog", "Boost.Log", "floor"]
PEER_PROGRAMS = {
    "libVTLog": "peers_vtlog",
    "spdlog": "peers_spdlog",
    "Boost.Log": "peers_boostlog",
    "floor": "peers_floor",
}

# (label, runs per system: {system: (program, benchmark filter)}, iterations (short, long)).
CHEAP = (100_000, 1_100_000)
LINES = (1_000, 6_000)


def peers(benchmark):
    return {system: (program, benchmark) for system, program in PEER_PROGRAMS.items()}


WORKLOADS = [
    ("filtered `log_fmt` call", peers("^BM_FilteredCall/"), CHEAP),
    (
        "filtered `logger::log` call",
        {"libVTLog": ("core_bench", "^BM_FilteredCall/"),
         "floor": ("core_bench", "^BM_FilteredFloor/")},
        CHEAP,
    ),
    (
        "written `log_fmt` call, discarding sink",
        {"libVTLog": ("core_bench", "^BM_WrittenLogFmt/")},
        LINES,
    ),
    ("console line", peers("^BM_ConsoleLine/"), LINES),
    ("file line, flushed", peers("^BM_FileLine/.*threads:1$"), LINES),
]
SINK_COUNTS = [1, 10, 100, 1000]


def instructions(program, benchmark, iterations, workdir):
    """Instructions that one run of `benchmark` for `iterations` iterations executes."""
    out = Path(workdir) / "callgrind.out"
    command = [
        "valgrind", "--tool=callgrind", f"--callgrind-out-file={out}",
        str(program), f"--benchmark_filter={benchmark}",
    ]
    env = dict(os.environ, VTLOG_BENCH_ITERATIONS=str(iterations))
    done = subprocess.run(command, cwd=workdir, env=env, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True)
    found = re.search(r"Collected : (\d+)", done.stderr)
    if done.returncode != 0 or not found:
        sys.exit(f"{program.name} {benchmark} failed ({done.returncode}):\n{done.stderr}")
    return int(found.group(1))


def per_iteration(program, benchmark, lengths, workdir):
    short, long = lengths
    difference = (instructions(program, benchmark, long, workdir)
                  - instructions(program, benchmark, short, workdir))
    return difference / (long - short)


def machine():
    try:
        for line in subprocess.run(["lscpu"], capture_output=True, text=True).stdout.splitlines():
            if line.startswith("Model name:"):
                return line.split(":", 1)[1].strip()
    except OSError:
        pass
    return "unknown CPU"


def number(value):
    return "–" if value is None else f"{value:,.0f}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build-dir", default="build-peers", type=Path,
                        help="a Release build with the benchmarks built (default build-peers)")
    parser.add_argument("--no-growth", action="store_true",
                        help="skip the table of the cost of registered sinks")
    parser.add_argument("--growth-only", action="store_true",
                        help="only the table of the cost of registered sinks")
    args = parser.parse_args()
    bench = (args.build_dir if args.build_dir.is_absolute() else ROOT / args.build_dir) / "bench"
    if not shutil.which("valgrind"):
        sys.exit("valgrind not found; on Debian: scripts/setup.sh valgrind")
    if not (bench / "peers_vtlog").exists():
        sys.exit(f"no {bench / 'peers_vtlog'}: build the benchmarks first (bench/README.md)")
    version = subprocess.run(["valgrind", "--version"], capture_output=True, text=True).stdout
    print(f"{version.strip()}, {machine()}\n")

    with tempfile.TemporaryDirectory(prefix="vtlog-callgrind-") as workdir:
        if not args.growth_only:
            print("| workload | " + " | ".join(SYSTEMS) + " | ÷ spdlog |")
            print("|---|" + "---|" * (len(SYSTEMS) + 1))
            for label, runs, lengths in WORKLOADS:
                figures = {}
                for system, (program, benchmark) in runs.items():
                    path = bench / program
                    if path.exists():
                        figures[system] = per_iteration(path, benchmark, lengths, workdir)
                ratio = ("–" if not figures.get("spdlog") or "libVTLog" not in figures
                         else f"{figures['libVTLog'] / figures['spdlog']:.2f}×")
                cells = [number(figures.get(system)) for system in SYSTEMS]
                print(f"| {label} | " + " | ".join(cells) + f" | {ratio} |")

        if args.no_growth or not (bench / "growth_bench").exists():
            return
        print("\n| sinks registered in the process | instructions per record, the others "
              "attached to no source | the others attached to running sources of their own |")
        print("|---|---|---|")
        costs = {}
        for count in SINK_COUNTS:
            for attached in (0, 1):
                costs[count, attached] = per_iteration(
                    bench / "growth_bench",
                    f"^BM_RecordWithSinksRegistered/{count}/{attached}/", LINES, workdir)
            print(f"| {count:,} | {number(costs[count, 0])} | {number(costs[count, 1])} |")
        first, last = SINK_COUNTS[0], SINK_COUNTS[-1]
        slopes = [(costs[last, attached] - costs[first, attached]) / (last - first)
                  for attached in (0, 1)]
        print(f"| each other sink | {slopes[0]:,.1f} | {slopes[1]:,.1f} |")


if __name__ == "__main__":
    main()
