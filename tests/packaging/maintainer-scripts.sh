#!/bin/sh
# Runs the Debian package's maintainer scripts on a fake root (DPKG_ROOT), as root.
#   maintainer-scripts.sh CONTROL_DIR     (build/packaging/debian)
set -eu
control=$1
[ "$(id -u)" = 0 ] || { echo "SKIP: needs root to change owners"; exit 77; }
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
owner_mode() { stat -c '%U:%G %a' "$1"; }

for script in postinst postrm; do
    sh -n "$control/$script" || fail "$script does not parse"
    if grep -q '@[A-Z_]*@' "$control/$script"; then fail "$script has an unfilled @VARIABLE@"; fi
done

libexec=$root/usr/libexec/salvora3
mkdir -p "$libexec"
chmod 755 "$root/usr" "$root/usr/libexec" "$libexec"
printf '#!/bin/sh\n' > "$libexec/adminlauncher"
printf '#!/bin/sh\n' > "$libexec/sv3daemon"
chown 65534:65534 "$libexec/adminlauncher" "$libexec/sv3daemon"
chmod 755 "$libexec/adminlauncher" "$libexec/sv3daemon"
printf '#!/bin/sh\n' > "$root/elsewhere"
chmod 755 "$root/elsewhere"

# Both become root-owned and set-user-id.
DPKG_ROOT=$root sh "$control/postinst" configure || fail "postinst configure failed"
for name in adminlauncher sv3daemon; do
    [ "$(owner_mode "$libexec/$name")" = "root:root 4755" ] ||
        fail "$name is $(owner_mode "$libexec/$name") after postinst, not root:root 4755"
done

# A link in place of the daemon is left alone, and so is what it points to.
rm "$libexec/sv3daemon"
ln -s "$root/elsewhere" "$libexec/sv3daemon"
DPKG_ROOT=$root sh "$control/postinst" configure || fail "postinst failed beside a link"
[ "$(owner_mode "$root/elsewhere")" = "root:root 755" ] || fail "postinst followed a link: $(owner_mode "$root/elsewhere")"

# Without the daemon (a build without it) the launcher still gets its rights.
rm "$libexec/sv3daemon"
chmod 755 "$libexec/adminlauncher"
DPKG_ROOT=$root sh "$control/postinst" configure || fail "postinst failed without the daemon"
[ "$(owner_mode "$libexec/adminlauncher")" = "root:root 4755" ] || fail "postinst skipped the launcher without the daemon"

# An administrator's dpkg-statoverride wins.
if command -v dpkg-statoverride >/dev/null; then
    mkdir -p "$root/var/lib/dpkg"
    chmod 755 "$libexec/adminlauncher"
    dpkg-statoverride --root "$root" --add root root 0755 /usr/libexec/salvora3/adminlauncher
    DPKG_ROOT=$root sh "$control/postinst" configure || fail "postinst failed with a statoverride"
    [ "$(owner_mode "$libexec/adminlauncher")" = "root:root 755" ] || fail "postinst overrode dpkg-statoverride"
fi

# Other actions change nothing; postrm never fails.
chmod 755 "$libexec/adminlauncher"
DPKG_ROOT=$root sh "$control/postinst" triggered || fail "postinst triggered failed"
[ "$(owner_mode "$libexec/adminlauncher")" = "root:root 755" ] || fail "postinst triggered changed the launcher"
for action in remove purge upgrade; do
    DPKG_ROOT=$root sh "$control/postrm" $action || fail "postrm $action failed"
done

[ "$failures" = 0 ] || exit 1
echo "maintainer scripts: rights set, links and overrides respected"
