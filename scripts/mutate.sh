#!/bin/bash
# Mutation testing: applies each mutation of scripts/mutations.txt to the working tree in turn,
# rebuilds what the named suites need, runs those suites and counts which of them fail (kill the
# mutation). The file is put back byte for byte after each one, on Ctrl-C too.
#
# Usage: scripts/mutate.sh [BUILD_DIR]       (default: build-mutate, a tree of its own)
#   MUTATE_ONLY=REGEX    only the mutations whose id matches
#   MUTATE_TIMEOUT=S     per-test timeout in seconds (default 300)
#   MUTATE_JOBS=N        build and test jobs (default 2)
# Run as root so that the suites that need root (mount namespaces, other accounts) run.
set -uo pipefail

# Low priority, so that other builds on the machine keep their share.
if [ -z "${MUTATE_NICED:-}" ]; then
    export MUTATE_NICED=1
    exec nice -n 15 "$0" "$@"
fi

cd "$(dirname "$0")/.."
root=$(pwd)
build=${1:-build-mutate}
case $build in /*) ;; *) build=$root/$build ;; esac
list=$root/scripts/mutations.txt
apply="python3 $root/scripts/mutate_apply.py"
timeout=${MUTATE_TIMEOUT:-300}
jobs=${MUTATE_JOBS:-2}
only=${MUTATE_ONLY:-}

# The shared compiler cache, as every build here uses it.
export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$(dirname "$root")} CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-1}
if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}
    export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER:-ccache}
fi

if ! git diff --quiet -- src; then
    echo "mutate.sh: src/ has uncommitted changes; commit or stash them first" >&2
    exit 2
fi

work=$(mktemp -d)
backup=$work/backup
current=""   # the file that holds a mutation right now, if any

restore() {
    if [ -n "$current" ]; then
        # In place and byte for byte; the new time makes the next build recompile it.
        cat "$backup" >"$current" && touch "$current"
        current=""
    fi
}
finish() {
    restore
    rm -rf "$work"
}
trap finish EXIT
trap 'echo; echo "mutate.sh: interrupted; the source is restored" >&2; exit 130' INT TERM HUP

say() { printf '%s\n' "$*" >&2; }

started=$(date +%s)
if [ ! -f "$build/build.ninja" ]; then
    say "configuring $build"
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DSALVORA_BUILD_BENCH=OFF >"$work/configure.log" 2>&1 || {
        cat "$work/configure.log" >&2
        exit 2
    }
fi
say "building $build"
if ! cmake --build "$build" -j "$jobs" >"$work/build.log" 2>&1; then
    tail -40 "$work/build.log" >&2
    say "mutate.sh: the unmutated tree does not build"
    exit 2
fi
ninja -C "$build" -t targets all 2>/dev/null | sed -n 's/^\([A-Za-z0-9_.+-]*\): phony$/\1/p' |
    sort -u >"$work/targets"

# Test names that a regex selects, one a line.
tests_of() {
    ctest --test-dir "$build" -N -R "$1" 2>/dev/null | sed -n 's/^ *Test *#[0-9]*: *//p'
}

# Runs the suites that REGEX selects; prints the names of those that failed. A suite that fails
# beside others is run again alone and counts only if it fails again: the root suites share
# accounts and mounts, and one can disturb another under load.
run_suites() {
    local log=$build/Testing/Temporary/LastTestsFailed.log name
    rm -f "$log"
    ctest --test-dir "$build" -R "$1" --timeout "$timeout" -j "$jobs" >"$work/ctest.log" 2>&1
    [ -f "$log" ] || return 0
    for name in $(sed 's/^[0-9]*://' "$log"); do
        if ctest --test-dir "$build" -R "^$name\$" --timeout "$timeout" >>"$work/ctest.log" 2>&1; then
            say "  $name failed beside other suites but passed alone: not counted"
        else
            echo "$name"
        fi
    done
}

mapfile -t mutations < <($apply list "$list" | { [ -n "$only" ] && awk -F'\t' -v re="$only" '$1 ~ re' || cat; })
[ ${#mutations[@]} -gt 0 ] || { say "no mutation selected"; exit 2; }

# Suites that fail before any mutation cannot tell us anything: they are left out of the counts.
allregex=$(printf '%s\n' "${mutations[@]}" | cut -f2 | paste -sd'|')
say "running the named suites once without a mutation"
declare -A broken=()
for t in $(run_suites "$allregex"); do broken[$t]=1; done
[ ${#broken[@]} -eq 0 ] || say "failing before any mutation (not counted): ${!broken[*]}"

declare -A kills=() runs=()
killed=0 survived=0 notfound=0 nocompile=0
survivors=() missing=() uncompiled=()
results=$build/mutate-results.txt
: >"$results"
i=0
for entry in "${mutations[@]}"; do
    id=${entry%%$'\t'*}
    regex=${entry#*$'\t'}
    i=$((i + 1))
    t0=$(date +%s)
    outcome=$($apply apply "$list" "$id" "$backup")
    case $outcome in
    applied\ *) current=$root/${outcome#applied } ;;
    *)
        notfound=$((notfound + 1))
        missing+=("$id")
        printf '%-24s not found (%s)\n' "$id" "$outcome" | tee -a "$results" >&2
        continue
        ;;
    esac

    mapfile -t names < <(tests_of "$regex")
    targets=()
    for n in "${names[@]}"; do grep -qxF "$n" "$work/targets" && targets+=("$n"); done
    [ ${#targets[@]} -gt 0 ] || targets=(all)
    if ! cmake --build "$build" -j "$jobs" --target "${targets[@]}" >"$work/build.log" 2>&1; then
        restore
        nocompile=$((nocompile + 1))
        uncompiled+=("$id")
        printf '%-24s did not compile (%s)\n' "$id" "${outcome#applied }" | tee -a "$results" >&2
        continue
    fi
    t1=$(date +%s)
    failed=$(run_suites "$regex")
    restore
    t2=$(date +%s)

    by=()
    for n in "${names[@]}"; do
        [ -n "${broken[$n]:-}" ] && continue
        runs[$n]=$((${runs[$n]:-0} + 1))
        if grep -qxF "$n" <<<"$failed"; then
            kills[$n]=$((${kills[$n]:-0} + 1))
            by+=("$n")
        fi
    done
    if [ ${#by[@]} -gt 0 ]; then
        killed=$((killed + 1))
        verdict="killed by ${by[*]}"
    else
        survived=$((survived + 1))
        survivors+=("$id")
        verdict="SURVIVED (${names[*]})"
    fi
    printf '%-24s %s  [build %ss, tests %ss]\n' "$id" "$verdict" $((t1 - t0)) $((t2 - t1)) |
        tee -a "$results" >&2
    printf '  %d/%d done\n' "$i" "${#mutations[@]}" >&2
done

echo
echo "Mutation testing of $(git rev-parse --short HEAD) ($(git rev-parse --abbrev-ref HEAD)), $(date -u '+%Y-%m-%d %H:%M UTC')"
printf '%-28s %6s %6s\n' suite "run on" killed
for n in $(printf '%s\n' "${!runs[@]}" | sort); do
    printf '%-28s %6d %6d\n' "$n" "${runs[$n]}" "${kills[$n]:-0}"
done
[ ${#broken[@]} -eq 0 ] || echo "failing without a mutation, not counted: ${!broken[*]}"
echo
total=${#mutations[@]}
printf 'mutations %d: killed %d, survived %d, not found %d, did not compile %d\n' \
    "$total" "$killed" "$survived" "$notfound" "$nocompile"
[ ${#survivors[@]} -eq 0 ] || echo "survived: ${survivors[*]}"
[ ${#missing[@]} -eq 0 ] || echo "not found: ${missing[*]}"
[ ${#uncompiled[@]} -eq 0 ] || echo "did not compile: ${uncompiled[*]}"
echo "time: $(( ($(date +%s) - started) / 60 )) min $(( ($(date +%s) - started) % 60 )) s; details in $results"

restore
# The build tree's programs still hold the last mutation each saw: build them back from the source.
cmake --build "$build" -j "$jobs" >"$work/build.log" 2>&1 || say "mutate.sh: the final rebuild failed"
if ! git diff --quiet -- src; then
    echo "mutate.sh: src/ differs from the commit after the run" >&2
    git diff --stat -- src >&2
    exit 1
fi
