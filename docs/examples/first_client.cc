// SPDX-License-Identifier: Apache-2.0
//
// Another process of the stack: finds the router interface behind a netdev, which first_client.c made, and follows
// its link until it is up.
#include <cstdio>
#include <net/if.h>
#include <poll.h>
#include <unistd.h>
#include <ybnet/net_lib.h>

namespace {

// The library, started and stopped. A stop is due whatever the start said.
struct library {
    const yb_status_t status = yb_net_init(nullptr, 3, 0);

    library() = default;
    library(const library &) = delete;
    library &operator=(const library &) = delete;
    ~library() {
        (void)yb_net_deinit();
    }
};

// An event socket. The library makes its descriptor; closing it is ours.
struct link_events {
    yb_net_sk_t socket = {};
    const yb_status_t status =
        yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK, &socket);

    link_events() = default;
    link_events(const link_events &) = delete;
    link_events &operator=(const link_events &) = delete;
    ~link_events() {
        close(socket.fd);
    }
};

bool is_up(uint32_t sys_ifindex) {
    uint32_t state = YB_NET_IF_STATE_DOWN;
    return yb_net_interface_state_get(sys_ifindex, &state) == YB_STATUS_SUCCESS &&
           state == YB_NET_IF_STATE_UP;
}

// Whether the next event says that the interface is up.
bool next_event_is_up(link_events &events, uint32_t sys_ifindex) {
    struct pollfd waiting = {events.socket.fd, POLLIN, 0};
    if (poll(&waiting, 1, -1) < 0)
        return false;
    yb_net_if_event_t event = {};
    if (yb_net_if_event_receive(&events.socket, &event) != YB_STATUS_SUCCESS) {
        printf("events were lost\n");
        return is_up(sys_ifindex); // what we missed is gone: look again
    }
    if (event.sys_ifindex != sys_ifindex || event.event_type != YB_NET_IF_EVENT_LINK_UP)
        return false; // another link, or another change
    printf("event: %u is up\n", event.sys_ifindex);
    return true;
}

} // namespace

int main(int argc, char **argv) {
    const char *const netdev = argc == 2 ? argv[1] : "loop1";
    const library started;
    if (started.status != YB_STATUS_SUCCESS)
        return 1;

    // Before the state is read, so that no change falls between the two.
    link_events events;
    if (events.status != YB_STATUS_SUCCESS)
        return 1;

    yb_net_interface_record_t record;
    if (yb_net_interface_params_get_by_linux_ifindex(if_nametoindex(netdev), &record) != YB_STATUS_SUCCESS) {
        printf("%s is no router interface\n", netdev);
        return 1;
    }
    bool up = is_up(record.sys_ifindex);
    printf("%s is system ifindex %u, %s\n", netdev, record.sys_ifindex, up ? "up" : "down");
    fflush(stdout);
    while (!up)
        up = next_event_is_up(events, record.sys_ifindex);
    return 0;
}
