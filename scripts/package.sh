#!/bin/sh
# Builds the Debian package of Salvora 3: build-package/salvora3_<version>_<arch>.deb.
# Usage: scripts/package.sh [OUTPUT_FOLDER]
# Install it with: sudo apt install ./salvora3_*.deb
set -eu
cd "$(dirname "$0")/.."
out=${1:-build-package}
scripts/deps.sh
# A release build of the programs only, configured for /usr like every Debian package.
cmake -S . -B build-package -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DCMAKE_INSTALL_SYSCONFDIR=/etc \
    -DSALVORA_BUILD_TESTS=OFF -DSALVORA_BUILD_BENCH=OFF >/dev/null
cmake --build build-package -j "$(nproc)"
rm -f build-package/salvora3_*.deb
(cd build-package && cpack -G DEB >/dev/null)
deb=$(ls build-package/salvora3_*.deb)
if [ "$out" != build-package ]; then
    mkdir -p "$out"
    cp "$deb" "$out/"
fi
echo "$out/$(basename "$deb")"
