#!/usr/bin/env bash
# Sets up, builds and runs the demo program; arguments go to the demo.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake -S . -B build-demo -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVTLOG_BUILD_TESTS=OFF \
    -DVTLOG_BUILD_BENCH=OFF -DVTLOG_BUILD_EXAMPLES=ON
cmake --build build-demo -j "$(nproc)" --target vtlog_demo
build-demo/examples/vtlog_demo "$@"
