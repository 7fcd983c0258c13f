#!/usr/bin/env bash
# Installs the library into a scratch prefix and builds consumers against it: through
# find_package with g++ and with clang++ (whose default standard is older than C++17; the
# consumer asks for none), then, after the installed tree has been moved elsewhere, through
# find_package and pkg-config again. Every consumer must print the expected line.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh clang
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
expected="[Consumer] installed 3 headers (ggmessage)"

cmake -S . -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$work/prefix" \
    -DVTLOG_BUILD_TESTS=OFF -DVTLOG_BUILD_EXAMPLES=OFF -DVTLOG_BUILD_BENCH=OFF
cmake --build "$work/build" -j "$(nproc)"
cmake --install "$work/build"

# find_package_consumer <compiler> <prefix>
find_package_consumer() {
    local build=$work/consumer-$1
    rm -rf "$build"
    cmake -S tests/consumer -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="$1" -DCMAKE_PREFIX_PATH="$2"
    cmake --build "$build"
    [ "$(LD_LIBRARY_PATH="$2/lib" "$build/consumer")" = "$expected" ]
    echo "find_package consumer ($1, $2): ok"
}
find_package_consumer g++ "$work/prefix"

# A moved tree must still be usable: nothing installed may name the prefix it was built for.
mv "$work/prefix" "$work/moved"
prefix=$work/moved
find_package_consumer clang++ "$prefix"

libdir=$(dirname "$(find "$prefix" -name VTLog.pc)")
c++ -std=c++17 tests/consumer/main.cpp -o "$work/consumer-pc" \
    $(PKG_CONFIG_PATH="$libdir" pkg-config --cflags --libs VTLog)
[ "$(LD_LIBRARY_PATH="$(dirname "$libdir")" "$work/consumer-pc")" = "$expected" ]
echo "pkg-config consumer ($prefix): ok"
