#!/bin/sh
# Installs every Debian 12 package that building, running and testing Salvora 3 needs.
set -eu
SUDO=
[ "$(id -u)" = 0 ] || SUDO=sudo
PACKAGES="
  build-essential cmake ninja-build pkg-config git
  qt6-base-dev qt6-base-dev-tools qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools qt6-qpa-plugins
  libudev-dev libblkid-dev
  clang libclang-rt-14-dev
  dbus dbus-bin e2fsprogs util-linux mount xxd
  libglib2.0-bin gvfs trash-cli
"
if [ -z "${SALVORA_SKIP_APT:-}" ]; then
    $SUDO env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    # shellcheck disable=SC2086
    $SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $PACKAGES >/dev/null
fi
