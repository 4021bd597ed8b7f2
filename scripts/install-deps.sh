#!/usr/bin/env bash
# Installs every Debian 12 package that the build, the tests, the benchmarks and the demo need,
# and the packages named as arguments (scripts/build-debs.sh adds its packaging tools that way).
# Idempotent: packages already present are left alone, and apt is not called at all then.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config scdoc
    qt6-base-dev qt6-base-dev-tools
    libarchive-dev libssl-dev
    libarchive-tools xorriso zip unzip
    runit procps python3
    curl openssl
    "$@"
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi

echo "Installing: ${missing[*]}"
"${sudo_cmd[@]}" apt-get update
DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
