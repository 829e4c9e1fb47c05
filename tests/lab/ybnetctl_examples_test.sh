#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Every example in the help of every command of ybnetctl, pasted into a shell of the lab, on a system as the examples
# have it. Each must end with 0.
set -euo pipefail
failures=0
examples=0

await() { # COMMAND...: what must become true within ten seconds
    local try
    for ((try = 0; try < 200; try++)); do
        "$@" && return
        sleep 0.05
    done
    echo "never came: $*" >&2
    exit 1
}
no_holder() { [[ ! -d /proc/$holder ]]; }

holder=
prepare() {
    if [[ $holder ]]; then
        kill "$holder"
        await no_holder
    fi
    ip netns del blue 2>/dev/null || true
    ip netns del red 2>/dev/null || true
    ip -o link | sed -n 's/^[0-9]*: \(swp[^@:]*\|vlan[^@:]*\|swid[0-7]_eth\.[^@:]*\|loop[0-9]*\).*/\1/p' | tac |
        while read -r name; do ip link del dev "$name" 2>/dev/null || true; done
    rm -f /dev/shm/net_lib_* /tmp/hold.out
    ip netns add blue
    ip netns add red
    ip link set dev swid0_eth up
    ybnetctl hold >/tmp/hold.out &
    holder=$!
    disown
    await test -s /tmp/hold.out
    ybnetctl -b - >/dev/null 2>&1 <<'BATCH'
interface create port 101 --name swp1 --value1 1 --value2 0x10100
interface create vlan 110 --swid 0 --vid 10 --name-format vlan --netns blue --vrf red --rif 5 --vrid 2
interface create port-vlan 130 --port swp1 --vid 30
interface create loopback 140 --name loop1 --netns red
port set 0x10001 --name swp1 --log-port 0x10100
port set 0x10002 --name swp2 --log-port 0x10200
port set 0x20001 --name lag5 --log-port 0x10000500 --mlag 7
lag bind 0x10001 --lag 0x10000500
BATCH
    cp /dev/shm/net_lib_* /tmp
}

commands() { # COMMAND...: it and every command below it, one a line
    local name inner
    inner=$(ybnetctl "$@" --help | awk '/^Subcommands:/ {inside = 1; next} /^$/ {inside = 0} inside && /^  [^ ]/ {print $1}')
    echo "$*"
    for name in $inner; do
        commands "$@" "$name"
    done
}

changed=yes
while read -r command; do
    read -ra words <<<"$command"
    while IFS= read -r line; do
        # Lines that only look or rehearse leave the system as it is.
        if [[ $changed && $command != *\ del ]]; then # what del takes away, the command before it has put there
            prepare
            changed=
        fi
        examples=$((examples + 1))
        code=0
        timeout 60 bash -o pipefail -c "$line" >/tmp/out 2>&1 </dev/null || code=$?
        # jq(1) says so of a key that is not there, and ends with 0.
        if [[ $line == *jq* ]] && grep -qx null /tmp/out; then
            code='null of jq'
        fi
        if [[ $code != 0 ]]; then
            printf 'FAILED (%s): %s\n' "$code" "$line"
            sed 's/^/    /' /tmp/out
            failures=$((failures + 1))
        fi
    done < <(ybnetctl "${words[@]}" --help | sed -n '/^Examples:$/,$ s/^  \([^ ].*\)/\1/p')
    case $command in
        interface\ create* | interface\ edit | interface\ destroy* | interface\ set | address* | port\ set | port\ del | \
            lag\ bind | lag\ unbind) changed=yes ;;
    esac
done < <(commands)

printf '%s examples, %s failed\n' "$examples" "$failures"
((examples > 50 && failures == 0))
