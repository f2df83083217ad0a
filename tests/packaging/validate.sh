#!/bin/sh
# Checks installed files with the tools that desktops and software centres use on them.
#   validate.sh desktop|metainfo|manpage STAGE BUILD_DIR
# Exits 77 (skipped) when the tool is missing.
set -eu
what=$1 stage=$2 build=$3
need() { command -v "$1" >/dev/null || { echo "SKIP: $1 is not installed (package $2)"; exit 77; }; }

case $what in
desktop)
    need desktop-file-validate desktop-file-utils
    found=0
    for f in "$stage"/usr/share/applications/*.desktop "$stage"/etc/xdg/autostart/*.desktop; do
        [ -f "$f" ] || continue
        found=$((found + 1))
        # desktop-file-validate reports hints and warnings but fails on errors only.
        out=$(desktop-file-validate "$f" 2>&1)
        [ -z "$out" ] || { echo "$out"; exit 1; }
    done
    [ "$found" -ge 2 ] || { echo "FAIL: only $found desktop entries installed"; exit 1; }
    echo "$found desktop entries valid"
    ;;
metainfo)
    need appstreamcli appstream
    appstreamcli validate --no-net --strict --pedantic "$stage"/usr/share/metainfo/*.metainfo.xml
    ;;
manpage)
    need man man-db
    err=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$stage/usr/share/man/man1/salvora.1.gz" 2>&1 >"$stage.man.txt") || true
    text=$(cat "$stage.man.txt")
    rm -f "$stage.man.txt"
    [ -z "$err" ] || { echo "FAIL: the manual page renders with warnings:"; echo "$err"; exit 1; }
    # Every command of the program is documented.
    missing=0
    for command in $("$build/bin/salvora" --help | sed -n 's/^  salvora \([a-z-]*\).*/\1/p'); do
        case $text in
        *"salvora $command"*) ;;
        *) echo "FAIL: the manual page lacks 'salvora $command'"; missing=1 ;;
        esac
    done
    [ "$missing" = 0 ] || exit 1
    echo "manual page renders cleanly and names every command"
    ;;
*)
    echo "usage: validate.sh desktop|metainfo|manpage STAGE BUILD_DIR" >&2
    exit 2
    ;;
esac
