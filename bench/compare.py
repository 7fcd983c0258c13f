#!/usr/bin/env python3
"""Runs the same logging workloads with libVTLog, spdlog and hand-configured Boost.Log, plus
their floors, and prints the medians and libVTLog's ratio to each.

Each system is its own program (Boost.Log's core is process-wide): peers_vtlog, peers_spdlog,
peers_boostlog and peers_floor, built in the bench/ directory of a Release build. The programs
run one after the other, in an order that rotates every round, with standard output on
/dev/null (the console workload writes there) and their results in JSON. A figure is the
median over the rounds. See bench/README.md.
"""

import argparse
import json
import os
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SYSTEMS = [  # (column, program)
    ("libVTLog", "peers_vtlog"),
    ("spdlog", "peers_spdlog"),
    ("Boost.Log", "peers_boostlog"),
    ("floor", "peers_floor"),
]
PEERS = ["spdlog", "Boost.Log", "floor"]

# (key, label, unit, kind). A "cost" is better when lower; a "rate" when higher, and its ratios
# compare the time per message. A row without a unit is a count and gets no ratio.
ROWS = [
    ("filtered", "filtered call", "ns", "cost"),
    ("filtered_allocs", "  allocations per filtered call", "", "cost"),
    ("file1", "file line, flushed, 1 thread", "ns", "cost"),
    ("file2", "file line, flushed, 2 threads", "ns", "cost"),
    ("file_allocs", "  allocations per file line", "", "cost"),
    ("console", "console line to /dev/null", "ns", "cost"),
    ("console_allocs", "  allocations per console line", "", "cost"),
    ("capture", "early queue: capture", "ns/msg", "cost"),
    ("replay", "early queue: replay", "msg/s", "rate"),
    ("held", "early queue: bytes held", "B/msg", "cost"),
]

UNIT_TO_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def figures_of(entry):
    """The figures (row key -> value) that one benchmark entry of the JSON output gives."""
    name = entry.get("run_name", entry["name"])
    parts = [p for p in name.split("/") if not p.startswith(("iterations:", "real_time"))]
    name = "/".join(parts)
    # Wall time per call; with two threads, wall time over the lines of both (1 / throughput).
    ns = entry["real_time"] * UNIT_TO_NS[entry["time_unit"]]
    allocs = entry.get("allocs/op")
    if name == "BM_FilteredCall":
        return {"filtered": ns, "filtered_allocs": allocs}
    if name == "BM_FileLine/threads:1":
        return {"file1": ns, "file_allocs": allocs}
    if name == "BM_FileLine/threads:2":
        return {"file2": ns}
    if name == "BM_ConsoleLine":
        return {"console": ns, "console_allocs": allocs}
    if name == "BM_EarlyQueue":
        return {
            "capture": entry["capture_ns/msg"],
            "replay": entry["replay_msgs/s"],
            "held": entry["held_bytes/msg"],
        }
    return {}


def run_program(program, args, workdir):
    out = Path(workdir) / (program.name + ".json")
    command = [
        *args.prefix,
        str(program),
        f"--benchmark_min_time={args.min_time}",
        f"--benchmark_out={out}",
        "--benchmark_out_format=json",
    ]
    if args.filter:
        command.append(f"--benchmark_filter={args.filter}")
    done = subprocess.run(
        command, cwd=workdir, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True
    )
    if done.returncode != 0:
        sys.exit(f"{program.name} failed ({done.returncode}):\n{done.stderr}")
    figures = {}
    for entry in json.loads(out.read_text())["benchmarks"]:
        if entry.get("error_occurred"):
            sys.exit(f"{program.name}: {entry['name']}: {entry.get('error_message')}")
        figures.update({k: v for k, v in figures_of(entry).items() if v is not None})
    return figures


def build(build_dir):
    generator = ["-G", "Ninja"] if shutil.which("ninja") else []
    subprocess.run(
        ["cmake", "-S", str(ROOT), "-B", str(build_dir), *generator,
         "-DCMAKE_BUILD_TYPE=Release", "-DVTLOG_BUILD_BENCH=ON"],
        check=True,
    )
    targets = ["peers_vtlog", "peers_boostlog", "peers_floor"]
    cache = (build_dir / "CMakeCache.txt").read_text()
    if any(l.startswith("spdlog_DIR:") and not l.endswith("NOTFOUND") for l in cache.splitlines()):
        targets.append("peers_spdlog")
    subprocess.run(
        ["cmake", "--build", str(build_dir), "-j2", "--target", *targets], check=True
    )


def machine():
    """One line on where the figures come from."""
    model = platform.processor() or platform.machine()
    try:
        for line in Path("/proc/cpuinfo").read_text().splitlines():
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    except OSError:
        pass
    load = ""
    if hasattr(os, "getloadavg"):
        load = ", load average {:.2f}".format(os.getloadavg()[0])
    return f"{model}, {os.cpu_count()} CPUs, {platform.system()} {platform.release()}{load}"


def cell(samples, kind, unit):
    if not samples:
        return "–"
    median = statistics.median(samples)
    if unit == "":  # a count: its spread says nothing
        return f"{median:.2f}".rstrip("0").rstrip(".")
    # Median absolute deviation: one neighbour's burst on a shared machine does not widen it.
    spread = statistics.median(abs(x - median) for x in samples) / median * 100 if median else 0
    if kind == "rate":
        text = f"{median / 1e3:,.0f}k"
    elif median >= 100:
        text = f"{median:,.0f}"
    else:
        text = f"{median:.2f}".rstrip("0").rstrip(".") if median else "0"
    return f"{text} ±{spread:.0f}%" if len(samples) > 1 and median else text


def ratio(ours, theirs, kind):
    """libVTLog's cost over the peer's: above 1 means libVTLog does worse."""
    if not ours or not theirs:
        return None
    a, b = statistics.median(ours), statistics.median(theirs)
    if kind == "rate":
        a, b = b, a  # time per message
    if b == 0:
        return None
    return a / b


def verdicts(medians, ratios):
    """The speed targets: (label, met?, figure)."""
    out = []

    def check(label, value, ok, text):
        if value is not None:
            out.append((label, ok(value), text.format(value)))

    check("filtered call ≤ 1.5× floor", ratios.get(("filtered", "floor")), lambda r: r <= 1.5,
          "{:.2f}×")
    check("no allocation in a filtered call", medians.get("filtered_allocs"), lambda v: v == 0,
          "{:g}")
    for key, what in (("file1", "file line (1 thread)"), ("file2", "file line (2 threads)")):
        check(f"{what} ≤ 1.5× spdlog", ratios.get((key, "spdlog")), lambda r: r <= 1.5,
              "{:.2f}×")
        check(f"{what} ≤ 1.0× Boost.Log", ratios.get((key, "Boost.Log")), lambda r: r <= 1.0,
              "{:.2f}×")
    check("console line ≤ 1.5× spdlog", ratios.get(("console", "spdlog")), lambda r: r <= 1.5,
          "{:.2f}×")
    # The second round's intermediate targets.
    check("file line (1 thread) ≤ 1.7× spdlog", ratios.get(("file1", "spdlog")),
          lambda r: r <= 1.7, "{:.2f}×")
    check("console line ≤ 3.0× spdlog", ratios.get(("console", "spdlog")), lambda r: r <= 3.0,
          "{:.2f}×")
    check("capture < 1 µs", medians.get("capture"), lambda v: v < 1000, "{:.0f} ns")
    check("replay ≥ 500,000 msg/s", medians.get("replay"), lambda v: v >= 500000,
          "{:,.0f}/s")
    check("held < 600 B/msg", medians.get("held"), lambda v: v < 600, "{:.0f} B")
    return out


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build-dir", type=Path, default=ROOT / "build-peers",
                        help="Release build holding bench/peers_* (default: build-peers)")
    parser.add_argument("--build", action="store_true",
                        help="configure and build the programs first (cmake, -j2)")
    parser.add_argument("--rounds", type=int, default=9, help="rounds of all programs (9)")
    parser.add_argument("--min-time", type=float, default=0.2,
                        help="--benchmark_min_time of each workload, in seconds (0.2)")
    parser.add_argument("--filter", help="--benchmark_filter passed to every program")
    parser.add_argument("--json", type=Path, help="write every round's figures here")
    parser.add_argument("--no-aslr", action="store_true",
                        help="run the programs without address randomisation (setarch -R), "
                        "which steadies the figures that depend on where code and data land")
    args = parser.parse_args()
    args.prefix = []
    if args.no_aslr:
        if not shutil.which("setarch"):
            sys.exit("--no-aslr needs setarch (util-linux)")
        args.prefix = ["setarch", platform.machine(), "-R"]

    build_dir = args.build_dir.resolve()
    if args.build:
        build(build_dir)
    cache = build_dir / "CMakeCache.txt"
    if cache.exists() and "CMAKE_BUILD_TYPE:STRING=Release" not in cache.read_text():
        print(f"warning: {build_dir} is not a Release build", file=sys.stderr)

    systems = []
    for column, name in SYSTEMS:
        program = build_dir / "bench" / name
        if program.exists():
            systems.append((column, program))
        elif column == "spdlog":
            print("note: no peers_spdlog (spdlog not found at configure time)", file=sys.stderr)
        else:
            sys.exit(f"{program} is missing: build it, or run with --build")

    samples = {}  # (row, column) -> [values]
    with tempfile.TemporaryDirectory(prefix="vtlog-compare-") as workdir:
        env_tmp = os.environ.get("TMPDIR", tempfile.gettempdir())
        print(f"{args.rounds} rounds, min time {args.min_time} s, files in {env_tmp}"
              + (", no address randomisation" if args.no_aslr else ""), file=sys.stderr)
        for r in range(args.rounds):
            order = systems[r % len(systems):] + systems[:r % len(systems)]
            for column, program in order:
                print(f"  round {r + 1}/{args.rounds}: {program.name}", file=sys.stderr)
                for key, value in run_program(program, args, workdir).items():
                    samples.setdefault((key, column), []).append(value)

    columns = [c for c, _ in systems]
    peers = [p for p in PEERS if p in columns]
    medians, ratios = {}, {}
    header = ["workload", "unit", *columns, *[f"÷ {p}" for p in peers]]
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    for key, label, unit, kind in ROWS:
        ours = samples.get((key, "libVTLog"), [])
        if not any(samples.get((key, c)) for c in columns):
            continue
        if ours:
            medians[key] = statistics.median(ours)
        row = [label.strip() if not label.startswith(" ") else "↳ " + label.strip(), unit]
        row += [cell(samples.get((key, c), []), kind, unit) for c in columns]
        for p in peers:
            value = ratio(ours, samples.get((key, p), []), kind)
            if value is not None:
                ratios[(key, p)] = value
            row.append("–" if value is None or unit == "" else f"{value:.2f}×")
        lines.append("| " + " | ".join(row) + " |")
    print(f"Machine: {machine()} (at the end of the run)"
          + ("; address randomisation off" if args.no_aslr else "") + ".\n")
    print("\n".join(lines))
    print(f"\nMedians of {args.rounds} rounds, ± their median absolute deviation. ÷ peer:",
          "libVTLog's median cost over the peer's (for the replay, time per message); above 1",
          "means libVTLog does worse.")
    print("\n| target | figure | met |\n|---|---|---|")
    for label, ok, text in verdicts(medians, ratios):
        print(f"| {label} | {text} | {'yes' if ok else 'no'} |")

    if args.json:
        args.json.write_text(json.dumps(
            {f"{k} | {c}": v for (k, c), v in samples.items()}, indent=1))


if __name__ == "__main__":
    main()
