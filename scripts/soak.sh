#!/bin/sh
# The long form of the torture tests. What runs for a time shares the minutes; what is counted
# (1,000 kills, 1,000 races, 10,000,000 changes under shadows, 500 bursts of the kernel for each receive
# buffer) and the minute of torture run whole, however few the minutes. Fresh random schedules are
# played for as many minutes more, by all processors.
# Ends with what was counted, and non-zero when anything failed.
#   soak.sh BUILD_DIR MINUTES
set -eu
build=$1 minutes=$2
case $minutes in
'' | . | *[!0-9.]* | *.*.*) echo "soak: minutes must be a number, got: $minutes" >&2; exit 2 ;;
esac
log=$build/soak.log
: >"$log"
failed=0

# soak TEST_PROGRAM TEST SECONDS
soak() {
    printf '== soak: %s, %s seconds\n' "$2" "$3"
    CAIRN_SOAK_SECONDS=$3 "$build/tests/$1" --gtest_filter="*$2*" >"$log.one" 2>&1 || {
        failed=$((failed + 1))
        echo "FAILED: $2" >>"$log"
    }
    cat "$log.one"
    sed -n 's/^counted: //p' "$log.one" >>"$log"
}
# Seconds of a share of the minutes, `least` at least.
share() { awk -v m="$minutes" -v least="$1" 'BEGIN { s = m * 60 / 3; printf "%.0f", s < least ? least : s }'; }

# The schedules of every processor begin at numbers of their own.
soak_schedules() {
    seconds=$(awk -v m="$minutes" 'BEGIN { printf "%.0f", m * 60 }')
    printf '== soak: random schedules, %s seconds\n' "$seconds"
    players=
    for n in $(seq "$(nproc)"); do
        CAIRN_SOAK_SECONDS=$seconds "$build/tests/torture/test_Schedules" >"$log.schedules.$n" 2>&1 &
        players="$players $!"
    done
    n=0
    for player in $players; do
        n=$((n + 1))
        wait "$player" || {
            failed=$((failed + 1))
            echo "FAILED: random schedules" >>"$log"
        }
        cat "$log.schedules.$n"
        sed -n 's/^counted: //p' "$log.schedules.$n" >>"$log"
        rm -f "$log.schedules.$n"
    done
}

soak torture/test_Torture ReadersBesideAWriter "$(share 60)"
soak torture/test_Torture ShrinkStorm "$(share 20)"
soak torture/test_Torture KilledAtRandom "$(share 20)"
soak torture/test_Torture OfTwoWriters 0
soak torture/test_Shadows ShadowsAreExact "$(share 20)"
soak torture/test_Stepped QueueInterleave 0
soak torture/test_Stepped Cut 0
CAIRN_KERNEL_ROUNDS=500 soak cairn/test_CairnKernel EveryBurstEndsInStep 0
soak_schedules

echo "== soak: what was counted"
cat "$log"
rm -f "$log.one"
[ $failed = 0 ] || { echo "soak: $failed of the runs failed" >&2; exit 1; }
