#!/bin/sh
# Salvora 3 at work, without a display: in a demo home, on a private session bus, the installed
# daemon keeps a few files and a folder put in the trash and emptied; then screenshots of the
# window on that home (light and dark style, one kept item selected) and what `salvora` says.
#
# Usage: scripts/demo.sh PREFIX FOLDER
#   PREFIX   where Salvora 3 is installed (PREFIX/bin/salvora3, PREFIX/libexec/salvora3/sv3daemon)
#   FOLDER   receives home/ (the demo home, made anew each run and left for you to look at) and
#            screenshots/
# Everything it starts (daemon, bus, virtual display) is stopped before it ends.
# SALVORA_SKIP_APT=1 skips installing the packages it needs.
set -eu
cd "$(dirname "$0")/.."
[ $# = 2 ] || { sed -n '6,11s/^# \{0,1\}//p' "$0" >&2; exit 2; }
prefix=$1
mkdir -p "$2"
out=$(cd "$2" && pwd)
home=$out/home
daemon=$prefix/libexec/salvora3/sv3daemon
salvora=$prefix/bin/salvora
for p in "$prefix/bin/salvora3" "$salvora" "$daemon"; do
    [ -x "$p" ] || { echo "demo.sh: $p is not installed" >&2; exit 1; }
done
scripts/deps.sh
command -v gio >/dev/null || { echo "demo.sh: gio is missing" >&2; exit 1; }

# Only a folder this script made is removed: never a home that holds something else.
if [ -e "$home" ]; then
    [ -f "$home/.salvora-demo" ] || { echo "demo.sh: $home is not a demo home; not removing it" >&2; exit 1; }
    rm -rf "$home"
fi
rm -rf "$out/screenshots"
mkdir -m 700 "$home"
: >"$home/.salvora-demo"
export HOME="$home" XDG_CONFIG_HOME="$home/.config" XDG_DATA_HOME="$home/.local/share" \
    XDG_CACHE_HOME="$home/.cache" XDG_RUNTIME_DIR="$home/.runtime"
mkdir -p "$XDG_CONFIG_HOME/Salvora" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"
mkdir -m 700 "$XDG_RUNTIME_DIR"
# Not a first launch (no Preferences sheet, no help), no companion, protection on.
cat >"$XDG_CONFIG_HOME/Salvora/Salvora 3.json" <<EOF
{"FirstUse": $(($(date +%s) - 978307200 - 86400)), "PrefsLaunchMenu": 0, "PrefsProtectionEnabled": 1,
 "PrefsRemoveFromCache": 14}
EOF

work=$(mktemp -d)
bus_pid='' daemon_pid=''
# Only what this script started is stopped, by process id; the bus's services (gvfsd) end with it.
stop() {
    for pid in $daemon_pid $bus_pid; do
        if kill "$pid" 2>/dev/null; then wait "$pid" 2>/dev/null || true; fi
    done
    daemon_pid='' bus_pid=''
}
trap 'stop; rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

# Waits up to $1 tenths of a second for the command that follows to succeed.
wait_until() {
    tenths=$1 n=0
    shift
    until "$@"; do
        [ "$n" -lt "$tenths" ] || return 1
        sleep 0.1
        n=$((n + 1))
    done
}
# at_least N COMMAND: the number COMMAND prints is N or more.
at_least() { [ "$("$2")" -ge "$1" ]; }
shadows() { grep -c "shadow of" "$work/daemon.log"; }
kept() { "$salvora" ls --json --no-sizes | grep -c '"name"'; }

# Started after HOME is set, the bus starts gvfsd (which serves the trash to gio) on the demo home.
dbus-daemon --session --nofork --nopidfile --print-address=3 3>"$work/bus" >/dev/null 2>&1 &
bus_pid=$!
wait_until 100 test -s "$work/bus" || { echo "demo.sh: no session bus" >&2; exit 1; }
DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/bus")
export DBUS_SESSION_BUS_ADDRESS
"$daemon" >"$work/daemon.log" 2>&1 &
daemon_pid=$!
if ! wait_until 100 grep -q "sv3daemon ready" "$work/daemon.log"; then
    cat "$work/daemon.log" >&2
    echo "demo.sh: the daemon did not start" >&2
    exit 1
fi

mkdir -p "$home/Documents" "$home/Pictures/Holiday photos"
printf 'Quarterly figures: up 4%%.\n' >"$home/Documents/Report 2026.txt"
printf 'Call the plumber on Monday.\n' >"$home/Documents/$(printf 'Caf\303\251 notes.txt')"
head -c 250000 /dev/urandom >"$home/Pictures/Holiday photos/beach.jpg"
head -c 180000 /dev/urandom >"$home/Pictures/Holiday photos/harbour.jpg"
head -c 40000 /dev/urandom >"$home/Documents/Budget.ods"
set -- "$home/Documents/Report 2026.txt" "$home/Documents/$(printf 'Caf\303\251 notes.txt')" \
    "$home/Documents/Budget.ods" "$home/Pictures/Holiday photos"
echo "Putting $# items in the trash of the demo home, then emptying it."
gio trash "$@"
# The daemon links what arrives in the trash at once; the trash is emptied once it has.
wait_until 100 at_least $# shadows ||
    { cat "$work/daemon.log" >&2; echo "demo.sh: the daemon did not see the trash" >&2; exit 1; }
# `gio trash --empty` would also empty this account's trash on every other mounted volume: only
# the demo's items go, deleted through gvfs as a file manager empties the trash.
gio trash --list | while IFS="$(printf '\t')" read -r uri origin; do
    case $origin in "$home"/*) gio remove "$uri" ;; esac
done
wait_until 100 at_least $# kept ||
    { cat "$work/daemon.log" >&2; echo "demo.sh: the daemon kept $(kept) of $# items" >&2; exit 1; }

# The window on the demo's bus, where the daemon runs. The focus starts on the volume menu; going
# back from it reaches the list of kept items, where Down selects the item after the current one.
SALVORA_SKIP_APT=1 scripts/screenshots.sh --bus "$DBUS_SESSION_BUS_ADDRESS" --keys "shift+Tab Down" \
    "$out/screenshots" "$prefix/bin/salvora3"
for command in days ls status; do
    echo "\$ salvora $command"
    "$salvora" "$command"
done
stop
echo "The demo home stays in $home (its log: $XDG_DATA_HOME/Salvora 3/Salvora 3 Log.txt)."
