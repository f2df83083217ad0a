#!/bin/sh
# Installs the build tree into a staging folder, as the Debian package does (DESTDIR, prefix /usr),
# and checks what landed there.
#   install-tree.sh install BUILD_DIR STAGE   install (the fixture of the packaging tests)
#   install-tree.sh check BUILD_DIR STAGE     every file in its place with its mode
set -eu
action=$1 build=$2 stage=$3

if [ "$action" = install ]; then
    rm -rf "$stage"
    # A loose umask must not leave writable folders: the launcher refuses to work in one.
    umask 002
    DESTDIR=$stage cmake --install "$build" --prefix /usr >/dev/null
    exit 0
fi

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
mode() { stat -c %a "$1"; }
built() { [ -x "$build/bin/$1" ]; }

expect() { # expect MODES PATH: MODES is one mode or several separated by |
    if [ ! -f "$stage/$2" ] || [ -L "$stage/$2" ]; then fail "$2 is not installed"; return; fi
    case "|$1|" in
    *"|$(mode "$stage/$2")|"*) ;;
    *) fail "$2 has mode $(mode "$stage/$2"), not $1" ;;
    esac
}

# Programs: those of this build, in the places the sibling lookups search.
for p in salvora salvora3-menu salvora3; do
    if built "$p"; then expect 755 "usr/bin/$p"; fi
done
# The launcher and the daemon may be set-user-id already; the window checks and repairs them.
for p in adminlauncher sv3daemon; do
    if built "$p"; then expect "755|4755" "usr/libexec/salvora3/$p"; fi
done
if built sv3daemon-agent; then expect 755 usr/libexec/salvora3/sv3daemon-agent; fi
# The keeping library that `salvora keep on` preloads, under the architecture's library folder.
if [ -f "$build/lib/libsalvora3-keep.so" ]; then
    ls "$stage"/usr/lib/*/salvora3/libsalvora3-keep.so "$stage"/usr/lib/salvora3/libsalvora3-keep.so \
        2>/dev/null | grep -q . || fail "the keeping library is not installed"
    # The session generator that turns `salvora keep on` into LD_PRELOAD while the package is here.
    expect 755 usr/lib/systemd/user-environment-generators/60-salvora3-keep
fi
for p in salvora salvora3-menu adminlauncher; do
    built "$p" || fail "the build has not made $p"
done

for f in "usr/share/salvora3/Salvora 3.rtf" \
         usr/share/applications/salvora3.desktop \
         usr/share/applications/salvora3-menu.desktop \
         usr/share/icons/hicolor/scalable/apps/salvora3.svg \
         usr/share/icons/hicolor/scalable/apps/salvora3-symbolic.svg \
         usr/share/metainfo/org.salvora.salvora3.metainfo.xml \
         usr/share/polkit-1/actions/org.salvora.salvora3.adminlauncher.policy \
         usr/share/polkit-1/actions/org.salvora.salvora3.allow-volume.policy \
         usr/share/man/man1/salvora.1.gz; do
    expect 644 "$f"
done

# Nothing else, in the places a desktop reads; nothing writable by others; no set-user-id,
# set-group-id or sticky bit but on the launcher and the daemon.
find "$stage" -mindepth 1 | while IFS= read -r path; do
    rel=${path#"$stage"/}
    case $rel in
    usr | usr/bin | usr/bin/salvora | usr/bin/salvora3 | usr/bin/salvora3-menu | usr/libexec | \
    usr/libexec/salvora3 | usr/libexec/salvora3/* | usr/share | usr/share/salvora3 | \
    usr/share/salvora3/* | usr/share/applications | usr/share/applications/salvora3*.desktop | \
    usr/share/icons | usr/share/icons/hicolor | usr/share/icons/hicolor/scalable | \
    usr/share/icons/hicolor/scalable/apps | usr/share/icons/hicolor/scalable/apps/salvora3*.svg | \
    usr/share/metainfo | usr/share/metainfo/org.salvora.salvora3.metainfo.xml | usr/share/polkit-1 | \
    usr/share/polkit-1/actions | usr/share/polkit-1/actions/org.salvora.salvora3.* | usr/share/man | \
    usr/share/man/man1 | usr/share/man/man1/salvora.1.gz | usr/lib | usr/lib/systemd | \
    usr/lib/salvora3 | usr/lib/salvora3/libsalvora3-keep.so | usr/lib/*-linux-gnu* | \
    usr/lib/*-linux-gnu*/salvora3 | usr/lib/*-linux-gnu*/salvora3/libsalvora3-keep.so | \
    usr/lib/systemd/user | usr/lib/systemd/user/*.service | usr/lib/systemd/user-environment-generators | \
    usr/lib/systemd/user-environment-generators/60-salvora3-keep | etc | etc/xdg | etc/xdg/autostart | \
    etc/xdg/autostart/*.desktop) ;;
    *) echo "FAIL: unexpected file $rel" ;;
    esac
    if [ -d "$path" ] && [ "$(mode "$path")" != 755 ]; then echo "FAIL: folder $rel has mode $(mode "$path")"; fi
    if [ -f "$path" ] && [ -n "$(find "$path" -perm /022)" ]; then echo "FAIL: $rel is writable by others"; fi
    case $rel in
    usr/libexec/salvora3/adminlauncher | usr/libexec/salvora3/sv3daemon) ;;
    *) if [ -n "$(find "$path" -prune -perm /7000)" ]; then echo "FAIL: $rel has mode $(mode "$path")"; fi ;;
    esac
    if [ -L "$path" ]; then echo "FAIL: $rel is a symbolic link"; fi
done > "$stage.problems"
while IFS= read -r line; do fail "${line#FAIL: }"; done < "$stage.problems"
rm -f "$stage.problems"

# Every program named by an entry, a unit or the polkit action is installed, unless this build
# does not make it yet.
named() { # named FILE WHAT PROGRAM
    case $3 in
    /usr/*) ;;
    *) fail "$1: $2 $3 is not an installed path under /usr"; return ;;
    esac
    if [ ! -x "$stage$3" ] && built "$(basename "$3")"; then fail "$1: $2 $3 is not installed"; fi
}
for f in "$stage"/usr/share/applications/*.desktop "$stage"/etc/xdg/autostart/*.desktop; do
    [ -f "$f" ] || continue
    for key in Exec TryExec; do
        value=$(sed -n "s/^$key=//p" "$f" | head -n 1)
        [ -n "$value" ] && named "${f#"$stage"/}" "$key" "${value%% *}"
    done
done
for f in "$stage"/usr/lib/systemd/user/*.service; do
    [ -f "$f" ] || continue
    value=$(sed -n 's/^ExecStart=[-@:+!]*//p' "$f" | head -n 1)
    named "${f#"$stage"/}" ExecStart "${value%% *}"
done
for action in adminlauncher:adminlauncher allow-volume:sv3daemon; do
    policy=$stage/usr/share/polkit-1/actions/org.salvora.salvora3.${action%%:*}.policy
    value=$(sed -n 's|.*"org.freedesktop.policykit.exec.path">\(.*\)</annotate>.*|\1|p' "$policy")
    [ "$value" = "/usr/libexec/salvora3/${action#*:}" ] || fail "the polkit action ${action%%:*} names '$value'"
done

# The help document is RTF that a word processor opens: the header, plain ASCII (other
# characters are \u escapes), and braces that close.
rtf="$stage/usr/share/salvora3/Salvora 3.rtf"
head -c 6 "$rtf" | grep -q '^{\\rtf1' || fail "the help document does not start with {\\rtf1"
if LC_ALL=C grep -q '[^[:print:][:space:]]' "$rtf"; then fail "the help document has non-ASCII bytes"; fi
balance=$(sed -e 's/\\\\//g' -e 's/\\[{}]//g' "$rtf" | tr -cd '{}' |
    awk '{ for (i = 1; i <= length($0); i++) { d += substr($0, i, 1) == "{" ? 1 : -1; if (d < 0) bad = 1 } }
         END { print (bad || d) ? "unbalanced" : "ok" }')
[ "$balance" = ok ] || fail "the help document's braces are unbalanced"
gzip -t "$stage/usr/share/man/man1/salvora.1.gz" || fail "the manual page is not a valid gzip file"

[ "$failures" = 0 ] || { echo "$failures problem(s) in the installed tree $stage"; exit 1; }
echo "installed tree $stage: every file in its place"
