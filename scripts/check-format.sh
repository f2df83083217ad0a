#!/bin/sh
# Fails when a C++ file differs from .clang-format, and names it. Usage:
#   scripts/check-format.sh            every tracked file
#   scripts/check-format.sh REF        the files changed since REF (e.g. origin/main)
#   scripts/check-format.sh --fix [REF] rewrites them instead
set -eu
cd "$(dirname "$0")/.."
fix=
if [ "${1:-}" = --fix ]; then fix=1; shift; fi
if [ $# -gt 0 ]; then
    files=$(git diff --name-only --diff-filter=d "$1" -- '*.cpp' '*.h')
else
    files=$(git ls-files '*.cpp' '*.h')
fi
[ -n "$files" ] || exit 0
if [ -n "$fix" ]; then
    echo "$files" | xargs clang-format -i
    exit 0
fi
bad=0
for f in $files; do
    if ! clang-format "$f" | cmp -s - "$f"; then
        echo "not formatted: $f (scripts/check-format.sh --fix)"
        bad=1
    fi
done
exit $bad
