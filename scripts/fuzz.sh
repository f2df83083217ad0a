#!/bin/sh
# Builds the libFuzzer targets and runs each for a bounded time. Usage: scripts/fuzz.sh [SECONDS]
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Seed: the reference archive {"size": 123456789, "count": 42}.
mkdir -p "$work/typedstream"
printf '%s' \
    040b73747265616d747970656481e8038401408484840c4e5344696374696f6e \
    617279008484084e534f626a65637400858401690292848484084e5353747269 \
    6e67019484012b0473697a658692848484084e534e756d626572008484074e53 \
    56616c7565009484012a848401719b8215cd5b07869284969705636f756e7486 \
    9284989a9a9b2a8686 \
    | xxd -r -p > "$work/typedstream/reference"
test "$(wc -c < "$work/typedstream/reference")" -eq 137
build-fuzz/bin/fuzz_typedstream -max_len=4096 -max_total_time="$seconds" -print_final_stats=1 "$work/typedstream" 2>&1 | tail -4
# Seeds: each job with a plausible target, NUL-separated like argv.
mkdir -p "$work/launcher"
printf 'adminlauncher\0/usr/libexec/salvora3/adminlauncher\0009' > "$work/launcher/own"
printf 'adminlauncher\0/usr/libexec/salvora3/sv3daemon\0002' > "$work/launcher/daemon"
printf 'adminlauncher\0/usr/libexec/salvora3/sv3daemon\0LA\0--flag\0' > "$work/launcher/launch"
build-fuzz/bin/fuzz_launcher_command -max_len=512 -max_total_time="$seconds" -print_final_stats=1 "$work/launcher" 2>&1 | tail -4
# Seeds for the privileged helper's parsers: a settings document, a request, a mount table line.
mkdir -p "$work/privileged"
printf '{\n    "PrefsProtectedDisks": {\n        "5A1F0A3E-0C1D-4E2F-8A9B-0123456789AB": "/mnt/v\\u00e9"\n    },\n    "PrefsRemoveFromCache": 14,\n    "x": [true, false, null, -1.5e3]\n}\n' > "$work/privileged/settings"
printf 'S\001\002\025\000/mnt/v/.Salvora3Cache\016\0002024-05-03/a/b' > "$work/privileged/request"
printf '36 25 8:1 / /mnt/sv3\\040vol rw,relatime shared:1 - ext4 /dev/loop0 rw\n' > "$work/privileged/mountinfo"
build-fuzz/bin/fuzz_privileged -max_len=4096 -max_total_time="$seconds" -print_final_stats=1 "$work/privileged" 2>&1 | tail -4
