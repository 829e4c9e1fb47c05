#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The library has exactly the probes that docs/probes.md lists, with as many arguments; and the bpftrace scripts
# are accepted against it. A build without probes must have none at all.
# usage: probes_test.sh LIBRARY SOURCE_DIR ON|OFF
set -euo pipefail
library=$1
source_dir=$2
with_probes=$3
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

# "provider name arguments" of every probe, each once: inlining repeats a probe, and every repetition counts.
probes_of() { # LIBRARY
    readelf -n "$1" | awk '
        $1 == "Provider:" { provider = $2 }
        $1 == "Name:" { name = $2 }
        $1 == "Arguments:" { print provider, name, NF - 1 }' | LC_ALL=C sort -u
}

# The same from the table: | `name(argument, argument)` | ...
documented() {
    perl -ne 'if (/^\| `(\w+)\(([^)]*)\)` \|/) { my @arguments = split /,/, $2; print "ybnet $1 ", scalar @arguments, "\n" }' \
        "$source_dir/docs/probes.md" | LC_ALL=C sort
}

if [[ $with_probes != ON ]]; then
    check 'a build without probes has none' '' "$(probes_of "$library")"
    exit "$failures"
fi
check 'has the probes of docs/probes.md, with their arguments' "$(documented)" "$(probes_of "$library")"
check 'needs no semaphore: every probe costs a nop' '0x0000000000000000' \
    "$(readelf -n "$library" | grep -oP 'Semaphore: \K\w+' | sort -u)"

# bpftrace -d goes as far as the code to load, without loading it.
for script in "$source_dir"/tools/bpftrace/*.bt; do
    output=$(bpftrace -d "$script" "$library" 2>&1) && accepted=yes || accepted=no
    check "bpftrace accepts ${script##*/}" yes "$accepted"
    [[ $accepted == yes ]] || grep -A3 'ERROR' <<<"$output" || true
    used=$(sed -n 's/^usdt:.1:ybnet:\(\w*\).*/\1/p' "$script" | LC_ALL=C sort -u)
    check "${script##*/} uses documented probes only" '' \
        "$(LC_ALL=C comm -23 <(printf '%s\n' "$used") <(documented | cut -d' ' -f2))"
done

printf '%d failed\n' "$failures"
((failures == 0))
