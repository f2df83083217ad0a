#!/bin/sh
# Installs every Debian 12 package that building, running, testing and packaging Salvora 3 needs.
# The third-last line checks installed files (tests/packaging); the second-last one is for
# screenshots on a virtual display (scripts/screenshots.sh and its test); the last one lets
# scripts/e2e-deb.sh read the window through the accessibility bus.
set -eu
SUDO=
[ "$(id -u)" = 0 ] || SUDO=sudo
PACKAGES="
  build-essential cmake ninja-build pkg-config git
  qt6-base-dev qt6-base-dev-tools qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools qt6-qpa-plugins
  qt6-pdf-dev
  libudev-dev libblkid-dev
  clang libclang-rt-14-dev clang-format
  dbus dbus-bin e2fsprogs util-linux mount xxd
  pkexec
  desktop-file-utils appstream man-db
  xvfb x11-utils xdotool imagemagick adwaita-qt6 adwaita-icon-theme fonts-dejavu-core
  libglib2.0-bin gvfs trash-cli
  at-spi2-core python3-gi gir1.2-atspi-2.0
"
if [ -z "${SALVORA_SKIP_APT:-}" ]; then
    $SUDO env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    # shellcheck disable=SC2086
    $SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $PACKAGES >/dev/null
fi
