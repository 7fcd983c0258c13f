#!/usr/bin/env python3
"""What a file that logs pays at compile time: a file with one logging call through
<VTLog/v2/log.hpp> beside the same file through <boost/log/trivial.hpp>, <fmt/core.h> alone, and
each public header of the library alone. Prints a Markdown table.

Every file is compiled --runs times, in turns (so a change in the machine's load falls on all of
them alike), and each figure is the median CPU time (user + system) of the compiler over the
runs: CPU time, not wall time, because the machine may be shared. See bench/README.md.
"""

import argparse
import os
import platform
import re
import shlex
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
TARGET_RATIO = 1.2

ONE_CALL = """#include <VTLog/v2/log.hpp>

#include <string>

void log_one(VT::Logging::v2::logger const& l, int bytes, std::string const& host)
{
    VT::Logging::v2::log_fmt(l, VT::Logging::v2::log_level::info, "sent {} bytes to {}", bytes,
                             host);
}
"""

ONE_CALL_BOOST = """#include <boost/log/trivial.hpp>

#include <string>

void log_one(int bytes, std::string const& host)
{
    BOOST_LOG_TRIVIAL(info) << "sent " << bytes << " bytes to " << host;
}
"""

BOOST_LABEL = "one `BOOST_LOG_TRIVIAL`, `<boost/log/trivial.hpp>`"


def public_definitions():
    """The definitions every user of the library compiles with (as the installed package
    hands them over)."""
    version = re.search(r'#define BOOST_LIB_VERSION "(\d+)_(\d+)',
                        Path("/usr/include/boost/version.hpp").read_text())
    boost_version = f"{version.group(1)}.{version.group(2)}" if version else "0.0"
    flags = subprocess.run(
        ["cmake", f"-DSYSTEM_NAME={platform.system()}", f"-DBOOST_VERSION={boost_version}",
         "-P", str(ROOT / "cmake" / "VTLogPublicDefinitions.cmake")],
        capture_output=True, text=True, check=True).stdout
    return flags.split()


def cases():
    """(label, source text) of every file timed."""
    found = [
        ("one `log_fmt` call, `<VTLog/v2/log.hpp>`", ONE_CALL),
        (BOOST_LABEL, ONE_CALL_BOOST),
        ("`<fmt/core.h>` alone", "#include <fmt/core.h>\n"),
    ]
    for header in sorted((ROOT / "include").rglob("*.hpp")):
        name = header.relative_to(ROOT / "include").as_posix()
        found.append((f"`<{name}>` alone", f"#include <{name}>\n"))
    return found


def cpu_seconds(command):
    """User and system CPU time of one run of `command`, which must succeed."""
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(process.pid, 0)
    errors = process.stderr.read().decode()
    process.stderr.close()
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit(f"{shlex.join(command)} failed:\n{errors}")
    return usage.ru_utime + usage.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--cxx", default=os.environ.get("CXX", "g++"),
                        help="the compiler (default $CXX, else g++)")
    parser.add_argument("--flags", default="-O2",
                        help="options beside -std=c++17 and the include paths (default -O2)")
    parser.add_argument("--runs", type=int, default=5, help="compiles of each file (default 5)")
    parser.add_argument("--trace", type=Path, metavar="DIR",
                        help="keep the objects in DIR with clang's -ftime-trace beside them")
    args = parser.parse_args()

    options = ["-std=c++17", *shlex.split(args.flags), *public_definitions()]
    command = [args.cxx, *options, "-I", str(ROOT / "include"), "-c"]
    if args.trace:
        args.trace.mkdir(parents=True, exist_ok=True)
        command.append("-ftime-trace")
    version = subprocess.run([args.cxx, "--version"], capture_output=True, text=True).stdout
    print(f"{version.splitlines()[0]}, {shlex.join(options)}, median of {args.runs} runs\n")

    timed = cases()
    times = {label: [] for label, _ in timed}
    with tempfile.TemporaryDirectory(prefix="vtlog-compile-time-") as workdir:
        sources = []
        for index, (label, text) in enumerate(timed):
            source = Path(workdir) / f"case{index}.cpp"
            source.write_text(text)
            output = (args.trace / f"case{index}.o") if args.trace else os.devnull
            sources.append((label, [*command, str(source), "-o", str(output)]))
        for _ in range(args.runs):
            for label, compile_command in sources:
                times[label].append(cpu_seconds(compile_command))
        if args.trace:
            for index, (label, _) in enumerate(timed):
                print(f"trace of {label}: {args.trace / f'case{index}.json'}")
            print()

    boost = statistics.median(times[BOOST_LABEL])
    print("| file | CPU seconds | ÷ Boost.Log trivial |")
    print("|---|---|---|")
    for label, _ in timed:
        median = statistics.median(times[label])
        print(f"| {label} | {median:.2f} | {median / boost:.2f}× |")
    one_call = statistics.median(times[timed[0][0]])
    verdict = "met" if one_call <= TARGET_RATIO * boost else "NOT met"
    print(f"\nTarget, the one-call file within {TARGET_RATIO}× the Boost.Log trivial one: {verdict}")


if __name__ == "__main__":
    main()
