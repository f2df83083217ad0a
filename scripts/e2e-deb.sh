#!/bin/bash
# End-to-end check of the Debian package on this machine, as root (CI: a fresh Debian 12):
# builds it, installs it with apt, lets an unprivileged user start the window in a virtual
# session with a protected loop-mounted volume, deletes a file there through the trash, finds it
# in the cache and in the window, then removes the package and checks that nothing of it is left
# on the machine or running, and that the user's caches, settings and log are untouched.
#
# Usage: scripts/e2e-deb.sh [--deb FILE] [--out FOLDER]
#   --deb FILE    check this package instead of building one with scripts/package.sh
#   --out FOLDER  screenshots, logs and listings (default build-package/e2e)
# SALVORA_E2E_USER=NAME uses that existing account (kept) instead of a new one (deleted after).
# Prints PASS or FAIL per step; exits 1 if any step failed. Everything it made (account, loop
# device, mounts, processes) is undone, and the package is removed even when a step fails.
set -uo pipefail

libexec=/usr/libexec/salvora3
bindir=/usr/bin
vol_path="/mnt/Salvora E2E"
failures=0
pass() { echo "PASS: $*"; }
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
note() { echo "      $*"; }

# Process ids of the programs the package installed in the background roles, in any namespace.
running_programs() {
    find /proc/[0-9]*/exe -maxdepth 0 \( -lname "$bindir/salvora3-menu" -o -lname "$bindir/salvora3-menu (deleted)" \
        -o -lname "$libexec/sv3daemon-agent" -o -lname "$libexec/sv3daemon-agent (deleted)" \
        -o -lname "$libexec/sv3daemon" -o -lname "$libexec/sv3daemon (deleted)" \) -print 2>/dev/null |
        sed -n 's|^/proc/\([0-9]*\)/exe$|\1|p'
}
# The process ids running PROGRAM as the user id UID (effective id).
pids_of() {
    local program=$1 uid=$2 pid
    for pid in $(find /proc/[0-9]*/exe -maxdepth 0 -lname "$program" -print 2>/dev/null | sed -n 's|^/proc/\([0-9]*\)/exe$|\1|p'); do
        [ "$(awk '/^Uid:/ {print $3}' "/proc/$pid/status" 2>/dev/null)" = "$uid" ] && echo "$pid"
    done
}
# Prints EXPRESSION, a Python expression over the JSON document of FILE (d) and the ARGUMENTS (a);
# a list is printed one element per line. Fails when the file or the expression does.
json() {
    /usr/bin/python3 -c 'import json, sys
d = json.load(open(sys.argv[1]))
a = sys.argv[3:]
r = eval(sys.argv[2])
print("\n".join(map(str, r)) if isinstance(r, list) else r)' "$@" 2>/dev/null
}
# Waits up to $1 tenths of a second for the command after it to succeed.
wait_until() {
    local n=0 limit=$1
    shift
    until "$@"; do
        n=$((n + 1))
        [ "$n" -lt "$limit" ] || return 1
        sleep 0.1
    done
}

# ---------------------------------------------------------------------------------------------
# The session, inside a private mount namespace (run by the outer part through unshare).
# ---------------------------------------------------------------------------------------------
session() {
    local uid gid home runtime display bus out=$E2E_OUT
    uid=$(id -u "$E2E_USER") gid=$(id -g "$E2E_USER") home=$(getent passwd "$E2E_USER" | cut -d: -f6)
    # Global: the exit trap stops them after this function has returned.
    xvfb_pid='' bus_pid='' window_pid=''
    stop_session() {
        local pid
        for pid in $window_pid $bus_pid $xvfb_pid; do
            if kill "$pid" 2>/dev/null; then wait "$pid" 2>/dev/null || true; fi
        done
        window_pid='' bus_pid='' xvfb_pid=''
    }
    trap 'stop_session' EXIT

    # The volume, seen only in this namespace: a tmpfs over /mnt keeps the machine's /mnt apart.
    mount -t tmpfs -o mode=755 salvora-e2e /mnt && mkdir -p "$vol_path" && mount "$E2E_LOOP" "$vol_path" || {
        fail "mount the test volume"
        return
    }
    # The volume's root stays root's; the user gets a folder of files and a trash folder, as an
    # administrator gives them, and the administrator lets the volume keep deleted items (what
    # the password dialog the daemon would otherwise show does), so that the daemon's privileged
    # half makes the user's private cache folder there.
    install -d -o "$uid" -g "$gid" -m 755 "$vol_path/docs"
    install -d -o "$uid" -g "$gid" -m 700 "$vol_path/.Trash-$uid"
    if /usr/libexec/salvora3/sv3daemon --allow-volume "$vol_path" >/dev/null &&
        [ "$(stat -c '%U:%G %a' "$vol_path/.Salvora3Cache")" = "root:root 711" ]; then
        pass "an administrator allowed the volume: its shared cache folder is root's, 711"
    else
        fail "sv3daemon --allow-volume"
    fi
    runtime=$E2E_WORK/runtime
    install -d -o "$uid" -g "$gid" -m 700 "$runtime"
    # pkexec, for this namespace only, records that it was asked and refuses as it does without
    # an authentication agent: a launch that needs a password would show here.
    printf '#!/bin/sh\necho "$*" >>"%s/pkexec-asked"\nexit 127\n' "$runtime" >"$E2E_WORK/pkexec"
    chmod 755 "$E2E_WORK/pkexec"
    mount --bind "$E2E_WORK/pkexec" /usr/bin/pkexec || { fail "replace pkexec in the namespace"; return; }

    # The user protects the volume the way the settings file records it; not a first launch.
    install -d -o "$uid" -g "$gid" "$home/.config" "$home/.config/Salvora"
    cat >"$home/.config/Salvora/Salvora 3.json" <<EOF
{
    "FirstUse": $(($(date +%s) - 978307200)),
    "PrefsLaunchMenu": 1,
    "PrefsProtectionEnabled": 1,
    "PrefsRemoveFromCache": 14,
    "PrefsProtectedDisks": {"$E2E_UUID": "$vol_path"}
}
EOF
    chown "$uid:$gid" "$home/.config/Salvora/Salvora 3.json"

    as_user() {
        setpriv --reuid="$uid" --regid="$gid" --init-groups \
            env -i HOME="$home" USER="$E2E_USER" LOGNAME="$E2E_USER" PATH=/usr/bin:/bin LANG=C.UTF-8 \
            XDG_RUNTIME_DIR="$runtime" ${display:+DISPLAY="$display"} ${bus:+DBUS_SESSION_BUS_ADDRESS="$bus"} \
            QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 QT_QPA_PLATFORM=xcb "$@"
    }
    display='' bus=''
    as_user Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 3>"$runtime/display" 2>"$out/xvfb.log" &
    xvfb_pid=$!
    wait_until 100 test -s "$runtime/display" || { fail "start Xvfb"; return; }
    display=":$(head -n 1 "$runtime/display")"
    as_user dbus-daemon --session --nofork --nopidfile --print-address=3 3>"$runtime/bus" >/dev/null 2>&1 &
    bus_pid=$!
    wait_until 100 test -s "$runtime/bus" || { fail "start a session bus"; return; }
    bus=$(head -n 1 "$runtime/bus")
    pass "session for $E2E_USER: Xvfb $display, private session bus"

    local log="$home/.local/share/Salvora 3/Salvora 3 Log.txt"
    as_user "$bindir/salvora3" >"$out/salvora3.log" 2>&1 &
    window_pid=$!
    shown() { as_user xwininfo -root -tree 2>/dev/null | grep -q '"Salvora 3": ("salvora3"'; }
    if wait_until 200 shown; then pass "the window shows"; else fail "the window shows (see $out/salvora3.log)"; fi
    # Its privilege checks come first; the about box closes after two seconds.
    sleep 3
    local texts
    texts=$(as_user /usr/bin/python3 "$E2E_TOP/scripts/window-texts.py" show 2>"$out/window-texts.err")
    echo "$texts" >"$out/window-start.json"
    if kill -0 "$window_pid" 2>/dev/null && grep -q "Salvora 3 Launched." "$log" 2>/dev/null &&
        ! grep -q "Privileges to adminlauncher" "$log" && ! grep -q "Administrator rights" <<<"$texts" &&
        [ ! -e "$runtime/pkexec-asked" ]; then
        pass "no password asked: the window runs, logged its launch, tried no pkexec, shows no alert"
    else
        fail "the window started without asking for a password"
        note "log: $(head -n 5 "$log" 2>/dev/null | tr '\n' '|')"
        note "windows: $texts"
        [ -e "$runtime/pkexec-asked" ] && note "pkexec was asked to run: $(cat "$runtime/pkexec-asked")"
    fi
    as_user import -window root png:- >"$out/window-start.png" && pass "screenshot $out/window-start.png"

    # The window starts the daemon; its privileged half keeps root, the agent runs as the user.
    local agent menu daemon
    agent_runs() { [ -n "$(pids_of "$libexec/sv3daemon-agent" "$uid")" ]; }
    menu_runs() { [ -n "$(pids_of "$bindir/salvora3-menu" "$uid")" ]; }
    if wait_until 100 agent_runs; then
        agent=$(pids_of "$libexec/sv3daemon-agent" "$uid")
        daemon=$(pids_of "$libexec/sv3daemon" 0)
        if [ -n "$daemon" ] && grep -q "Salvora 3 started sv3daemon." "$log"; then
            pass "the window started the daemon: agent $agent as $E2E_USER, privileged half $daemon as root"
        else
            fail "the daemon's privileged half runs as root (agent $agent, privileged: '${daemon}')"
        fi
    else
        fail "the daemon's agent runs as $E2E_USER"
    fi
    as_user dbus-send --session --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.NameHasOwner \
        string:org.salvora.Salvora3.Daemon 2>/dev/null | grep -q "boolean true" &&
        pass "the daemon owns org.salvora.Salvora3.Daemon" || fail "the daemon owns its bus name"
    # The companion: started by the window, and put among the user's login items.
    if wait_until 100 menu_runs &&
        grep -qx "Exec=$bindir/salvora3-menu" "$home/.config/autostart/salvora3-menu.desktop" 2>/dev/null; then
        menu=$(pids_of "$bindir/salvora3-menu" "$uid")
        pass "the window started the companion ($menu) and added its login item"
    else
        fail "the companion runs and is a login item"
    fi

    # A deletion through the trash on the protected volume.
    local name="e2e deleted $E2E_TOKEN.txt"
    echo "kept by Salvora 3" | as_user tee "$vol_path/docs/$name" >/dev/null
    if as_user gio trash "$vol_path/docs/$name" && [ -e "$vol_path/.Trash-$uid/files/$name" ]; then
        pass "gio trash moved the file into the volume's trash"
    else
        fail "gio trash of a file on the volume"
    fi
    # The daemon shadows the item as it arrives; emptying the trash commits it to the cache.
    sleep 1
    if as_user gio trash --empty && wait_until 50 test ! -e "$vol_path/.Trash-$uid/files/$name"; then
        pass "gio trash --empty emptied the trash"
    else
        fail "gio trash --empty"
    fi
    local index listed
    in_cache() {
        as_user "$bindir/salvora" volumes --json >"$out/volumes.json" 2>&1 || return 1
        index=$(json "$out/volumes.json" 'next(v["index"] for v in d if v["path"] == a[0])' "$vol_path") || return 1
        as_user "$bindir/salvora" ls -v "$index" -s "$E2E_TOKEN" --json >"$out/ls.json" 2>&1 || return 1
        listed=$(json "$out/ls.json" '[i["path"] for i in d["items"] if i["name"] == a[0]]' "$name")
        [ -n "$listed" ] && [ "$(cat "$listed" 2>/dev/null)" = "kept by Salvora 3" ]
    }
    if wait_until 150 in_cache; then
        pass "salvora ls --json lists the item in volume $index's cache: $listed"
        if [ "$(stat -c '%U %a' "$vol_path/.Salvora3Cache/$uid")" = "$E2E_USER 700" ]; then
            pass "the user's cache folder on the volume is theirs alone (700), made by the daemon's privileged half"
        else
            fail "the user's cache folder: $(stat -c '%U:%G %a' "$vol_path/.Salvora3Cache/$uid" 2>&1)"
        fi
    else
        fail "the item is in the volume's cache (salvora ls --json: $(head -c 300 "$out/ls.json" 2>/dev/null))"
    fi

    # The window: the volume picked in its pop-up, the item in its contents list.
    local title
    title=$(json "$out/volumes.json" 'next(v["title"] for v in d if v["path"] == a[0])' "$vol_path")
    if [ -n "$title" ] && as_user /usr/bin/python3 "$E2E_TOP/scripts/window-texts.py" select-volume "$title" 2>>"$out/window-texts.err"; then
        pass "picked \"$title\" in the window's volume pop-up"
    else
        fail "pick the volume \"$title\" in the window's pop-up"
    fi
    in_window() {
        texts=$(as_user /usr/bin/python3 "$E2E_TOP/scripts/window-texts.py" show 2>>"$out/window-texts.err")
        echo "$texts" >"$runtime/texts.json"
        [ "$(json "$runtime/texts.json" 'any(r and r[0] == a[0] for r in d["contents"] or [])' "$name")" = True ]
    }
    if wait_until 100 in_window; then
        pass "the window lists the item in its contents list"
    else
        fail "the window lists the item (it shows: $texts)"
    fi
    echo "$texts" >"$out/window-item.json"
    as_user import -window root png:- >"$out/window-item.png" && pass "screenshot $out/window-item.png"

    # The daemon records the days it holds in the settings a moment after it keeps (300 ms, on
    # its background worker): the snapshot waits for that record, and for the file to rest.
    settled() {
        local f="$home/.config/Salvora/Salvora 3.json"
        [ "$(json "$f" 'sum(x["count"] for x in d["ProtectedVolumesData"][a[0]]["days"])' "$E2E_UUID")" -ge 1 ] 2>/dev/null &&
            [ $(($(date +%s) - $(stat -c %Y "$f"))) -ge 2 ]
    }
    wait_until 100 settled || fail "the daemon recorded the kept day in the settings"

    # The user's data, as the removal must leave it.
    snapshot >"$out/userdata-before.txt"
    cp "$home/.config/Salvora/Salvora 3.json" "$out/settings-before.json" 2>/dev/null
    cp "$log" "$out/log-before.txt" 2>/dev/null

    # Removal, with the session still open.
    if env DEBIAN_FRONTEND=noninteractive apt-get remove --purge -y salvora3 >"$out/remove.log" 2>&1; then
        pass "apt-get remove --purge salvora3"
    else
        fail "apt-get remove --purge salvora3 (see $out/remove.log)"
    fi
    local left
    left=$(running_programs | tr '\n' ' ')
    if [ -z "$left" ]; then
        pass "no companion, agent or daemon process survived the removal"
    else
        fail "still running after the removal: $left"
        for pid in $left; do note "$pid: $(readlink "/proc/$pid/exe")"; done
    fi
    # The window is the user's: it stays, without a daemon, until the user closes it.
    kill -0 "$window_pid" 2>/dev/null && note "the window stays open after the removal; closing it now"
    stop_session
    left=$(running_programs | tr '\n' ' ')
    [ -z "$left" ] || fail "running after the session closed: $left"
    snapshot >"$out/userdata-after.txt"
    cp "$home/.config/Salvora/Salvora 3.json" "$out/settings-after.json" 2>/dev/null
}

# Every file of the user's caches, settings and log, with its content's checksum. The log only
# grows (newest entry first) and is compared apart.
snapshot() {
    local home
    home=$(getent passwd "$E2E_USER" | cut -d: -f6)
    (cd / && find "$home/.Salvora3Cache" "$vol_path/.Salvora3Cache" "$home/.config/Salvora" \
        "$home/.config/autostart" -type f -print0 2>/dev/null | LC_ALL=C sort -z | xargs -0r sha256sum)
}

if [ "${1:-}" = --session ]; then
    session
    exit "$((failures > 100 ? 100 : failures))"
fi

# ---------------------------------------------------------------------------------------------
# The outer part: build, install, the session in its namespace, removal checks, clean-up.
# ---------------------------------------------------------------------------------------------
cd "$(dirname "$0")/.." || exit 2
top=$PWD
deb='' out=$top/build-package/e2e
while [ $# -gt 0 ]; do
    case $1 in
    --deb) deb=$(realpath "$2"); shift 2 ;;
    --out) out=$(realpath -m "$2"); shift 2 ;;
    *) sed -n '8,14s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
    esac
done
[ "$(id -u)" = 0 ] || { echo "e2e-deb.sh: run it as root (it installs a package and mounts a volume)" >&2; exit 2; }
start=$SECONDS
rm -rf "$out"
mkdir -p "$out"
work=$(mktemp -d /tmp/salvora-e2e.XXXXXX)
chmod 755 "$work"
user=${SALVORA_E2E_USER:-sv3e2e}
created_user='' loop='' uuid_link='' made_by_uuid=''

cleanup() {
    if dpkg-query -W -f '${Status}' salvora3 2>/dev/null | grep -qv "not-installed"; then
        env DEBIAN_FRONTEND=noninteractive apt-get remove --purge -y salvora3 >/dev/null 2>&1
    fi
    if [ -n "$created_user" ]; then
        # What the session started as the user and left running (the bus's helpers) goes first.
        local uid status pid
        uid=$(id -u "$created_user")
        for status in /proc/[0-9]*/status; do
            pid=${status#/proc/}
            [ "$(awk '/^Uid:/ {print $2}' "$status" 2>/dev/null)" = "$uid" ] && kill -KILL "${pid%/status}" 2>/dev/null
        done
        sleep 0.2
        userdel --remove "$created_user" 2>/dev/null
    fi
    [ -n "$loop" ] && losetup -d "$loop" 2>/dev/null
    [ -n "$uuid_link" ] && rm -f "$uuid_link"
    [ -n "$made_by_uuid" ] && rmdir /dev/disk/by-uuid /dev/disk 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# 1. The package.
if [ -z "$deb" ]; then
    if deb=$(scripts/package.sh | tail -n 1) && [ -f "$deb" ]; then
        deb=$(realpath "$deb")
        pass "built $deb ($((SECONDS - start)) s)"
    else
        fail "scripts/package.sh"
        exit 1
    fi
else
    SALVORA_SKIP_APT=1 scripts/deps.sh
fi
missing=''
for tool in Xvfb xwininfo import dbus-daemon dbus-send gio setpriv unshare losetup mkfs.ext4 /usr/bin/python3; do
    command -v "$tool" >/dev/null || missing="$missing $tool"
done
/usr/bin/python3 -c 'import gi; gi.require_version("Atspi", "2.0")' 2>/dev/null || missing="$missing gir1.2-atspi-2.0"
[ -z "$missing" ] || { fail "tools missing:$missing (scripts/deps.sh installs them)"; exit 1; }

if dpkg-query -W -f '${Status}' salvora3 2>/dev/null | grep -q "installed"; then
    note "salvora3 is installed already (an earlier run?): removing it first"
    env DEBIAN_FRONTEND=noninteractive apt-get remove --purge -y salvora3 >/dev/null 2>&1
fi
# What apt would bring along is installed first, so that the listings below differ by this
# package alone.
mapfile -t deps < <(apt-get install -s "$deb" 2>/dev/null | awk '/^Inst / && $2 != "salvora3" {print $2}')
if [ "${#deps[@]}" -gt 0 ]; then
    note "installing the package's dependencies first: ${deps[*]}"
    env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${deps[@]}" >"$out/deps.log" 2>&1 ||
        { fail "install the dependencies (see $out/deps.log)"; exit 1; }
fi

# The account comes first: adding and deleting it changes /etc, which is not the package's doing.
if [ -n "${SALVORA_E2E_USER:-}" ]; then
    id "$user" >/dev/null 2>&1 || { fail "SALVORA_E2E_USER=$user does not exist"; exit 1; }
    note "using the existing account $user (kept)"
else
    # A leftover of an interrupted run is made again from scratch.
    id "$user" >/dev/null 2>&1 && userdel --remove "$user" 2>/dev/null
    if useradd --create-home --user-group --shell /bin/sh "$user"; then
        created_user=$user
        pass "created the account $user"
    else
        fail "useradd $user"
        exit 1
    fi
fi
# The places a package may write to, as NUL-separated sorted paths. dpkg's journal and backups
# change with any installation and are left out; its record of each package is not.
listing() {
    find /usr /etc /var/lib /opt -print0 2>/dev/null |
        grep -zv -e '^/var/lib/dpkg/updates/' -e '^/var/lib/dpkg/triggers/' -e '^/var/lib/dpkg/[^/]*-old$' \
            -e '^/var/lib/apt/lists/' | LC_ALL=C sort -z
}
listing >"$work/before"

# 2. Installation.
if env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=120 install -y "$deb" >"$out/install.log" 2>&1; then
    pass "apt-get install -y $(basename "$deb")"
else
    fail "apt-get install (see $out/install.log)"
    # CI keeps only what is printed.
    tail -n 40 "$out/install.log" | sed 's/^/      /'
    exit 1
fi
rights=ok
for f in "$libexec/adminlauncher" "$libexec/sv3daemon"; do
    [ "$(stat -c '%U:%G %a' "$f" 2>/dev/null)" = "root:root 4755" ] || { rights=bad; note "$f: $(stat -c '%U:%G %a' "$f" 2>&1)"; }
done
for f in "$bindir/salvora3" "$bindir/salvora3-menu" "$bindir/salvora" "$libexec/sv3daemon-agent"; do
    [ "$(stat -c '%U:%G %a' "$f" 2>/dev/null)" = "root:root 755" ] || { rights=bad; note "$f: $(stat -c '%U:%G %a' "$f" 2>&1)"; }
done
if [ $rights = ok ]; then
    pass "adminlauncher and sv3daemon are root:root 4755, the other programs 755"
else
    fail "set-user-id bits after installation"
fi

# 3. The volume.
uuid=$(cat /proc/sys/kernel/random/uuid | tr a-z A-Z)
token=$(head -c 6 /dev/urandom | od -An -tx1 | tr -d ' \n')
if truncate -s 32M "$work/volume.img" && mkfs.ext4 -q -F -U "${uuid,,}" -L SV3E2E "$work/volume.img" &&
    loop=$(losetup --find --show "$work/volume.img"); then
    pass "ext4 volume $uuid on $loop"
else
    fail "make the test volume"
    exit 1
fi
# Without udev (containers) nobody but root can tell a volume's UUID: give it the link udev
# would make, for the length of the run.
if [ ! -e "/dev/disk/by-uuid/${uuid,,}" ]; then
    [ -d /dev/disk/by-uuid ] || { mkdir -p /dev/disk/by-uuid && made_by_uuid=1; }
    uuid_link=/dev/disk/by-uuid/${uuid,,}
    ln -s "../../${loop#/dev/}" "$uuid_link"
    note "no udev here: linked $uuid_link -> $loop as udev would"
fi

# 4. The session, in a private mount namespace.
E2E_WORK=$work E2E_USER=$user E2E_LOOP=$loop E2E_UUID=$uuid E2E_TOKEN=$token E2E_OUT=$out E2E_TOP=$top \
    unshare --mount --propagation private -- "$0" --session
session_failures=$?
failures=$((failures + session_failures))

# 5. After the removal: nothing of the program on the machine, the user's data untouched.
listing >"$work/after"
comm -z -13 "$work/before" "$work/after" | tr '\0' '\n' >"$out/added.txt"
comm -z -23 "$work/before" "$work/after" | tr '\0' '\n' >"$out/removed.txt"
if [ ! -s "$out/added.txt" ] && [ ! -s "$out/removed.txt" ]; then
    pass "/usr /etc /var/lib /opt list the same files as before the installation"
else
    fail "files differ from before the installation: $(wc -l <"$out/added.txt") added, $(wc -l <"$out/removed.txt") removed"
    head -n 20 "$out/added.txt" | sed 's/^/      + /'
    head -n 20 "$out/removed.txt" | sed 's/^/      - /'
fi
if dpkg-query -W -f '${Status}' salvora3 2>/dev/null | grep -q "installed\|config-files"; then
    fail "dpkg still knows salvora3: $(dpkg-query -W -f '${Status}' salvora3)"
else
    pass "dpkg no longer knows salvora3"
fi
home=$(getent passwd "$user" | cut -d: -f6)
log="$home/.local/share/Salvora 3/Salvora 3 Log.txt"
before_size=$(stat -c %s "$out/log-before.txt" 2>/dev/null || echo 0)
if [ -s "$out/userdata-before.txt" ] && cmp -s "$out/userdata-before.txt" "$out/userdata-after.txt" &&
    [ "$before_size" -gt 0 ] && tail -c "$before_size" "$log" | cmp -s - "$out/log-before.txt"; then
    pass "the user's caches, settings, login item and log are untouched ($(wc -l <"$out/userdata-after.txt") files)"
else
    fail "the user's data changed with the removal"
    diff "$out/userdata-before.txt" "$out/userdata-after.txt" | head -n 10 | sed 's/^/      /'
fi

echo "e2e-deb: $failures failure(s) in $((SECONDS - start)) s; screenshots and logs in $out"
[ "$failures" = 0 ]
