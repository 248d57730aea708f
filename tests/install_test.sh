#!/bin/bash
# Installs the build into an empty place and builds the example program with what is there, once
# through CMake and once through pkg-config. Usage: install_test.sh BUILD PROJECT
set -eu
build=$1 project=$2
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
cmake --install "$build" --prefix "$place/usr" >/dev/null

run() { # PROGRAM: must receive nothing, in order
    "$@" "$project/examples/engine.spec" 0.01 | grep -q "engSpeed 0 at 0.000000000 s, 0 updates"
}

cmake -G Ninja -S "$project/tests/consumer" -B "$place/build" -DCMAKE_PREFIX_PATH="$place/usr" \
    -DEXAMPLE="$project/examples/minimal_task.cpp" >/dev/null
cmake --build "$place/build" >/dev/null
run "$place/build/consumer"

export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$place/usr" -name xcp_daq.pc)")
g++ -std=c++20 "$project/examples/minimal_task.cpp" -o "$place/consumer" \
    $(pkg-config --cflags --libs xcp_daq halmor_standin)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir xcp_daq) run "$place/consumer"

"$place/usr/bin/xcp_daq_task" --version | grep -qx "xcp_daq_task 7.0.0"
test -s "$place/usr/share/man/man1/xcp_daq_task.1"
