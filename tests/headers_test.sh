#!/bin/bash
# Every header compiles by itself: those of the library and the host with these two folders on the
# include path and no more, those of the other rooms with the project's root as well. And every room
# includes only what it may know. Usage: headers_test.sh COMPILER PROJECT
set -eu
compiler=$1
cd "$2"
failed=0

stand_alone() { # INCLUDE_PATH HEADER...
    local path=$1
    shift
    # shellcheck disable=SC2086
    printf '%s\n' "$@" | xargs -P 2 -I HEADER "$compiler" -std=c++20 -fsyntax-only -Wall -Wextra \
        -Werror $path -include HEADER -x c++ /dev/null || failed=1
}
stand_alone "-Ixcp_daq -Ihost" xcp_daq/*.h host/*.h
stand_alone "-I. -Ixcp_daq -Ihost" xcp/*.h xcp_master/*.h io/*.h a2l/*.h simulated_slave/*.h \
    host/standin/*.h task/*.h task/*/*.h

# A name without a folder is of the same folder, or of the public headers of library and host.
knows() { # ROOM OTHERS
    local found
    found=$(grep -rnE '#include "' --include='*.h' --include='*.cpp' "$1" |
        grep -vE "#include \"(($2)/)?[^/\"]*\"" || true)
    [ -z "$found" ] || { echo "$1 may not know:"$'\n'"$found"; failed=1; }
}
knows xcp xcp
knows io io
knows a2l io
knows xcp_master xcp
knows simulated_slave 'xcp|a2l|io'
knows host io
knows xcp_daq xcp
knows task 'task|task/(configuration|sources|output)|xcp|xcp_master|a2l|simulated_slave|io|host/standin'
knows examples 'io|host/standin'

private=$(ls xcp_daq/*.h | grep -vFf <(grep -oE 'xcp_daq/[a-z_]+\.h' cmake/install.cmake) |
    sed 's|.*/||' | paste -sd '|')
[ -n "$private" ]
found=$(grep -rnE "#include \"(.*/)?($private)\"" io a2l xcp xcp_master simulated_slave host task examples || true)
[ -z "$found" ] || { echo "private headers of the library:"$'\n'"$found"; failed=1; }
exit $failed
