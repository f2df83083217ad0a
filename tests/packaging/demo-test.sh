#!/bin/sh
# scripts/demo.sh, what scripts/run.sh shows without a display, on copies of this build's programs
# laid out as an install prefix: the daemon keeps the demo's items, and each style's screenshot
# shows the main window alone, no alert, with a kept item selected.
# Exits 77 (skipped) without root or without Xvfb, ImageMagick, xdotool or gio.
#   demo-test.sh SOURCE_DIR WORK_FOLDER SALVORA3 SALVORA ADMINLAUNCHER SV3DAEMON SV3DAEMON_AGENT
set -eu
source=$1 work=$2
shift 2
[ "$(id -u)" = 0 ] || { echo "SKIP: needs root to give the launcher and the daemon their rights"; exit 77; }
for tool in Xvfb xwininfo import convert dbus-daemon xdotool gio; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/deps.sh installs it)"; exit 77; }
done
rm -rf "$work"
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
mkdir -p "$prefix/bin" "$prefix/libexec/salvora3"
cp "$1" "$2" "$prefix/bin/"
cp "$3" "$4" "$5" "$prefix/libexec/salvora3/"
# The rights the window checks at launch, as scripts/run.sh gives them.
chown -R root:root "$prefix"
chmod 4755 "$prefix/libexec/salvora3/adminlauncher" "$prefix/libexec/salvora3/sv3daemon"

# In a PID namespace of its own, whatever the demo starts ends with it.
status=0
SALVORA_SKIP_APT=1 unshare --pid --fork --mount-proc "$source/scripts/demo.sh" "$prefix" "$work" \
    >"$work/out" 2>&1 || status=$?
cat "$work/out"
[ "$status" = 0 ] || { echo "FAIL: demo.sh ended with $status"; exit 1; }

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
[ -n "$(HOME=$work/home "$prefix/bin/salvora" ls --no-sizes)" ] || fail "salvora ls of the demo home is empty"
log="$work/home/.local/share/Salvora 3/Salvora 3 Log.txt"
grep -q "Salvora 3 Launched." "$log" || fail "the window did not log its launch"
grep -q "Privileges" "$log" && fail "the window tried to set privileges: $(grep Privileges "$log")"
# Each style's selection colour; the list of days is in the left half of the window, the list
# of kept items fills most of the right half, so a selected item shows there as a wide band.
for shot in adwaita:#3584E4 adwaita-dark:#15539E; do
    style=${shot%%:*} colour=${shot#*:}
    grep -q "salvora3-$style-1.png: \"Salvora 3\"" "$work/out" || fail "no main window with $style"
    grep -q "salvora3-$style-2.png" "$work/out" && fail "another window besides the main one with $style"
    picture=$work/screenshots/salvora3-$style-1.png
    [ -s "$picture" ] || continue
    selected=$(convert "$picture" -gravity East -crop 50%x100%+0+0 +repage -fill black +opaque "$colour" \
        -fill white -opaque "$colour" -format '%[fx:int(mean*w*h)]' info:)
    echo "$style: $selected pixels of the selection colour in the right half"
    [ "$selected" -ge 2000 ] || fail "no kept item is selected in the $style screenshot"
done
[ "$failures" = 0 ]
