#!/bin/sh
# Installs the build into a directory of its own, moves it, and builds an agent and a client of
# somebody else's against it: by the CMake package and by pkg-config. The client must hear of the
# agent's route, and of its end.
#   installed_package.sh BUILD_DIR PROGRAM_DIR COMPILER
set -eu
build=$1 program=$2 compiler=$3
work=$(mktemp -d)
agent='' client=''
end() {
    # shellcheck disable=SC2086
    kill $agent $client 2>"$work/log" || true
    rm -rf "$work"
}
trap end EXIT

# Runs AGENT and CLIENT on tables of their own, from the agent's start to its end.
hears() {
    mkfifo "$3.heard"
    "$2" "$3" >"$3.heard" &
    client=$!
    exec 3<"$3.heard"
    "$1" "$3" &
    agent=$!
    read -r line <&3
    [ "$line" = "route (10.1.2.3,232.1.1.1) by eth1" ] || { echo "the client heard: $line"; exit 1; }
    kill "$agent"
    read -r line <&3
    [ "$line" = "gone (10.1.2.3,232.1.1.1) by" ] || { echo "the client heard: $line"; exit 1; }
    kill "$client"
    wait "$client" || true
    exec 3<&-
}

cmake --install "$build" --prefix "$work/first" >"$work/log"
mv "$work/first" "$work/prefix"
if [ -e "$work/prefix/bin/cairn" ]; then "$work/prefix/bin/cairn" --help >/dev/null; fi

cp -r "$program" "$work/program"
cd "$work/program"
cmake -G Ninja -S . -B build -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$compiler" >"$work/log"
cmake --build build
hears build/agent build/client "$work/tables-cmake"

config="$(find "$work/prefix" -name MrouteCairn.pc -printf %h)"
export PKG_CONFIG_PATH="$config"
for program in agent client; do
    # shellcheck disable=SC2046
    "$compiler" -std=c++20 -Wall -Wextra $program.cpp -o "$program-by-pkg-config" $(pkg-config --cflags --libs MrouteCairn)
done
LD_LIBRARY_PATH="$(pkg-config --variable=libdir MrouteCairn)"
export LD_LIBRARY_PATH
hears ./agent-by-pkg-config ./client-by-pkg-config "$work/tables-pkgconfig"

if grep -rl "$build" "$work/prefix" --include='*.cmake' --include='*.pc'; then
    echo "the installed package names the build directory"
    exit 1
fi
