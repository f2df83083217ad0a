#!/bin/sh
# scripts/screenshots.sh on the stand-in window: one screenshot per style, and the dark style
# really is dark. Exits 77 (skipped) without Xvfb or ImageMagick.
#   screenshots-test.sh SOURCE_DIR PROGRAM WORK_FOLDER
set -eu
source=$1 program=$2 work=$3
for tool in Xvfb xwininfo import identify dbus-daemon; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/deps.sh installs it)"; exit 77; }
done
rm -rf "$work"
mkdir -p "$work/home"
trap 'rm -rf "$work"' EXIT
HOME=$work/home SALVORA_SKIP_APT=1 "$source/scripts/screenshots.sh" --delay 0.5 "$work/shots" "$program" |
    tee "$work/list"

name=$(basename "$program")
failures=0
for style in adwaita adwaita-dark; do
    for f in "$name-$style.png" "$name-$style-1.png"; do
        [ -s "$work/shots/$f" ] || { echo "FAIL: no $f"; failures=$((failures + 1)); }
    done
done
[ "$failures" = 0 ] || exit 1
grep -q "$name-adwaita-1.png: \"Screenshot demo\"" "$work/list" || { echo "FAIL: the window's title is not listed"; exit 1; }

# Mean brightness of each window, 0 to 100.
light=$(identify -format '%[fx:int(100*mean)]' "$work/shots/$name-adwaita-1.png")
dark=$(identify -format '%[fx:int(100*mean)]' "$work/shots/$name-adwaita-dark-1.png")
echo "brightness: adwaita $light, adwaita-dark $dark"
[ "$light" -ge 70 ] || { echo "FAIL: the light style is not light"; exit 1; }
[ "$dark" -le 35 ] || { echo "FAIL: the dark style is not dark (is adwaita-qt6 installed?)"; exit 1; }
