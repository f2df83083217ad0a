#!/bin/sh
# Runs the Debian package's maintainer scripts on a fake root (DPKG_ROOT), as root.
#   maintainer-scripts.sh CONTROL_DIR     (build/packaging/debian)
set -eu
control=$1
[ "$(id -u)" = 0 ] || { echo "SKIP: needs root to change owners"; exit 77; }
root=$(mktemp -d)
chmod 755 "$root"
started=''
# Only the processes this test started are stopped, by process id.
cleanup() {
    for p in $started; do kill -KILL "$p" 2>/dev/null || true; done
    rm -rf "$root"
}
trap cleanup EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
owner_mode() { stat -c '%U:%G %a' "$1"; }

for script in postinst prerm postrm; do
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

# prerm stops the companion and both halves of the daemon, whoever runs them, by the file they
# run: stand-ins made of sleep, at the installed paths under the fake root.
sleeper=$(command -v sleep)
mkdir -p "$root/usr/bin" "$root/other/bin"
chmod 755 "$root/usr/bin" "$root/other" "$root/other/bin"
for path in "$root/usr/bin/salvora3-menu" "$libexec/sv3daemon-agent" "$libexec/sv3daemon" \
    "$root/other/bin/sv3daemon-agent" "$root/usr/bin/salvora3"; do
    rm -f "$path"
    cp "$sleeper" "$path"
    chmod 755 "$path"
done
# Running, and not a zombie waiting for this shell to collect it.
alive() { [ -r "/proc/$1/stat" ] && [ "$(sed 's/.*) //' "/proc/$1/stat" | cut -d' ' -f1)" != Z ]; }
start() { "$@" & pid=$!; started="$started $pid"; }
start "$root/usr/bin/salvora3-menu" 300; menu=$pid
start setpriv --reuid=65534 --regid=65534 --clear-groups "$libexec/sv3daemon-agent" 300; agent=$pid
# A privileged half that ignores SIGTERM (an ignored signal stays ignored across exec).
# shellcheck disable=SC2016
start sh -c 'trap "" TERM; exec "$1" 300' sh "$libexec/sv3daemon"; stubborn=$pid
start "$root/other/bin/sv3daemon-agent" 300; namesake=$pid
start "$root/usr/bin/salvora3" 300; window=$pid
sleep 0.3
# One from before an upgrade: dpkg has replaced its file since it started.
start "$libexec/sv3daemon-agent" 300; old=$pid
sleep 0.3
cp "$libexec/sv3daemon-agent" "$libexec/sv3daemon-agent.dpkg-new"
mv "$libexec/sv3daemon-agent.dpkg-new" "$libexec/sv3daemon-agent"

for action in upgrade failed-upgrade; do
    DPKG_ROOT=$root sh "$control/prerm" $action 3.0.1 || fail "prerm $action failed"
done
for pid in $menu $agent $stubborn $old; do
    alive "$pid" || fail "prerm upgrade stopped $pid ($(tr '\0' ' ' <"/proc/$pid/cmdline" 2>/dev/null))"
done
begin=$(date +%s)
DPKG_ROOT=$root sh "$control/prerm" remove 2>"$root/prerm.err" || fail "prerm remove failed"
took=$(($(date +%s) - begin))
sleep 0.2
alive "$menu" && fail "prerm remove left the companion running"
alive "$agent" && fail "prerm remove left another user's agent running"
alive "$old" && fail "prerm remove left an agent whose file was replaced"
alive "$stubborn" && fail "prerm remove left a daemon that ignores SIGTERM"
grep -q "ignored SIGTERM: $stubborn" "$root/prerm.err" || fail "prerm did not say what it killed: $(cat "$root/prerm.err")"
[ "$took" -le 10 ] || fail "prerm remove took $took s"
alive "$namesake" || fail "prerm remove stopped a program of the same name elsewhere"
alive "$window" || fail "prerm remove stopped the window"
# With nothing left to stop, it has nothing to say and still succeeds.
DPKG_ROOT=$root sh "$control/prerm" remove 2>"$root/prerm.err" || fail "prerm remove failed with nothing to stop"
[ ! -s "$root/prerm.err" ] || fail "prerm remove with nothing to stop said: $(cat "$root/prerm.err")"

[ "$failures" = 0 ] || exit 1
echo "maintainer scripts: rights set, links and overrides respected, running programs stopped on removal"
