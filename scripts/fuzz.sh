#!/bin/sh
# Runs each fuzz target for some seconds over its corpus; new findings are left below build/fuzz and
# belong into fuzz/corpus once they are understood.
#   fuzz.sh BUILD_DIR SECONDS
set -eu
build=$1 seconds=$2
for target in table_files values attribute_log value_text; do
    printf '== fuzzing %s for %s seconds\n' "$target" "$seconds"
    findings=$build/findings/$target
    mkdir -p "$findings"
    "$build/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=30 -max_len=400 -print_final_stats=1 \
        -artifact_prefix="$findings/" "$findings" "fuzz/corpus/$target"
done
