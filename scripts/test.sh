#!/usr/bin/env bash
# Sets up, builds (warnings are errors) and runs the whole test suite.
# Environment: BUILD_DIR (default build), CXX (default g++),
# VTLOG_SANITIZE ('' | address | thread), CMAKE_BUILD_TYPE (default Debug).
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=${BUILD_DIR:-build}
extra_packages=()
if [ "${CXX:-g++}" = clang++ ]; then
    extra_packages+=(clang libclang-rt-dev)
fi
scripts/setup.sh "${extra_packages[@]}"

cmake -S . -B "$build_dir" -G Ninja \
    -DCMAKE_CXX_COMPILER="${CXX:-g++}" \
    -DCMAKE_BUILD_TYPE="${CMAKE_BUILD_TYPE:-Debug}" \
    -DVTLOG_WERROR=ON -DVTLOG_BUILD_TESTS=ON \
    -DVTLOG_SANITIZE="${VTLOG_SANITIZE:-}"
cmake --build "$build_dir" -j "$(nproc)"
ctest --test-dir "$build_dir" --output-on-failure --no-tests=error -j "$(nproc)"
