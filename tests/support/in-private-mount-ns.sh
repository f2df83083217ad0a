#!/bin/sh
# Runs a test in a private mount namespace when we are root, so that its loop mounts are seen
# by nobody else and vanish with it. Without root the test runs as is and skips its mounts.
# SALVORA_PRIVATE_MOUNT_NS names the namespace made here: a test mounts only when it is still in
# that one (/proc/1/ns/mnt cannot always be read to compare with the machine's).
if [ "$(id -u)" = 0 ] && command -v unshare >/dev/null 2>&1; then
    exec unshare --mount --propagation private \
        sh -c 'SALVORA_PRIVATE_MOUNT_NS=$(readlink /proc/self/ns/mnt) exec "$@"' sh "$@"
fi
exec "$@"
