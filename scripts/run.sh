#!/bin/sh
# Installs what is needed, builds, and starts Salvora 3 with what exists so far.
set -eu
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)"
echo "The main window is not built yet; starting the command-line tool instead."
echo "Protected volumes (index, mount path, UUID, cache size, title):"
build/bin/salvora volumes
echo
exec build/bin/salvora status
