#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Each library of the reference platform has its soname, exports exactly what its headers declare, needs neither
# libybnet nor another platform library, and only the logging library brings the C++ runtime.
# usage: platform_libraries_test.sh LIBRARY_DIR SOURCE_DIR
set -euo pipefail
library_dir=$1
source_dir=$2
include=$source_dir/include/ybnet/platform
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

dynamic() { # LIBRARY TAG
    readelf -d "$1" | sed -n "s/.*($2).*\[\(.*\)\]/\1/p" | LC_ALL=C sort
}

# Functions and variables that headers declare, comments aside.
declared() { # HEADER...
    perl -0777 -ne 's{/\*.*?\*/}{}gs; s{^\s*#.*$}{}gm;
        print "$1\n" while /^(?:extern\s+\w+|(?!typedef)(?:const\s+)?\w+)\s[\s*]*(\w+)\s*(?=[(;])/gm' "$@" | LC_ALL=C sort
}

examine() { # NAME HEADER...
    local name=$1 library=$library_dir/$1.so.1
    shift
    [[ -r $library ]] || { printf 'no %s\n' "$library" >&2; exit 1; }
    check "$name has the soname $name.so.1" "$name.so.1" "$(dynamic "$library" SONAME)"
    check "$name exports exactly what its headers declare" "$(declared "$@")" \
        "$(readelf --dyn-syms -W "$library" | awk '$7 != "UND" && $7 ~ /^[0-9]+$/ {print $8}' | LC_ALL=C sort)"
    check "$name needs no other library of the stack" '' "$(dynamic "$library" NEEDED | grep -E '^liby' || true)"
}

examine libyb_log "$include/yb_log.h" "$source_dir/platform/log/yb_log_reference.h"
examine libyb_util "$include/yb_util.h"
examine libybd "$include/ybd.h"
for name in libyb_util libybd; do
    check "$name needs libc only" '' "$(dynamic "$library_dir/$name.so.1" NEEDED | grep -v '^libc\.so\.6$' || true)"
done

printf '%d failed\n' "$failures"
((failures == 0))
