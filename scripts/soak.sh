#!/bin/sh
# The long form of the tests with many processes: each runs for its share of the minutes.
#   soak.sh BUILD_DIR MINUTES
set -eu
build=$1 minutes=$2
case $minutes in '' | *[!0-9.]*) echo "soak: minutes must be a number, got: $minutes" >&2; exit 2 ;; esac
share=$(awk "BEGIN { printf \"%.1f\", $minutes * 60 / 3 }")
for filter in ReadersBesideAWriter ShrinkStorm KilledAtRandom OfTwoWriters; do
    printf '== soak: %s, %s seconds\n' "$filter" "$share"
    CAIRN_SOAK_SECONDS=$share "$build/tests/torture/test_Torture" --gtest_filter="*$filter*"
done
