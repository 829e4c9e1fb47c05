#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What a process gets when it loads libybnet.so.1: exactly the documented names, two libnl libraries and libc
# by name, the platform left open, and no way to the heap but free().
# usage: library_test.sh LIBRARY SOURCE_DIR
set -euo pipefail
library=$1
source_dir=$2
failures=0

check() { # WHAT EXPECTED ACTUAL
    if [[ $2 == "$3" ]]; then
        printf 'ok   %s\n' "$1"
    else
        printf 'FAIL %s\n' "$1"
        diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") | sed 's/^/     /' || true
        failures=$((failures + 1))
    fi
}

# Names of the defined symbols, all or of the types in a pattern (T: function).
defined() { nm -D --defined-only "$library" | awk -v "types=${1:-.}" '$2 ~ types {print $3}' | LC_ALL=C sort; }

# The functions are those that the public headers declare; the variables are listed here.
declared=$(sed -e 's://.*$::' "$source_dir"/include/ybnet/net_lib.h "$source_dir"/include/ybnet/net_lib_db.h \
    "$source_dir"/include/ybnet/yb_net_rtnl.h |
    perl -0777 -pe 's{/\*.*?\*/}{}gs; s{^\s*#.*(\\\n.*)*$}{}gm' |
    grep -oP '\b(yb_net_\w+|net_lib_\w+|addattr\w*)(?=\()' | LC_ALL=C sort -u)
check 'exports exactly the functions that the headers declare' "$declared" "$(defined T)"
check 'exports exactly the documented variables' \
    $'hwd_rif_internal_ops\nrif_l2_attributes_print_cb\nrouter_interfaces\nrth' \
    "$(defined '[^T]')"
check 'lists in its export map what it exports' \
    "$(grep -oP '^\s+\K\w+(?=;)' "$source_dir/net_lib/libybnet.map" | LC_ALL=C sort)" "$(defined)"

check 'has the soname libybnet.so.1' 'libybnet.so.1' \
    "$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')"
check 'needs libnl-3, libnl-genl-3 and libc, not libstdc++' $'libc.so.6\nlibnl-3.so.200\nlibnl-genl-3.so.200' \
    "$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | LC_ALL=C sort)"
check 'binds no symbol to itself (-Bsymbolic)' '' "$(readelf -d "$library" | grep -i symbolic || true)"

undefined=$(nm -D --undefined-only "$library" | awk '{print $2}' | LC_ALL=C sort)
check 'leaves every platform function that it calls to the process' \
    "$(grep -E '^(yb_|ybd_|crc_16|g_yb_)' <<<"$undefined")" \
    "$(grep -vE '@|^(_ITM_|__gmon_start__|nl)' <<<"$undefined")"
check 'calls two functions of libnl, on sockets that it is given' $'nl_socket_get_fd\nnl_socket_set_buffer_size' \
    "$(grep -E '^(nl|genl)' <<<"$undefined" | sed 's/@.*//')"
check 'calls no allocator and no C++ runtime' '' \
    "$(grep -E '^(malloc|calloc|realloc|reallocarray|aligned_alloc|posix_memalign|strdup|strndup|asprintf|vasprintf|_Z)' \
        <<<"$undefined" || true)"

printf '%d failed\n' "$failures"
((failures == 0))
