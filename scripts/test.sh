#!/usr/bin/env bash
# Sets up, builds (warnings are errors) and runs the whole test suite.
# Environment: BUILD_DIR (default build), CXX (default g++),
# VTLOG_SANITIZE ('' | address | thread), CMAKE_BUILD_TYPE (default Debug),
# VTLOG_BUILD_BENCH (ON | OFF, default ON: the benchmarks are built, not run).
# Another Boost than Debian's 1.74: VTLOG_BOOST=1.81|1.89 unpacks it with scripts/boost_prefix.sh
# (into VTLOG_BOOST_CACHE, default ~/.cache/vtlog-boost) and builds in build-boost<version> unless
# BUILD_DIR says otherwise; BOOST_PREFIX=<dir> uses the Boost installed under <dir>. A build
# directory keeps the Boost it was first configured with.
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=${BUILD_DIR:-build}
extra_packages=()
if [ "${CXX:-g++}" = clang++ ]; then
    extra_packages+=(clang libclang-rt-dev)
fi
scripts/setup.sh "${extra_packages[@]}"

boost_prefix=${BOOST_PREFIX:-}
if [ -n "${VTLOG_BOOST:-}" ]; then
    boost_prefix=$(scripts/boost_prefix.sh "$VTLOG_BOOST")
    build_dir=${BUILD_DIR:-build-boost$VTLOG_BOOST}
fi
boost_args=()
if [ -n "$boost_prefix" ]; then
    boost_args+=(-DCMAKE_PREFIX_PATH="$boost_prefix")
    # The build's run path reaches only the libraries a program links directly; Boost's own
    # libraries there carry none, so theirs (Boost.Log's Boost.Filesystem, say) are found here.
    boost_libs=$(dirname "$(find "$boost_prefix" -name 'libboost_log.so*' -print -quit)")
    export LD_LIBRARY_PATH="$boost_libs${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
fi

cmake -S . -B "$build_dir" -G Ninja \
    -DCMAKE_CXX_COMPILER="${CXX:-g++}" \
    -DCMAKE_BUILD_TYPE="${CMAKE_BUILD_TYPE:-Debug}" \
    -DVTLOG_WERROR=ON -DVTLOG_BUILD_TESTS=ON -DVTLOG_BUILD_BENCH="${VTLOG_BUILD_BENCH:-ON}" \
    -DVTLOG_SANITIZE="${VTLOG_SANITIZE:-}" "${boost_args[@]}"
cmake --build "$build_dir" -j "$(nproc)"
ctest --test-dir "$build_dir" --output-on-failure --no-tests=error -j "$(nproc)"
