#!/bin/sh
# scripts/screenshots.sh on the real window of the build tree, with a test HOME whose cache holds
# a day of items: one screenshot per style, the window titled and drawn, the dark style dark. In
# each, an item is put back from the keyboard, so that the message bar shows above the list and
# the Original Location column beside it.
# Exits 77 (skipped) without root or without Xvfb and ImageMagick.
#   screenshots-test.sh SOURCE_DIR WORK_FOLDER SALVORA3 ADMINLAUNCHER SV3DAEMON
#
# The window checks at launch that its launcher and its daemon are root-owned and set-user-id,
# and asks for an administrator password otherwise. Copies of the three programs in one folder
# (as in a build tree) get those rights here, so the build tree itself never holds a set-user-id
# program. That needs root; the daemon's agent is not copied, so no daemon stays behind.
set -eu
source=$1 work=$2 window=$3 launcher=$4 daemon=$5
[ "$(id -u)" = 0 ] || { echo "SKIP: needs root to give the launcher and the daemon their rights"; exit 77; }
for tool in Xvfb xwininfo import identify dbus-daemon; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/deps.sh installs it)"; exit 77; }
done
rm -rf "$work"
mkdir -p "$work/bin" "$work/home"
trap 'rm -rf "$work"' EXIT
cp "$window" "$work/bin/salvora3"
cp "$launcher" "$work/bin/adminlauncher"
cp "$daemon" "$work/bin/sv3daemon"
chown root:root "$work/bin/salvora3" "$work/bin/adminlauncher" "$work/bin/sv3daemon"
chmod 755 "$work/bin/salvora3"
chmod 4755 "$work/bin/adminlauncher" "$work/bin/sv3daemon"

# Not a first launch (no Preferences sheet, no help), no companion; today's cache has items.
home=$work/home
mkdir -p "$home/.config/Salvora"
cat >"$home/.config/Salvora/Salvora 3.json" <<EOF
{"FirstUse": $(($(date +%s) - 978307200 - 86400)), "PrefsLaunchMenu": 0, "PrefsProtectionEnabled": 1,
 "PrefsRemoveFromCache": 14}
EOF
time_folder="$home/.Salvora3Cache/$(date +%Y-%m-%d)/$(date '+%Y-%m-%d %H_%M_%S')"
mkdir -p "$time_folder/Holiday photos"
printf 'quarterly figures\n' >"$time_folder/Report 2026.txt"
head -c 120000 /dev/zero >"$time_folder/Holiday photos/beach.jpg"
printf 'draft\n' >"$time_folder/$(printf 'caf\351 notes.txt')"
# Where each was deleted from, as a deletion into the cache records it (bytes that are not UTF-8
# in base64).
day=$(date +%Y-%m-%d)
time_name=$(basename "$time_folder")
mkdir -p "$home/.Salvora3Cache/.origins"
{
    printf '{"time":"%s","name":"Report 2026.txt","path":"%s/Documents/Report 2026.txt","uid":0}\n' "$time_name" "$home"
    printf '{"time":"%s","name":"Holiday photos","path":"%s/Pictures/2026/Holiday photos","uid":0}\n' "$time_name" "$home"
    printf '{"time":"%s","name64":"%s","path64":"%s","uid":0}\n' "$time_name" \
        "$(printf 'caf\351 notes.txt' | base64 -w0)" "$(printf '%s/Documents/caf\351 notes.txt' "$home" | base64 -w0)"
} >"$home/.Salvora3Cache/.origins/$day.jsonl"

# In a PID namespace of its own, whatever the window starts ends with it.
HOME=$home SALVORA_SKIP_APT=1 unshare --pid --fork --mount-proc \
    "$source/scripts/screenshots.sh" --delay 3 --keys "ctrl+f Tab Down Up ctrl+shift+r" "$work/shots" \
    "$work/bin/salvora3" | tee "$work/list"

# A copy to look at, when asked: SALVORA_SHOTS=FOLDER.
if [ -n "${SALVORA_SHOTS:-}" ]; then mkdir -p "$SALVORA_SHOTS" && cp "$work"/shots/*.png "$SALVORA_SHOTS/"; fi

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
for style in adwaita adwaita-dark; do
    for f in "salvora3-$style.png" "salvora3-$style-1.png"; do
        [ -s "$work/shots/$f" ] || fail "no $f"
    done
done
grep -q 'salvora3-adwaita-1.png: "Salvora 3"' "$work/list" || fail "the window's title is not listed"
# The about box has closed by now: the window is the only one shown.
grep -q 'salvora3-adwaita-2.png' "$work/list" && fail "another window is shown besides the window"
log="$home/.local/share/Salvora 3/Salvora 3 Log.txt"
grep -q "Salvora 3 Launched." "$log" || fail "the window did not log its launch"
grep -q "Privileges" "$log" && fail "the window tried to set privileges: $(grep Privileges "$log")"
# Put back from the keyboard, once per style: the first item of the list each time.
[ -f "$home/Documents/$(printf 'caf\351 notes.txt')" ] || fail "the first item was not put back"
[ -d "$home/Pictures/2026/Holiday photos" ] || fail "the second item was not put back"
[ -e "$time_folder/Report 2026.txt" ] || fail "more than the selected item was put back"
[ "$failures" = 0 ] || exit 1

# Mean brightness of each window, 0 to 100; the light one has its tables white, the dark one not.
light=$(identify -format '%[fx:int(100*mean)]' "$work/shots/salvora3-adwaita-1.png")
dark=$(identify -format '%[fx:int(100*mean)]' "$work/shots/salvora3-adwaita-dark-1.png")
echo "brightness: adwaita $light, adwaita-dark $dark"
[ "$light" -ge 70 ] || { echo "FAIL: the light style is not light"; exit 1; }
[ "$dark" -le 35 ] || { echo "FAIL: the dark style is not dark (is adwaita-qt6 installed?)"; exit 1; }
