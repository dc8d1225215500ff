#!/bin/sh
# Runs the tests in a build that counts, prints lines and branches of the table code that they reach,
# and fails when these are too few. `scripts/coverage.py --help` tells what counts, and how to list
# what was missed.
#   coverage.sh BUILD_DIR
set -eu
build=$1
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" -j "$(nproc)" --output-on-failure || echo "== some tests failed; counting what ran"
# Once more with every trace level on, which runs what makes the lines.
CAIRN_TRACE='*=3ff' ctest --test-dir "$build" -j "$(nproc)" -R '^(Brisk|SharedMem|Wren|Yarrow)\.' \
    -E 'OfAnyHistory|RandomLoad|AnyPace' >/dev/null ||
    echo "== some tests failed with all trace levels on"
echo "== coverage of the table code"
exec python3 scripts/coverage.py "$build" 'src/(Brisk|BriskCore|SharedMem|Yarrow|Wren)/' 95 90
