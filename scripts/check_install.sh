#!/usr/bin/env bash
# Installs the library into a scratch prefix and builds a consumer against it, once through
# find_package and once through pkg-config; both must print the expected line.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
expected="[Consumer] installed 2 headers"

cmake -S . -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DVTLOG_BUILD_TESTS=OFF -DVTLOG_BUILD_EXAMPLES=OFF -DVTLOG_BUILD_BENCH=OFF
cmake --build "$work/build" -j "$(nproc)"
cmake --install "$work/build"

cmake -S tests/consumer -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$work/consumer"
[ "$(LD_LIBRARY_PATH="$prefix/lib" "$work/consumer/consumer")" = "$expected" ]
echo "find_package consumer: ok"

libdir=$(dirname "$(find "$prefix" -name VTLog.pc)")
PKG_CONFIG_PATH="$libdir" c++ -std=c++17 tests/consumer/main.cpp -o "$work/consumer-pc" \
    $(PKG_CONFIG_PATH="$libdir" pkg-config --cflags --libs VTLog)
[ "$(LD_LIBRARY_PATH="$(dirname "$libdir")" "$work/consumer-pc")" = "$expected" ]
echo "pkg-config consumer: ok"
