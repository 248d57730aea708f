#!/bin/bash
# The built library's dynamic symbols against the export list and the host's declarations.
# Usage: exported_symbols_test.sh LIBRARY EXPORT_LIST HOST_HEADER
set -eu
library=$1 export_list=$2 host_header=$3
failed=0

expect() { # TITLE EXPECTED FOUND
    if [ "$2" != "$3" ]; then
        echo "$1 differ (< expected, > found):"
        diff <(echo "$2") <(echo "$3") || true
        failed=1
    fi
}

expect "exported symbols" \
    "$(sed -n '/global:/,/local:/p' "$export_list" | sed -n 's/^ *\([A-Za-z_0-9]*\);.*/\1/p' | sort)" \
    "$(nm -D --defined-only "$library" | awk '{print $3}' | sort)"

expect "weak symbols" \
    "Override_enable Spec_file_line_count" \
    "$(nm -D --defined-only "$library" | awk '$2 ~ /[VWvwu]/ {print $3}' | sort | xargs)"

# Without a version a symbol comes from the process that loads the library.
undefined=$(nm -D --undefined-only "$library" | awk '$1 == "U" && $2 !~ /@/ {print $2}' | sort)
declared=$( { grep -oE '\b[A-Za-z_0-9]+\(' "$host_header" | tr -d '('; echo _ZN13Transport_udp8instanceEv; } | sort -u)
expect "symbols that no host declares" "" "$(comm -23 <(echo "$undefined") <(echo "$declared"))"
[ -n "$undefined" ] || { echo "the host's symbols are not left undefined"; failed=1; }

expect "SONAME" "libapi_xcp_daq.so.7" "$(readelf -d "$library" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')"
expect "needed libraries beyond the standard ones" "" \
    "$(readelf -d "$library" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p' | grep -vE '^(libstdc\+\+|libgcc_s|libc|libm|ld-linux.*)\.so' || true)"
exit $failed
