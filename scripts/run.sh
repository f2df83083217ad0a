#!/bin/sh
# Installs what is needed, builds, installs Salvora 3 into a prefix (default /usr/local; set
# SALVORA_PREFIX to choose) and starts it on the desktop. Without a display it shows Salvora 3 at
# work in a demo home instead (scripts/demo.sh): screenshots of the window and `salvora` listings.
set -eu
cd "$(dirname "$0")/.."
SUDO=
if [ "$(id -u)" != 0 ] && command -v sudo >/dev/null; then SUDO=sudo; fi
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)"
prefix=${SALVORA_PREFIX:-/usr/local}
$SUDO cmake --install build --prefix "$prefix" >/dev/null
echo "Salvora 3 is installed in $prefix."

libexec=$prefix/libexec/salvora3
if [ "$(id -u)" = 0 ] || [ -n "$SUDO" ]; then
    # As the Debian package's set-up script does it, so that the first launch asks for nothing.
    for path in "$libexec/adminlauncher" "$libexec/sv3daemon"; do
        # Never through a link: only the files just installed.
        if [ ! -f "$path" ] || [ -L "$path" ]; then continue; fi
        $SUDO chown root:root "$path"
        # Changing the owner clears the set-user-id bit, so the mode comes second.
        $SUDO chmod 4755 "$path"
    done
    echo "The launcher and the daemon in $libexec are now root-owned and set-user-id, as the package makes them."
else
    echo "Without root or sudo the launcher and the daemon stay as they are: the first launch asks for an administrator password to make them root-owned and set-user-id, which the daemon needs to keep deleted items on every volume."
fi

if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    echo "Starting Salvora 3 (it starts its companion and the daemon)."
    exec "$prefix/bin/salvora3"
fi

echo "No display here: showing Salvora 3 at work in a demo home, on a virtual display."
SALVORA_SKIP_APT=1 scripts/demo.sh "$prefix" build/demo
