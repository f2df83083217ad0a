#!/bin/sh
# Generates the benchmark caches once (in $SALVORA_BENCH_DIR, default /tmp/salvora-bench) and runs
# the benchmarks against them. Usage: bench/run.sh [small|large]
set -eu
cd "$(dirname "$0")/.."
size=${1:-large}
dir=${SALVORA_BENCH_DIR:-/tmp/salvora-bench}
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target gen_cache bench_cache bench_cli salvora bench_window bench_agent sv3daemon \
    sv3daemon-agent bench_keep salvora3-keep >/dev/null
case $size in
    small) entries=100000 ;;
    large) entries=1000000 ;;
    *) echo "usage: bench/run.sh [small|large]" >&2; exit 2 ;;
esac
generate() { # generate CACHE [gen_cache options...]
    out=$1
    shift
    if [ ! -d "$out" ]; then
        mkdir -p "$(dirname "$out")"
        echo "generating $entries entries in $out ..."
        build/bin/gen_cache --out "$out" --entries "$entries" --seed 1 "$@"
    fi
}
cache=$dir/$size/.Salvora3Cache
flat=$dir/$size-flat/.Salvora3Cache
generate "$cache"
generate "$flat" --flat
generate "$dir/$size-small-folders/.Salvora3Cache" --small-folders
build/bin/bench_cache "$cache" 3
# The listing on both shapes: a year of large time folders, and many small ones.
build/bin/bench_cli build/bin/salvora 3 "$dir/$size" "$dir/$size-small-folders" || echo "bench_cli: a target was missed"
# The window, offscreen: scans against find, first rows, event-loop gaps, start-up, memory.
build/bin/bench_window --cache "$cache" --flat "$flat" --runs 3
# The daemon's agent on a private session bus: idle CPU, event-loop stalls and SIGTERM-to-exit
# while it shadows 60,000 files and purges 300 days of 3,000 files.
dbus-run-session -- build/bin/bench_agent build/bin/sv3daemon "$dir/agent"
# The preload library: rm -rf kept against plain, deletion churn where nothing is kept, and unlink
# on an unprotected volume (in a folder of the build tree, on the file system it protects).
build/bin/bench_keep build/keep-bench 3
