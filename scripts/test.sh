#!/bin/sh
# Installs what is needed, builds, and runs every test. Usage: scripts/test.sh [preset]
set -eu
cd "$(dirname "$0")/.."
preset=${1:-default}
scripts/deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset"
