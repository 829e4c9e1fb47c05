#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ybnetctl's audit and monitor on the lab's real kernel: VLANs with their tags and ports of the simulated driver, where
# tests/ybnetctl/audit_test.cc has stand-ins only.
set -euo pipefail

failures=0
# is WHAT TEXT WANTED
is() {
    [[ $2 == "$3" ]] && return
    printf 'FAILED: %s: "%s", not "%s"\n' "$1" "$2" "$3" >&2
    failures=$((failures + 1))
}
# finding SYSIF: what the audit says of a record.
finding() {
    ybnetctl --json audit | sed -n "s/.*\"sys_ifindex\":$1,[^{]*\"finding\":\"\([a-z_]*\)\".*/\1/p"
}

ybnetctl hold >/tmp/hold.out &
holder=$!
for ((try = 0; try < 300; try++)); do
    [[ -s /tmp/hold.out ]] && break
    sleep 0.1
done
ip netns add blue
ybnetctl interface create vlan 110 --swid 0 --vid 10 --name-format vlan --netns blue
ybnetctl interface create port 101 --name swp1 --value1 1 --value2 0x10100
ybnetctl interface create port-vlan 130 --port swp1 --vid 30
ybnetctl interface create loopback 140 --name loop1 --netns blue
ybnetctl audit || is 'the audit of what was just made' "$?" 0

# This kernel keeps a VLAN's tag, so an edit changes the record only.
ybnetctl interface edit 130 --vid 31
is 'a VLAN that kept its tag' "$(finding 130)" kind
is 'what puts it right' "$(ybnetctl audit | grep -o 'ybnetctl interface edit .*')" 'ybnetctl interface edit 130 --vid 30'
is 'the others' "$(finding 110) $(finding 101) $(finding 140)" 'ok ok ok'

# Netdevs without records, as a failure between making and recording leaves them.
vconfig add swid0_eth 77 >/dev/null
ip link add link swp1 name swp1.99 netns blue type vlan id 99
is 'netdevs without a record' \
    "$(ybnetctl audit | grep -o 'ip .*link del dev .*' | sort | tr '\n' ';')" \
    'ip -n blue link del dev swp1.99;ip link del dev swid0_eth.77;'
is 'partition netdevs and records' "$(ybnetctl audit | grep -c 'link del dev swid[01]_eth$')" 0

# An event in blue comes with its system ifindex.
ybnetctl --json monitor --all-netns --count 1 >/tmp/events &
monitor=$!
for ((try = 0; try < 300; try++)); do
    # shellcheck disable=SC2016 # awk's columns
    [[ $(ip netns exec blue awk '$2 == 0 && $4 == "00000001"' /proc/self/net/netlink) ]] && break
    sleep 0.1
done
ip -n blue link set loop1 up
wait "$monitor"
is 'events of the loopback in blue' "$(grep -c '"sys_ifindex":140,.*"namespace":"blue"' /tmp/events)" 1

kill "$holder"
wait "$holder" || true
((failures == 0)) || exit 1
echo 'audit and monitor: all as expected'
