#!/bin/sh
# Screenshots of a Salvora 3 program on a virtual display (Xvfb), once per Qt style: Adwaita
# (light) and Adwaita-Dark unless told otherwise.
#
# Usage: scripts/screenshots.sh [OPTIONS] OUTPUT_FOLDER [PROGRAM [ARGUMENTS...]]
#   PROGRAM            default: the window, build/bin/salvora3
#   --styles "A B"     Qt styles to use, default "adwaita adwaita-dark"
#   --scale N          device pixel ratio (QT_SCALE_FACTOR), to see high-DPI rendering; default 1
#   --size WxH         screen size, default 1280x800
#   --delay SECONDS    wait after the first window shows, for start-up work; default 3
#   --keys "K..."      keys (xdotool names) typed into the first window after the delay
#   --bus ADDRESS      run the program on this session bus instead of a private one
#
# For each style it writes OUTPUT_FOLDER/NAME-STYLE.png (the whole screen) and
# OUTPUT_FOLDER/NAME-STYLE-N.png for each window shown (N from 1, bottom to top), where NAME is the
# program's file name, and prints one line per file with the window's title. The program runs with
# the caller's HOME and settings, on a private session bus unless given one, so that it never
# talks to the programs of the caller's desktop session. SALVORA_SKIP_APT=1 skips installing the
# packages it needs.
set -eu
cd "$(dirname "$0")/.."

styles="adwaita adwaita-dark"
scale=1
size=1280x800
delay=3
keys=''
bus=''
while [ $# -gt 0 ]; do
    case $1 in
    --styles) styles=$2; shift 2 ;;
    --scale) scale=$2; shift 2 ;;
    --size) size=$2; shift 2 ;;
    --delay) delay=$2; shift 2 ;;
    --keys) keys=$2; shift 2 ;;
    --bus) bus=$2; shift 2 ;;
    --) shift; break ;;
    -*) echo "screenshots.sh: unknown option $1" >&2; exit 2 ;;
    *) break ;;
    esac
done
[ $# -ge 1 ] || { sed -n '5,19s/^# \{0,1\}//p' "$0" >&2; exit 2; }
out=$1
shift
if [ $# -ge 1 ]; then program=$1; shift; else program=build/bin/salvora3; fi
case $program in */*) ;; *) program=$(command -v "$program" || echo "$program") ;; esac
[ -x "$program" ] || { echo "screenshots.sh: $program is not a program (build it first)" >&2; exit 1; }
name=$(basename "$program")

scripts/deps.sh
for tool in Xvfb xwininfo import dbus-daemon ${keys:+xdotool}; do
    command -v "$tool" >/dev/null || { echo "screenshots.sh: $tool is missing" >&2; exit 1; }
done

mkdir -p "$out"
work=$(mktemp -d)
xvfb_pid='' bus_pid='' program_pid=''
# Only what this script started is stopped, by process id.
stop() {
    for pid in $program_pid $bus_pid $xvfb_pid; do
        if kill "$pid" 2>/dev/null; then wait "$pid" 2>/dev/null || true; fi
    done
    program_pid='' bus_pid='' xvfb_pid=''
}
trap 'stop; rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

# Waits up to $2 tenths of a second for the file $1 to hold a line.
wait_for_line() {
    n=0
    while [ ! -s "$1" ] && [ "$n" -lt "$2" ]; do sleep 0.1; n=$((n + 1)); done
    [ -s "$1" ]
}

# The top-level windows that are shown and larger than a pixel, bottom to top.
shown_windows() {
    xwininfo -root -children 2>/dev/null | sed -n 's/^ *\(0x[0-9a-f]*\) .*/\1/p' | while read -r id; do
        info=$(xwininfo -id "$id" 2>/dev/null) || continue
        case $info in *"Map State: IsViewable"*) ;; *) continue ;; esac
        width=$(printf '%s\n' "$info" | sed -n 's/^ *Width: //p')
        [ "${width:-0}" -gt 1 ] && echo "$id"
    done
}

export XDG_RUNTIME_DIR="$work/runtime"
mkdir -m 700 "$XDG_RUNTIME_DIR"
status=0
for style in $styles; do
    rm -f "$work/display" "$work/bus"
    Xvfb -displayfd 3 -screen 0 "${size}x24" -nolisten tcp -noreset 3>"$work/display" 2>"$work/xvfb.log" &
    xvfb_pid=$!
    wait_for_line "$work/display" 100 || { cat "$work/xvfb.log" >&2; echo "screenshots.sh: Xvfb did not start" >&2; exit 1; }
    DISPLAY=":$(head -n 1 "$work/display")"
    export DISPLAY
    if [ -n "$bus" ]; then
        echo "$bus" >"$work/bus"
    else
        dbus-daemon --session --nofork --nopidfile --print-address=3 3>"$work/bus" >/dev/null 2>&1 &
        bus_pid=$!
        wait_for_line "$work/bus" 100 || { echo "screenshots.sh: no session bus" >&2; exit 1; }
    fi

    # GNOME's settings: the Adwaita icon theme for the toolbar, the style by name.
    DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/bus") QT_QPA_PLATFORM=xcb XDG_CURRENT_DESKTOP=GNOME \
        QT_QPA_PLATFORMTHEME='' QT_STYLE_OVERRIDE=$style QT_SCALE_FACTOR=$scale \
        "$program" "$@" >"$work/program.log" 2>&1 &
    program_pid=$!

    n=0
    while [ -z "$(shown_windows)" ] && [ "$n" -lt 200 ] && kill -0 "$program_pid" 2>/dev/null; do
        sleep 0.1
        n=$((n + 1))
    done
    if [ -z "$(shown_windows)" ]; then
        cat "$work/program.log" >&2
        echo "screenshots.sh: $name showed no window with style $style" >&2
        status=1
        stop
        continue
    fi
    sleep "$delay"
    if [ -n "$keys" ]; then
        # No window manager here: the focus is given by hand, the keys typed through XTEST.
        # shellcheck disable=SC2086
        xdotool windowfocus --sync "$(shown_windows | head -n 1)" key $keys
        sleep 1
    fi
    if ! kill -0 "$program_pid" 2>/dev/null; then
        cat "$work/program.log" >&2
        echo "screenshots.sh: $name ended before its screenshot with style $style" >&2
        status=1
    fi

    import -window root "$out/$name-$style.png"
    echo "$out/$name-$style.png: the screen"
    i=0
    for id in $(shown_windows); do
        i=$((i + 1))
        title=$(xwininfo -id "$id" | sed -n 's/^xwininfo: Window id: [^ ]* //p')
        import -window "$id" "$out/$name-$style-$i.png"
        echo "$out/$name-$style-$i.png: $title"
    done
    stop
done
exit "$status"
