#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ybnetctl's changing commands on the lab's real kernel: VLANs and ports of the simulated driver in namespaces, link
# states, addresses, a batch. Every dry run is held against what strace(1) sees the real run execute.
set -euo pipefail

failures=0
fail() {
    printf 'FAILED: %s\n' "$*" >&2
    failures=$((failures + 1))
}
# is WHAT TEXT PART: whether a text has a part.
is() {
    [[ $2 == *"$3"* ]] || fail "$1: no \"$3\" in: $2"
}

# becomes WHAT PART COMMAND...: whether its output has the part within ten seconds; the kernel reports links late.
becomes() {
    local what=$1 part=$2 try text
    shift 2
    for ((try = 0; try < 100; try++)); do
        text=$("$@")
        [[ $text == *"$part"* ]] && return
        sleep 0.1
    done
    is "$what" "$text" "$part"
}

ybnetctl hold >/tmp/hold.out &
holder=$!
for ((try = 0; try < 300; try++)); do
    [[ -s /tmp/hold.out ]] && break
    sleep 0.1
done
ip netns add blue
ip netns add red
ip link set swid0_eth up # a VLAN comes up only on a parent that is

# The command lines that a dry run names, in order.
rehearsed() {
    ybnetctl --dry-run "$@" | sed -n 's/^would \(run\|look\): //p'
}
# Runs it for real and prints the command lines that it gave to the shell.
executed() {
    strace -f -qq -s 4096 -e trace=execve -e signal=none -o /tmp/trace ybnetctl "$@" >/tmp/out 2>/tmp/err || {
        fail "$*: $(cat /tmp/err)"
        return 0
    }
    sed -n 's/.*execve("\/bin\/sh", \["sh", "-c", \("--", \)\?"\(.*\)"\], 0x.*/\2/p' /tmp/trace
}
# both COMMAND...: rehearses, then runs it.
both() {
    local named ran before after
    before=$(ip -br link; ip -n blue -br link; md5sum /dev/shm/net_lib_*)
    named=$(rehearsed "$@")
    after=$(ip -br link; ip -n blue -br link; md5sum /dev/shm/net_lib_*)
    [[ $before == "$after" ]] || fail "dry run of $* changed something"
    ran=$(executed "$@")
    [[ $named == "$ran" ]] || fail "$*: named
$named
and ran
$ran"
}

# ---- making them ---------------------------------------------------------------
both interface create vlan 110 --swid 0 --vid 10 --name-format vlan --netns blue --vrf red --rif 5 --vrid 2
is 'the VLAN' "$(ip -n blue -d link show vlan10)" 'vlan protocol 802.1Q id 10 '
both interface create vlan 111 --swid 1 --vid 11 --parent swid0_eth
is 'the VLAN on a parent' "$(ip -d link show swid1_eth.11)" 'swid1_eth.11@swid0_eth'

is 'the request' "$(ybnetctl --dry-run interface create port 101 --name swp1 --value1 1 --value2 0x10100)" \
    'IFLA_INFO_DATA { attribute 1 1 (0x1) attribute 2 65792 (0x10100) }'
both interface create port 101 --name swp1 --value1 1 --value2 0x10100
is 'the port' "$(cat /sys/class/net/swp1/yb_netdev/value1 /sys/class/net/swp1/yb_netdev/value2)" $'1\n65792'
both interface create port-vlan 130 --port swp1 --vid 30
is 'the VLAN of the port' "$(ip -d link show swp1.30)" 'vlan protocol 802.1Q id 30 '
both interface create port 102 --name swp2 --netns blue
is 'the port elsewhere' "$(ip -n blue -d link show swp2)" 'yb_netdev'
both interface create loopback 140 --name loop1 --netns red
is 'the list' "$(ybnetctl interface list)" 'vlan10'

# A failure that leaves a netdev behind: the rename's target is made meanwhile by nobody, the namespace is missing.
if ybnetctl interface create vlan 112 --vid 12 --netns nowhere 2>/tmp/err; then
    fail 'a namespace that is missing was no failure'
fi
is 'the half-made VLAN' "$(cat /tmp/err)" 'was made and exists without a record: nothing is rolled back'
is 'what to do' "$(cat /tmp/err)" 'try: ip link del dev swid0_eth.12'
ip link del swid0_eth.12
is 'the same rehearsed' "$(ybnetctl --dry-run interface create vlan 112 --vid 12 --netns nowhere 2>&1 || true)" \
    'ip link set netns nowhere swid0_eth.12   (which would fail: there is no namespace "nowhere")'

# ---- changing them ---------------------------------------------------------------
ybnetctl interface set 110 --admin up --rif 9
is 'the state in blue' "$(ip -n blue link show vlan10)" ',UP'
ybnetctl interface set 101 --admin up --oper down
becomes 'the oper state' 'NO-CARRIER' ip link show swp1
ybnetctl interface set 101 --oper up
becomes 'the oper state' 'state UP' ip link show swp1
is 'the driver step' "$(ybnetctl --dry-run interface set 101 --oper down)" \
    'would write: oper_dev swp1 down > /proc/qrn_yb/yb_core'
is 'the state after a dry run' "$(ip link show swp1)" 'LOWER_UP'
ybnetctl address add 110 10.0.0.5/24 --label vlan10:1
is 'the address' "$(ip -n blue -o -4 address show dev vlan10)" 'inet 10.0.0.5/32 brd 10.0.0.255 scope global vlan10:1'
ybnetctl address add 110 10.0.1.5/24 --connected
is 'the route' "$(ip -n blue route show dev vlan10)" '10.0.1.0/24 proto kernel scope link src 10.0.1.5'
ybnetctl address del 110 10.0.0.5/24
[[ $(ip -n blue -o -4 address show dev vlan10) != *10.0.0.5* ]] || fail 'the address stayed'
both interface edit 130 --vid 31
is 'what the kernel made of it' "$(cat /tmp/out)" 'swp1.30 still has tag 30'

# ---- removing them ---------------------------------------------------------------
both interface destroy 130
both interface destroy 102 # in blue, where the library alone does not find it
[[ $(ip -n blue -br link) != *swp2* ]] || fail 'swp2 stayed'
both interface destroy 110
both interface destroy-all
is 'what is left' "$(cat /tmp/out)" '2 interfaces removed; loopbacks stay: 1'
both interface destroy 140
is 'the list' "$(ybnetctl --json interface list)" '"interfaces":[]'

# ---- many of them ----------------------------------------------------------------
for ((i = 1; i <= 20; i++)); do
    echo "interface create vlan $i --vid $i --name-format vlan # line $i"
done >/tmp/batch
ybnetctl -b /tmp/batch
[[ $(ip -br link | grep -c '^vlan') == 20 ]] || fail 'not 20 VLANs'
if ybnetctl -b - <<<$'interface destroy 1\ninterface destroy 1' 2>/tmp/err; then
    fail 'a second removal was no failure'
fi
is 'the line' "$(cat /tmp/err)" 'standard input:2: interface 1: no record'
ybnetctl interface destroy-all >/tmp/out
is 'how many' "$(cat /tmp/out)" '19 interfaces removed'

kill "$holder"
wait "$holder" || fail "hold ended with $?"
[[ ! -e /dev/shm/net_lib_ifc && ! -e /dev/shm/net_lib_port ]] || fail 'the databases outlived their last user'
((failures == 0)) || exit 1
echo 'ybnetctl in the lab: everything as rehearsed'
