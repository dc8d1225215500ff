#!/bin/sh
# Runs the tests in a build that counts, then prints lines and branches of the table code.
#   coverage.sh BUILD_DIR
set -eu
build=$1
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" -j "$(nproc)" --output-on-failure || echo "== some tests failed; counting what ran"
echo "== coverage of the table code"
gcovr --root . --object-directory "$build" --exclude-throw-branches --exclude-unreachable-branches \
    --filter 'src/(Brisk|BriskCore|SharedMem|Yarrow|Wren)/' --txt --sort-percentage "$build"
gcovr --root . --object-directory "$build" --exclude-throw-branches --exclude-unreachable-branches \
    --filter 'src/(Brisk|BriskCore)/' --print-summary "$build" | tail -2
