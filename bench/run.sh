#!/bin/sh
# Generates the benchmark caches once (in $SALVORA_BENCH_DIR, default /tmp/salvora-bench) and runs
# the benchmarks against them. Usage: bench/run.sh [small|large]
set -eu
cd "$(dirname "$0")/.."
size=${1:-large}
dir=${SALVORA_BENCH_DIR:-/tmp/salvora-bench}
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target gen_cache bench_cache bench_cli salvora >/dev/null
case $size in
    small) entries=100000 ;;
    large) entries=1000000 ;;
    *) echo "usage: bench/run.sh [small|large]" >&2; exit 2 ;;
esac
cache=$dir/$size/.Salvora3Cache
if [ ! -d "$cache" ]; then
    mkdir -p "$dir/$size"
    echo "generating $entries entries in $cache ..."
    build/bin/gen_cache --out "$cache" --entries "$entries" --seed 1
fi
build/bin/bench_cache "$cache" 3
build/bin/bench_cli build/bin/salvora "$dir/$size" 3
