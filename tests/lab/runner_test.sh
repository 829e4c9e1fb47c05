#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Proves that lab/run tells the truth: exit statuses, output bytes and arguments
# pass through unchanged, and a guest that crashes, hangs or just ends is a
# failure. Runs on the host: runner_test.sh [BUILD_DIR].
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=${1:-$top/build}
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
export TMPDIR=$work/tmp
mkdir "$TMPDIR"
failures=0

check() { # TEXT CMD...: one claim and the command that holds it true
    local text=$1
    shift
    if "$@"; then
        printf 'ok      %s\n' "$text"
    else
        printf 'FAILED  %s (%s)\n' "$text" "$*"
        failures=$((failures + 1))
    fi
}

run() { # NAME [OPTION...] -- CMD...: leaves NAME.out, NAME.err and NAME.rc in $work
    local name=$1 status=0
    shift
    "$top/lab/run" --build "$build" "$@" >"$work/$name.out" 2>"$work/$name.err" || status=$?
    printf '%s\n' "$status" >"$work/$name.rc"
}
status_is() { [[ $(<"$work/$1.rc") == "$2" ]] || { cat "$work/$1.err"; return 1; }; }
same() { cmp -- "$1" "$2"; }
one_line() { [[ $(grep -c -- "$2" "$work/$1") == 1 ]]; }
has_line() { grep -qx -- "$2" "$work/$1"; }

# Two at a time from here: runs side by side must not disturb each other.
run zero -- true &
run one -- false
wait
check 'exit status 0 passes through' status_is zero 0
check 'exit status 1 passes through' status_is one 1

cat >"$work/bytes.sh" <<'GUEST'
every_byte() {
    local i
    for ((i = 0; i < 256; i++)); do printf "\\x$(printf %02x "$i")"; done
}
every_byte; seq 1 60000; printf 'no newline at the end'
{ printf 'a\r\nb\n\rc\0'; seq 60000 -1 1; } >/dev/stderr
exit 42
GUEST
run bytes -- bash -c "$(<"$work/bytes.sh")" &
# shellcheck disable=SC2016,SC1003 # not to be expanded is the point
words=('' ' two  blanks ' $'line 1\nline 2\n' "it's" '"$HOME" `id` \' '*' $'\t' $'caf\u00e9' --timeout --)
run words -- printf '%s\0' "${words[@]}"
wait
(exec bash -c "$(<"$work/bytes.sh")") >"$work/bytes.want.out" 2>"$work/bytes.want.err" || true
printf '%s\0' "${words[@]}" >"$work/words.want"
check 'exit status 42 passes through' status_is bytes 42
check "standard output: every byte value, $(stat -c %s "$work/bytes.want.out") bytes, none changed" \
    same "$work/bytes.out" "$work/bytes.want.out"
check "standard error: its own $(stat -c %s "$work/bytes.want.err") bytes and nothing else" \
    same "$work/bytes.err" "$work/bytes.want.err"
check 'arguments: empty, blank, quoted, multi-line and option-like ones arrive as given' \
    same "$work/words.out" "$work/words.want"

run missing -- no-such-program &
run signal -- bash -c 'kill -KILL $$'
wait
check 'a command that does not exist is 127' status_is missing 127
check 'a command killed by SIGKILL is 137' status_is signal 137

run orphan -- bash -c 'sleep 1000 & echo started' &
times=()
while IFS= read -r _; do
    times+=("${EPOCHREALTIME/./}")
done < <("$top/lab/run" --build "$build" -- sh -c 'echo first; sleep 4; echo last')
wait
check 'output streams while the command runs' [ "$((${times[1]:-0} - ${times[0]:-0}))" -gt 2000000 ]
check 'a process left behind does not hold the run up' status_is orphan 0
check 'nor hide what was printed' has_line orphan.out started

# shellcheck disable=SC2016 # expanded in the guest
run guest -- bash -c '
    timeout 5 ip -V; xargs ip -V </dev/null; sh -c "ip -V"
    readlink -f /bin/sh
    stat -c "%a %n" /tmp /dev/shm
    for name in 8021q bridge dummy vrf veth nlmon yb_core_sim; do [[ -d /sys/module/$name ]] && echo "module $name"; done
    vconfig add swid0_eth 7 2>/dev/null; vconfig add swid1_eth 4094 2>/dev/null
    cd /sys/class/net; for name in *; do echo "netdev $name"; done
    read -r flags <lo/flags; echo "lo up $((flags & 1))"
    ip netns add other && echo "links in a new namespace: $(ip netns exec other ip -o link | wc -l)"
    echo "$PATH $LD_LIBRARY_PATH"' &
run crash -- sh -c 'echo before; sleep 1; echo c >/proc/sysrq-trigger; sleep 100'
wait
check 'a kernel crash is 125' status_is crash 125
check '... keeps what was printed before' has_line crash.out before
check '... prints the last console lines' one_line crash.err 'Kernel panic - not syncing: sysrq triggered crash'
log=$(sed -n 's/^lab: console log: \(.*\), its last lines:$/\1/p' "$work/crash.err")
check '... keeps the console log' grep -q 'sysrq triggered crash' "$log"
rm -f -- "$log"
check 'ip is iproute2, also through timeout, xargs and sh' \
    [ "$(grep -c '^ip utility, iproute2' "$work/guest.out")" = 3 ]
check 'sh is dash' has_line guest.out /usr/bin/dash
for line in '1777 /tmp' '1777 /dev/shm' 'lo up 1' 'links in a new namespace: 1' 'netdev lo' 'netdev swid0_eth' 'netdev swid1_eth' \
    'netdev swid0_eth.7' 'netdev swid1_eth.4094' 'module 8021q' 'module bridge' 'module dummy' 'module vrf' \
    'module veth' 'module nlmon' 'module yb_core_sim'; do
    check "guest: $line" has_line guest.out "$line"
done
check 'guest: no other netdev' [ "$(grep -c '^netdev ' "$work/guest.out")" = 5 ]
check 'guest: products are found' one_line guest.out '^/opt/ybnet/bin:.* /opt/ybnet/lib$'

run silent -- sh -c 'poweroff -f; sleep 100' &
begin=$SECONDS
run hang --timeout 20 -- sleep infinity
took=$((SECONDS - begin))
wait
check 'a machine that ends without a status is 125' status_is silent 125
check 'a hang is 124' status_is hang 124
check "... after its 20 s (took $took s)" [ "$took" -ge 20 -a "$took" -le 40 ]
for name in silent hang; do
    log=$(sed -n 's/^lab: console log: \(.*\), its last lines:$/\1/p' "$work/$name.err")
    check "... and its console log is kept ($name)" [ -f "$log" ]
    rm -f -- "$log"
done

mkdir "$work/broken" && ln -s /nonexistent/dir "$work/broken/lab"
build=$work/broken run setup -- true
check 'a machine that cannot be set up is 123' status_is setup 123
run usage --no-such-option -- true
check 'wrong usage is 2' status_is usage 2
check 'no temporary file is left' [ -z "$(ls -A "$TMPDIR")" ]

if ((failures)); then
    printf '%d checks failed\n' "$failures"
    exit 1
fi
echo 'all checks hold'
