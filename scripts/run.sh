#!/bin/sh
# Installs what is needed, builds, installs Salvora 3 into a prefix (default /usr/local; set
# SALVORA_PREFIX to choose) and starts it on the desktop. Without a display it shows the window
# on a virtual display instead, saves a screenshot, and lists the caches with `salvora`.
set -eu
cd "$(dirname "$0")/.."
SUDO=
[ "$(id -u)" = 0 ] || SUDO=sudo
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)"
prefix=${SALVORA_PREFIX:-/usr/local}
$SUDO cmake --install build --prefix "$prefix" >/dev/null
echo "Salvora 3 is installed in $prefix."

if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    echo "Starting Salvora 3 (it starts its companion and the daemon)."
    exec "$prefix/bin/salvora3"
fi

out=${SALVORA_SCREENSHOTS:-$PWD/build/screenshots}
echo "No display here: starting the window on a virtual display instead."
SALVORA_SKIP_APT=1 scripts/screenshots.sh --styles "adwaita adwaita-dark" "$out" "$prefix/bin/salvora3"
echo "The screenshots above show the window as it started (light and dark style)."
echo
echo "The caches, from the command line:"
echo "\$ salvora volumes"
"$prefix/bin/salvora" volumes
echo "\$ salvora days"
"$prefix/bin/salvora" days
echo "\$ salvora status"
"$prefix/bin/salvora" status
