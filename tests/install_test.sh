#!/bin/bash
# Installs the build into an empty place and builds the example program with what is there, through
# CMake; a document's commands do so through pkg-config. Usage: install_test.sh BUILD PROJECT
set -eu
build=$1 project=$2
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
cmake --install "$build" --prefix "$place/usr" >/dev/null

cp -r "$project/tests/consumer" "$place"
cp "$project/examples/minimal_task.cpp" "$place/consumer/my_task.cpp"
cmake -G Ninja -S "$place/consumer" -B "$place/build" -DCMAKE_PREFIX_PATH="$place/usr" >/dev/null
cmake --build "$place/build" >/dev/null
"$place/build/my_task" "$project/examples/engine.spec" 0.01 |
    grep -q "engSpeed 0 at 0.000000000 s, 0 updates" # in order, though nothing was sent

readelf -d "$place/usr/bin/xcp_daq_task" | grep -q libmimalloc
"$place/usr/bin/xcp_daq_task" --version | grep -qx "xcp_daq_task 7.0.0"
test -s "$place/usr/share/man/man1/xcp_daq_task.1"
