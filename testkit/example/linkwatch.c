/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A small daemon: makes one VLAN router interface, sets it up and logs when it
 * goes up or down, by its system ifindex. It knows nothing of the test kit.
 * usage: linkwatch SYS_IFINDEX SWID VLAN
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <ybnet/net_lib.h>

#define NOTICE 7u

static void say(const char *format, uint32_t sys_ifindex, const char *state) {
    (void)yb_log(NOTICE, "linkwatch", format, sys_ifindex, state);
}

/* Events were lost: what was missed is gone, so the state is read anew. */
static void read_state_again(uint32_t sys_ifindex) {
    uint32_t state = YB_NET_IF_STATE_DOWN;
    if (yb_net_interface_state_get(sys_ifindex, &state) == YB_STATUS_SUCCESS)
        say("interface %u is %s, after events were lost", sys_ifindex,
            state == YB_NET_IF_STATE_UP ? "up" : "down");
}

/* Everything that is queued; the descriptor does not block. */
static void receive_events(yb_net_sk_t *sk, int fd, uint32_t sys_ifindex) {
    struct pollfd readable = {.fd = fd, .events = POLLIN};
    int lost = 0;
    while (poll(&readable, 1, 0) > 0) {
        yb_net_if_event_t event = {0};
        if (yb_net_if_event_receive(sk, &event) != YB_STATUS_SUCCESS)
            lost = 1;
        else if (event.sys_ifindex == sys_ifindex && event.event_type == YB_NET_IF_EVENT_LINK_UP)
            say("interface %u is %s", sys_ifindex, "up");
        else if (event.sys_ifindex == sys_ifindex && event.event_type == YB_NET_IF_EVENT_LINK_DOWN)
            say("interface %u is %s", sys_ifindex, "down");
    }
    if (lost)
        read_state_again(sys_ifindex);
}

static int watch(yb_net_sk_t *sk, uint32_t sys_ifindex) {
    sigset_t stop;
    int32_t fd = -1;
    (void)sigemptyset(&stop);
    (void)sigaddset(&stop, SIGTERM);
    (void)sigprocmask(SIG_BLOCK, &stop, NULL);
    const int stopped = signalfd(-1, &stop, SFD_CLOEXEC);
    if (stopped < 0 || yb_net_get_fd(sk, &fd) != YB_STATUS_SUCCESS)
        return 1;
    struct pollfd waited[2] = {{.fd = fd, .events = POLLIN}, {.fd = stopped, .events = POLLIN}};
    say("watching interface %u%s", sys_ifindex, "");
    while (waited[1].revents == 0) {
        if (poll(waited, 2, -1) < 0 && errno != EINTR)
            return 1;
        if (waited[0].revents != 0)
            receive_events(sk, fd, sys_ifindex);
    }
    (void)close(stopped);
    return 0;
}

int main(int argc, char **argv) {
    if (argc != 4) {
        (void)fputs("usage: linkwatch SYS_IFINDEX SWID VLAN\n", stderr);
        return 2;
    }
    const uint32_t sys_ifindex = (uint32_t)strtoul(argv[1], NULL, 10);
    yb_net_interface_params_t params = {.type = YB_L2_INTERFACE_TYPE_VLAN};
    params.by_type.vlan.swid = (uint8_t)strtoul(argv[2], NULL, 10);
    params.by_type.vlan.vlan_id = (uint16_t)strtoul(argv[3], NULL, 10);

    int failed = 1;
    yb_net_sk_t sk = {0};
    if (yb_net_init(NULL, 3, 0) != YB_STATUS_SUCCESS)
        goto stop;
    /* Before the first request, which would take the process id as its port id. */
    if (yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK, &sk) !=
        YB_STATUS_SUCCESS)
        goto stop;
    if (yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, &params, YB_NET_RIF_NONE,
                                  YB_NET_VRID_NONE) != YB_STATUS_SUCCESS)
        goto unregister;
    if (yb_net_interface_state_set(sys_ifindex, YB_NET_IF_STATE_UP) == YB_STATUS_SUCCESS)
        failed = watch(&sk, sys_ifindex);
    if (yb_net_interface_set(YB_ACCESS_CMD_DESTROY, sys_ifindex, NULL) != YB_STATUS_SUCCESS)
        failed = 1;
unregister:
    (void)yb_net_register_net_if_event_group(YB_ACCESS_CMD_DESTROY, YB_NET_IF_EVENT_GROUP_LINK, &sk);
    (void)close(sk.fd);
stop:
    if (yb_net_deinit() != YB_STATUS_SUCCESS)
        failed = 1;
    return failed;
}
