#!/bin/sh
# Runs a test in a private mount namespace when we are root, so that its loop mounts are seen
# by nobody else and vanish with it. Without root the test runs as is and skips its mounts.
if [ "$(id -u)" = 0 ] && command -v unshare >/dev/null 2>&1; then
    exec unshare --mount --propagation private "$@"
fi
exec "$@"
