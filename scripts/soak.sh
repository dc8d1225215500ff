#!/bin/sh
# The long form of the tests with many processes: each runs for its share of the minutes.
#   soak.sh BUILD_DIR MINUTES
set -eu
build=$1 minutes=$2
case $minutes in '' | *[!0-9.]*) echo "soak: minutes must be a number, got: $minutes" >&2; exit 2 ;; esac
tests=$(ctest --test-dir "$build" -N -R '^(Torture|Crash)\.' | sed -n 's/.*: //p' | grep -c . || true)
[ "$tests" -gt 0 ] || { echo "soak: no tests to run" >&2; exit 2; }
share=$(awk "BEGIN { printf \"%.1f\", $minutes * 60 / 3 }")
echo "== soak: $minutes minutes, $share seconds for each of three long tests"
for filter in Torture.ReadersBeside Torture.ShrinkStorm Crash.KilledAtRandom; do
    CAIRN_SOAK_SECONDS=$share ctest --test-dir "$build" -R "$filter" --timeout 100000 --verbose
done
