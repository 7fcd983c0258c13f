#!/usr/bin/env bash
# Unpacks a Boost other than Debian 12's default (1.74) into a prefix of its own and prints that
# prefix: configure with -DCMAKE_PREFIX_PATH=<prefix>, whose Boost CMake package files find the
# headers and libraries relative to themselves.
#   scripts/boost_prefix.sh 1.81 [DIR]   Debian 12's Boost 1.81 packages, which cannot be
#                                        installed beside 1.74: downloaded with apt-get,
#                                        unpacked with dpkg -x
#   scripts/boost_prefix.sh 1.89 [DIR]   Boost 1.89.0 built for Debian 12, from the project's
#                                        shared folder (VTLOG_DEPS_DIR, default ../shared/deps)
# DIR defaults to VTLOG_BOOST_CACHE, or else ~/.cache/vtlog-boost. A prefix that DIR already
# holds complete is reused.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    echo "usage: $0 1.81|1.89 [DIR]" >&2
    exit 2
}
[ $# -eq 1 ] || [ $# -eq 2 ] || usage
version=$1
dir=${2:-${VTLOG_BOOST_CACHE:-${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/vtlog-boost}}
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)

case $version in
1.81)
    prefix=$dir/boost-1.81/usr
    ;;
1.89)
    prefix=$dir/boost-1.89.0
    ;;
*)
    usage
    ;;
esac
# Written last, so an interrupted unpack is done again.
complete=$dir/boost-$version.complete
if [ -f "$complete" ]; then
    echo "$prefix"
    exit 0
fi

case $version in
1.81)
    # The -dev packages of the components the build asks for and of those their CMake package
    # files depend on (log: atomic, chrono, filesystem, regex, thread), with their libraries.
    components=(log thread filesystem date-time system atomic chrono regex)
    packages=(libboost1.81-dev)
    for component in "${components[@]}"; do
        packages+=("libboost-$component""1.81-dev" "libboost-$component""1.81.0")
    done
    downloads=$(mktemp -d)
    trap 'rm -rf "$downloads"' EXIT
    if ! (cd "$downloads" && apt-get download "${packages[@]}" >&2); then
        # A machine that has not read the package lists yet knows no 1.81 packages.
        sudo=""
        if [ "$(id -u)" -ne 0 ]; then
            sudo="sudo"
        fi
        $sudo apt-get update >&2
        (cd "$downloads" && apt-get download "${packages[@]}" >&2)
    fi
    rm -rf "$dir/boost-1.81"
    for package in "$downloads"/*.deb; do
        dpkg -x "$package" "$dir/boost-1.81"
    done
    ;;
1.89)
    archive=${VTLOG_DEPS_DIR:-../shared/deps}/boost-1.89.0-debian12-x86_64.tar.zst
    if [ ! -f "$archive" ]; then
        echo "$archive not found: Boost 1.89 comes from the project's shared folder" >&2
        exit 1
    fi
    command -v zstd >/dev/null || scripts/setup.sh zstd >&2
    rm -rf "$prefix"
    tar --zstd -xf "$archive" -C "$dir"
    ;;
esac
[ -d "$prefix/include/boost" ] || { echo "no Boost headers in $prefix" >&2; exit 1; }
touch "$complete"
echo "$prefix"
