#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The bpftrace scripts at work: processes that use the library are watched, and what the scripts print tells who held
# the lock under which command, who waited for it or took it over from the dead, which command failed, and which
# events were handled or lost.
# Needs root; in a network namespace and with a /dev/shm of its own. 77: this kernel has no uprobes.
# usage: bpftrace_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
if [[ ! -e /sys/bus/event_source/devices/uprobe ]]; then
    echo 'NOT RUN: this kernel has no uprobes'
    exit 77
fi
[[ ${3:-} == inside ]] || exec unshare --net --mount "${BASH_SOURCE[0]}" "$1" "$2" inside
build=$1
source_dir=$2
library=$(readlink -f "$build/lib/libybnet.so.1")
mount -t tmpfs none /dev/shm
mount -t tracefs none /sys/kernel/tracing 2>/dev/null || true # bpftrace complains at its end without, no more
work=$(mktemp -d)
tracers=()
finish() {
    ((${#tracers[@]} == 0)) || kill -KILL "${tracers[@]}" 2>/dev/null || true
    wait
    rm -rf "$work"
}
trap finish EXIT

cat >"$work/watched.c" <<'C'
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <ybnet/net_lib.h>
#include <ybnet/net_lib_db.h>

static int holder(int go, int ready) {
    char byte;
    prctl(PR_SET_NAME, "holder");
    yb_net_interface_params_t bridge = {.name = "lo9", .type = YB_L2_INTERFACE_TYPE_LOOPBACK};
    if (yb_net_init(NULL, 3, 0) != 0)
        return 1;
    (void)!read(go, &byte, 1);
    if (yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, 9, &bridge, 1, 0) != 0)
        return 2;
    net_lib_db_interface_lock_acquire();
    (void)!write(ready, "", 1);
    usleep(200000);
    net_lib_db_interface_lock_release();
    (void)!write(ready, "", 1);
    bridge.type = YB_L2_INTERFACE_TYPE_LOOPBACK;
    if (yb_net_interface_set(YB_ACCESS_CMD_CREATE, 10, &bridge) == 0) /* the name is taken */
        return 3;
    return yb_net_interface_set(YB_ACCESS_CMD_DESTROY, 9, &bridge) != 0 || yb_net_deinit() != 0 ? 4 : 0;
}

/* Dies with the lock. */
static int victim(void) {
    prctl(PR_SET_NAME, "victim");
    if (yb_net_init(NULL, 3, 0) == 0)
        net_lib_db_interface_lock_acquire();
    return 0;
}

int main(void) {
    int ready[2], go[2];
    if (pipe(ready) != 0 || pipe(go) != 0)
        return 1;
    const pid_t child = fork();
    if (child == 0)
        _exit(holder(go[0], ready[1]));
    prctl(PR_SET_NAME, "waiter");
    char byte;
    yb_net_sk_t socket = {0};
    yb_net_if_event_t event;
    yb_net_interface_record_t record;
    if (yb_net_init(NULL, 3, 0) != 0 ||
        yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, 0, &socket) != 0)
        return 1;
    (void)!write(go[1], "", 1);
    (void)!read(ready[0], &byte, 1);
    (void)yb_net_interface_params_get(9, &record); /* waits for the holder */
    yb_net_if_event_receive(&socket, &event);      /* the bridge, known by now */
    (void)!read(ready[0], &byte, 1);
    yb_net_set_buffer_size(&socket, 1, 1);
    int status;
    waitpid(child, &status, 0);
    for (int i = 0; i < 8; i++) {
        yb_net_interface_params_t bridge = {.name = "lo11", .type = YB_L2_INTERFACE_TYPE_LOOPBACK};
        yb_net_interface_set(YB_ACCESS_CMD_CREATE, 11, &bridge);
        yb_net_interface_set(YB_ACCESS_CMD_DESTROY, 11, &bridge);
    }
    yb_net_if_event_receive(&socket, &event); /* too many for its buffer: lost */
    yb_net_deinit();
    const pid_t dying = fork();
    if (dying == 0)
        _exit(victim());
    waitpid(dying, NULL, 0);
    yb_net_init(NULL, 3, 0); /* takes the lock over */
    yb_net_deinit();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 5;
}
C
cc -std=gnu11 -Wall -Wextra -Werror -I "$source_dir/include" -o "$work/watched" "$work/watched.c" \
    -L "$build/lib" -Wl,-rpath,"$build/lib" -lybnet -lyb_log -lyb_util -lybd

for script in lock_holders slow_commands link_events; do
    bpftrace -B none "$source_dir/tools/bpftrace/$script.bt" "$library" >"$work/$script" 2>&1 &
    tracers+=($!)
done

# What each script must print, one pattern a line.
expected='lock_holders waiter\[\d+\] waited \d{5,} us for /net_lib_ifc, held by thread \d+
lock_holders holder\[\d+\] held /net_lib_ifc \d{6,} us, command: $
lock_holders holder\[\d+\] held /net_lib_ifc \d+ us, command: ip link add name lo9 type bridge$
lock_holders waiter\[\d+\] took /net_lib_ifc over from dead thread \d+$
slow_commands holder\[\d+\] \d+ us, result 0: ip link add name lo9 type bridge$
slow_commands holder\[\d+\] \d+ us, result 2: ip link add name lo9 type bridge$
link_events waiter\[\d+\] \w+: linux ifindex \d+, system ifindex 9, status 0$
link_events waiter\[\d+\] DROPPED: the kernel had no room for events \(ENOBUFS\)$'
missing() { # PATTERNS
    local script pattern
    while read -r script pattern; do
        grep -qP "^$pattern" "$work/$script" || printf '%s: %s\n' "$script" "$pattern"
    done <<<"$1"
}

# Attaching takes its time and nothing tells when it is done: until then a run is watched by nobody.
for ((round = 0; round < 30; round++)); do
    rm -f /dev/shm/net_lib_* # the victim never unloads
    "$work/watched" 2>"$work/errors" >&2 || { echo "the watched program failed: $?"; cat "$work/errors"; exit 1; }
    [[ -n $(missing "$expected") ]] || break
    sleep 0.5
done

if [[ -n $(missing "$expected") ]]; then
    printf 'FAIL not printed:\n%s\n' "$(missing "$expected")"
    for script in lock_holders slow_commands link_events; do
        printf -- '--- %s\n' "$script"
        head -n 40 "$work/$script"
    done
    exit 1
fi
printf 'ok   %d kinds of line, after %d runs\n' "$(wc -l <<<"$expected")" "$((round + 1))"

# Interrupted, as at a terminal, they print their totals.
totals='lock_holders @waited_us\[/net_lib_ifc, waiter\]
lock_holders @held_us\[/net_lib_ifc, holder\]
slow_commands @took_us\[holder\]
link_events @dropped_by_kernel\[waiter\]
link_events @handled\[waiter,\s'
kill -INT "${tracers[@]}"
for ((round = 0; round < 100; round++)); do
    [[ -n $(missing "$totals") ]] || break
    sleep 0.1
done
[[ -z $(missing "$totals") ]] || { printf 'FAIL no totals:\n%s\n' "$(missing "$totals")"; exit 1; }
echo 'ok   totals at the end'
