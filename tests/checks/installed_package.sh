#!/bin/sh
# Installs the build into a directory of its own, moves it, and builds a program of somebody else's
# against it: by the CMake package and by pkg-config.
#   installed_package.sh BUILD_DIR PROGRAM_DIR COMPILER
set -eu
build=$1 program=$2 compiler=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >"$work/log"
mv "$work/first" "$work/prefix"
if [ -e "$work/prefix/bin/cairn" ]; then "$work/prefix/bin/cairn" --help >/dev/null; fi

cp -r "$program" "$work/program"
cd "$work/program"
cmake -G Ninja -S . -B build -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$compiler" >"$work/log"
cmake --build build
build/route_in_a_table "$work/tables-cmake"

config="$(find "$work/prefix" -name MrouteCairn.pc -printf %h)"
export PKG_CONFIG_PATH="$config"
# shellcheck disable=SC2046
"$compiler" -std=c++20 -Wall -Wextra main.cpp -o by_pkg_config $(pkg-config --cflags --libs MrouteCairn)
LD_LIBRARY_PATH="$(pkg-config --variable=libdir MrouteCairn)" ./by_pkg_config "$work/tables-pkgconfig"

if grep -rl "$build" "$work/prefix" --include='*.cmake' --include='*.pc'; then
    echo "the installed package names the build directory"
    exit 1
fi
