#!/usr/bin/env bash
# Installs the Debian packages this project needs, when any is missing.
# Extra package names may be given as arguments (CI adds sanitizer runtimes this way).
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config
    libboost-log-dev libboost-thread-dev libboost-filesystem-dev
    libboost-date-time-dev
    libfmt-dev libgtest-dev libgmock-dev libbenchmark-dev libspdlog-dev
    "$@"
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed"; then
        missing+=("$package")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi
$sudo apt-get update
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
