#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Proves what the simulated switch driver promises: its link kind, its /proc
# files, its control device, and that nonsense and unloading at any moment leave
# the kernel whole. Runs in the lab's guest, with nothing but the driver loaded.
set -euo pipefail
core=/proc/qrn_yb/yb_core
state=/proc/qrn_yb/state
failures=0
checks=0

check() { # TEXT CMD...
    local text=$1 output
    shift
    checks=$((checks + 1))
    if output=$("$@" 2>&1); then
        printf 'ok      %s\n' "$text"
    else
        printf 'FAILED  %s (%s): %s\n' "$text" "$*" "$output"
        failures=$((failures + 1))
    fi
}
not() { ! "$@"; }
is() { [[ $1 == "$2" ]] || { echo "'$1' is not '$2'"; return 1; }; }
refused() { # ERROR CMD...: the command fails and says so
    local error=$1 output
    shift
    if output=$("$@" 2>&1); then return 1; fi
    [[ $output == *"$error"* ]] || { echo "$output"; return 1; }
}
value() { echo "$(<"/sys/class/net/$1/yb_netdev/value1") $(<"/sys/class/net/$1/yb_netdev/value2")"; }
carrier() { echo "$(<"/sys/class/net/$1/carrier")"; } # of a netdev that is up
operstate() { # NAME WANTED: link watch gets there within a second or two
    local try
    for ((try = 0; try < 50; try++)); do
        [[ $(<"/sys/class/net/$1/operstate") != "$2" ]] || return 0
        sleep 0.1
    done
    cat "/sys/class/net/$1/operstate"
    return 1
}
write() { printf '%b' "$1" | dd of="$core" bs=4096 iflag=fullblock conv=notrunc 2>/dev/null; } # one write(2)
state_of() { sed -n "s/^$1 //p" "$state"; }
load() { modprobe yb_core_sim "$@"; }
unload() { rmmod yb_core_sim; }
tool() { yb_core_ioctl_tool "$@"; }
warnings() { dmesg | grep -cE 'WARNING:|BUG:|Oops|general protection|refcount|leaked|unregister_netdevice: waiting' || true; }

echo '-- link kind'
unload && load swids=0,1
for name in swid0_eth swid1_eth; do
    check "$name exists after loading with swids=0,1" test -d "/sys/devices/virtual/net/$name"
    check "$name is a yb_netdev" is "$(yb_netdev_tool show $name)" 'yb_netdev 1:00000000 2:00000000'
done
check 'ip, whose kind has no trailing NUL, makes one' ip link add yb0 type yb_netdev
check 'one made without values has zeros' is "$(value yb0)" '0 0'
check 'a kind without NUL and both values' yb_netdev_tool create yb1 bare 1:07000000 2:feffffff
check 'a kind with NUL and one value' yb_netdev_tool create yb2 nul 2:2a000000
check 'values are in sysfs' is "$(value yb1) $(value yb2)" '7 4294967294 0 42'
check 'values are in IFLA_INFO_DATA' is "$(yb_netdev_tool show yb1)" 'yb_netdev 1:07000000 2:feffffff'
for attribute in 1: 1:07 2:070000 1:0700; do
    check "a short value is refused ($attribute)" refused range yb_netdev_tool create yb9 bare "$attribute"
done
check 'values cannot be written' not bash -c 'echo 1 >/sys/class/net/yb1/yb_netdev/value1'
check 'a name in use is refused' refused 'File exists' ip link add yb1 type yb_netdev
check 'a multicast address is refused' not ip link add yb9 address 01:00:5e:00:00:01 type yb_netdev
check 'a chosen address is kept' bash -c 'ip link add yb9 address 02:00:00:00:00:09 type yb_netdev && ip link show yb9 | grep -q 02:00:00:00:00:09 && ip link del yb9'
check 'addresses are random' not is "$(</sys/class/net/yb1/address)" "$(</sys/class/net/yb2/address)"
ip link set yb1 up
check 'the carrier is on from the start' is "$(carrier yb1)" 1
check '... and so the netdev is operational' operstate yb1 up
check 'its MTU can be changed' ip link set yb1 mtu 9216
check 'the values survive a new name' bash -c 'ip link set yb2 name yb2x && ip link set yb2x name yb2'
check '... there too' is "$(value yb2)" '0 42'

echo '-- VLANs, sending, namespaces'
check 'VLANs stack on it' ip link add link yb1 name yb1.100 type vlan id 100
check 'vconfig makes one too' vconfig add swid0_eth 5
ip link set yb1.100 up
ip addr add 192.0.2.1/24 dev yb1.100
check 'the VLAN is up' operstate yb1.100 up
before=$(</sys/class/net/yb1/statistics/tx_packets)
ping -c 3 -W 1 -w 2 192.0.2.2 >/dev/null 2>&1 || true
check 'what is sent is counted' test "$(</sys/class/net/yb1/statistics/tx_packets)" -gt "$before"
ip netns add ns1
check 'it moves to another namespace' ip link set yb2 netns ns1
check '... with its values' is "$(ip netns exec ns1 cat /sys/class/net/yb2/yb_netdev/value2)" 42

echo '-- oper_dev'
check 'down' write 'oper_dev yb1 down'
check 'the carrier is off' is "$(carrier yb1)" 0
check '... and so the netdev is down' operstate yb1 down
check '... and the VLAN on it' operstate yb1.100 lowerlayerdown
check 'up, with a newline' write 'oper_dev yb1 up\n'
check 'the carrier is on' is "$(carrier yb1)" 1
check '... and the VLAN on it up' operstate yb1.100 up
check 'reading shows the last accepted command' is "$(<$core)" 'oper_dev yb1 up'
check 'appending works' bash -c "echo oper_dev yb1 down >>$core"
check '... and does the same' is "$(carrier yb1)" 0
check 'read and append in one' bash -c "exec 3<>$core && echo oper_dev yb1 up >&3 && read -r line <&3 && [[ \$line == 'oper_dev yb1 up' ]]"
ip netns exec ns1 ip link set yb2 up
check "the writer's namespace need not be the netdev's" write 'oper_dev yb2 down'
check '... the carrier there is off' is "$(ip netns exec ns1 cat /sys/class/net/yb2/carrier)" 0
ip netns add ns2
ip -n ns2 link add yb2 type yb_netdev
ip -n ns2 link set yb2 up
check 'a name two other namespaces have is refused' not write 'oper_dev yb2 up'
ip link add yb2 type dummy
check "a foreign netdev of that name in the writer's is, too" not write 'oper_dev yb2 up'
ip link del yb2
check "the writer's own namespace goes first" ip netns exec ns2 bash -c "echo oper_dev yb2 down >$core"
check '... its netdev is down' is "$(ip netns exec ns2 cat /sys/class/net/yb2/carrier)" 0
write 'oper_dev yb1 up'
ip link add dummy9 type dummy
longest=abcdefghijklmno
ip link add $longest type yb_netdev && ip link set $longest up
check 'the longest name' bash -c "echo oper_dev $longest down >$core"
check '... works' is "$(carrier $longest)" 0
write 'oper_dev yb1 up'
while IFS= read -r text; do
    check "refused: '$text'" refused 'Invalid argument' bash -c "printf '%b' '$text' | dd of=$core bs=4096 iflag=fullblock"
done <<'NONSENSE'
oper_dev yb1 up\n\n
oper_dev yb1 up 
oper_dev  yb1 up
oper_dev yb1  up
 oper_dev yb1 up
oper_dev yb1 UP
oper_dev yb1 upx
oper_dev yb1 u
oper_dev yb1
oper_dev yb1 
oper_dev
oper_dev  up
oper_dev no_such up
oper_dev lo down
oper_dev dummy9 down
oper_dev yb1.100 down
oper_dev yb1 up now
oper_dev yb1 down\0
oper_dev yb1\0 down
oper_dev\tyb1 down
oper_dev ../yb1 down
oper_dev abcdefghijklmnop down
oper_devx yb1 down
OPER_DEV yb1 down
oper_dev yb1 down\r\n
del_dev yb1 down
\n
\0
oper_dev yb1 downoper_dev yb1 downoper_dev yb1 downoper_dev yb1 down
NONSENSE
check 'nothing refused changed the carrier' is "$(carrier yb1)" 1
check 'nor the last command' is "$(<$core)" 'oper_dev yb1 up'

echo '-- control device'
opens=$(state_of opens) ioctls=$(state_of ioctls)
check 'it is a character device' test -c /dev/yb_core0
for command in 7 8; do
    [[ $command == 7 ]] && name=multi_packet_enable || name=blocking_enable
    for argument in 1 0 1; do
        check "command $command sets $name to $argument" tool control $command 0 $argument
        check '... state shows it' is "$(state_of "$name")" $argument
    done
    check "command $command refuses 2" refused EINVAL tool control $command 0 2
    check "command $command refuses 2^32" refused EINVAL tool control $command 0 0x100000000
    check "command $command refuses a reserved bit" refused EINVAL tool control $command 1 0
    check '... unchanged' is "$(state_of "$name")" 1
done
check 'command 55 takes three words' tool words 55 0xffffffff 0xffffffff 0x80000000
check '... state shows them' is "$(state_of vid2ip)" '-1 4294967295 -2147483648'
for address in 0 1 0xffffffff80000000 0xffffffffffffffff; do
    check "command 55 from $address is EFAULT" refused EFAULT tool control 55 0 $address
done
check '... unchanged' is "$(state_of vid2ip)" '-1 4294967295 -2147483648'
for command in 0 1 6 9 54 56 4294967295; do
    check "command $command is EINVAL" refused EINVAL tool control $command 0 0
done
check 'an unreadable control is EFAULT' refused EFAULT tool badpointer
check 'opens and ioctls are counted' is "$(($(state_of opens) - opens)) $(($(state_of ioctls) - ioctls))" '25 25'
for number in 0 0x5401 0x5901 0xc0105902 0xc0105a01; do
    check "ioctl $number is ENOTTY" refused ENOTTY tool raw $number
done
check 'state cannot be written' refused 'Permission denied' setpriv --bounding-set=-all --inh-caps=-all bash -c "echo >$state"
check 'the device can be neither read nor written' bash -c '! read -r -n1 </dev/yb_core0 && ! echo x >/dev/yb_core0'

echo '-- nonsense'
export LC_ALL=C
noise=$(head -c 100000 /dev/urandom | tr -d '\0')
for ((i = 0; i < 4000; i++)); do # bash's own printf: one write(2) each
    printf '%s' "${noise:i*20:RANDOM%64}" >$core || true
done 2>/dev/null
for ((i = 0; i < 2000; i++)); do # one byte off
    text='oper_dev yb1 down' at=$((RANDOM % 17))
    printf '%s' "${text:0:at}${noise:i:1}${text:at+1}" >$core || true
done 2>/dev/null
for ((i = 0; i < 100; i++)); do # with NULs
    head -c $((RANDOM % 64)) /dev/urandom >$core || true
done 2>/dev/null
unset LC_ALL
check '6100 random writes later the driver works' write 'oper_dev yb1 down'
for file in "$core" "$state" /dev/yb_core0 /sys/class/net/yb1/yb_netdev/value1; do
    dd if=/dev/urandom of="$file" bs=64k count=16 conv=notrunc 2>/dev/null || true
done
for ((i = 0; i < 100; i++)); do
    tool control $((RANDOM % 64)) $((RANDOM % 2)) $((RANDOM * RANDOM * RANDOM)) >/dev/null || true
    tool raw $((RANDOM * RANDOM)) >/dev/null || true
done
check '... and after nonsense to every file and 200 ioctls' write 'oper_dev yb1 up'

echo '-- unloading'
exec {held}</dev/yb_core0
check 'not while the control device is open' not unload
exec {held}<&-
exec {held}<>$core
check 'with VLANs on top, netdevs in namespaces and the /proc file open' unload
check '... reading on fails' not cat <&$held
exec {held}<&-
check 'no netdev is left' is "$(ls -d /sys/class/net/{yb,swid}* 2>/dev/null)" ''
check '... in the namespaces neither' is "$(ip -n ns1 -br link | grep -c yb; ip -n ns2 -br link | grep -c yb)" $'0\n0'
check 'no file is left' not ls /proc/qrn_yb /dev/yb_core0
check 'its kind is gone' not grep -q yb_ /proc/kallsyms
check 'asking for the kind loads it again' bash -c 'ip link add yb0 type yb_netdev && [[ -e /sys/class/net/yb0/yb_netdev ]]'
check '... and it unloads' unload
check 'a repeated partition does not load' not load swids=3,3
check 'nor one whose name would not fit' not load swids=4294967295
check '... and leaves nothing behind' not ls -d /proc/qrn_yb /dev/yb_core0 /sys/class/net/swid*
check 'it loads again, without partitions' load
check '... and has none' not ls -d /sys/class/net/swid*
check 'the state starts anew' is "$(<$state)" \
    $'multi_packet_enable 0\nblocking_enable 0\nvid2ip 0 0 0\nopens 0\nioctls 0\nioctls_refused 0'

echo '-- everything at once'
stop=/run/stop
rm -f $stop
churn() { while [[ ! -e $stop ]]; do "$@" || true; done >/dev/null 2>&1; }
links() { # N
    ip link add "c$1" type yb_netdev
    ip link add link "c$1" name "c$1.9" type vlan id 9
    ip link set "c$1" up
    [[ $((RANDOM % 4)) != 0 ]] || ip link set "c$1" netns ns1
    ip link del "c$1" || ip -n ns1 link del "c$1"
}
oper() { for state_word in up down; do echo "oper_dev c$((RANDOM % 2)) $state_word" >$core; done; }
look() { cat $core $state /sys/class/net/c*/yb_netdev/value*; tool control 7 0 1; }
reload() { unload && load swids=0,1; sleep 0.3; }
churn links 0 & churn links 1 & churn oper & churn look & churn reload &
sleep 12
touch $stop
wait
[[ -d /sys/module/yb_core_sim ]] || load
check 'creating, deleting, oper_dev, reading and reloading for 12 s' ip link add last type yb_netdev
check '... the driver works' write 'oper_dev last down'
ip netns del ns1
ip netns del ns2
check 'it unloads' unload
check 'it loads again' load swids=0,1
check 'the kernel log has no warning' is "$(warnings)" 0

printf '%d checks, %d failed\n' "$checks" "$failures"
((failures == 0))
