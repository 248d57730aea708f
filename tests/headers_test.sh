#!/bin/bash
# Every header of the library and the host compiles by itself, with these two folders on the include
# path and no more. Usage: headers_test.sh COMPILER PROJECT
set -eu
cd "$2"
for header in xcp_daq/*.h host/*.h; do
    "$1" -std=c++20 -fsyntax-only -Wall -Wextra -Werror -Ixcp_daq -Ihost -include "$header" -x c++ /dev/null
done
