// SPDX-License-Identifier: Apache-2.0
//
// See events_demo.h. Watcher and actor go in step, so that each event is printed
// below what caused it: a line down the actor's standard input starts its next
// step.
#include "tools/demo/events_demo.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <poll.h>
#include <unistd.h>

#include "tools/demo/transcript.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

namespace {

constexpr uint32_t port = 101;
constexpr uint32_t vlan = 110;
constexpr const char *port_name = "swp1";
constexpr const char *vlan_name = "swid0_eth.10";

void print_log_line(uint32_t, const char *, const char *message) {
    printf("    log: %s%s", message, message[strlen(message) - 1] == '\n' ? "" : "\n");
}

const char *event_name(uint32_t type) {
    const char *const names[] = {"none", "down", "up", "change", "deleted"};
    return type < sizeof(names) / sizeof(names[0]) ? names[type] : "?";
}

// ---- The watcher

class watcher {
  public:
    watcher() {
        tell(YB_STATUS_SUCCESS,
             yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK, &socket_),
             "an event socket");
    }
    ~watcher() {
        int32_t fd = -1;
        (void)yb_net_get_fd(&socket_, &fd);
        (void)yb_net_register_net_if_event_group(YB_ACCESS_CMD_DESTROY, YB_NET_IF_EVENT_GROUP_LINK, &socket_);
        if (fd >= 0)
            close(fd);
    }
    watcher(const watcher &) = delete;
    watcher &operator=(const watcher &) = delete;

    // Takes in, unshown, what is there already.
    void skip() {
        yb_net_if_event_t event = {};
        while (next(0, &event)) {
        }
    }

    // Shows events of recorded interfaces until the expected one has come, and the condition holds then: a
    // change may still be an earlier step's. A surprise when it does not come.
    void expect(
        uint32_t type, uint32_t sys_ifindex, const std::function<bool()> &condition = [] { return true; }) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        for (;;) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            yb_net_if_event_t event = {};
            if (left.count() <= 0 || !next(static_cast<int>(left.count()), &event)) {
                printf("    expected %s of %u within 5 seconds\n", event_name(type), sys_ifindex);
                surprises++;
                return;
            }
            if (event.sys_ifindex == 0)
                continue; // a netdev that is not the library's
            printf("    event: %-7s of system ifindex %u\n", event_name(event.event_type), event.sys_ifindex);
            (void)fflush(stdout); // the other process writes here too
            if (event.event_type == type && event.sys_ifindex == sys_ifindex && condition())
                return;
        }
    }

  private:
    bool next(int milliseconds, yb_net_if_event_t *event) {
        int32_t fd = -1;
        if (yb_net_get_fd(&socket_, &fd) != YB_STATUS_SUCCESS)
            return false;
        struct pollfd waiting = {fd, POLLIN, 0};
        return poll(&waiting, 1, milliseconds) == 1 &&
               yb_net_if_event_receive(&socket_, event) == YB_STATUS_SUCCESS;
    }

    yb_net_sk_t socket_ = {};
};

void make_interfaces() {
    run("ip link set dev swid0_eth up");
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_PORT;
    (void)snprintf(params.name, sizeof(params.name), "%s", port_name);
    tell(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_CREATE, port, &params), "CREATE %u PORT %s",
         port, port_name);
    params = {};
    params.type = YB_L2_INTERFACE_TYPE_VLAN;
    params.by_type.vlan.vlan_id = 10;
    tell(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_CREATE, vlan, &params), "CREATE %u VLAN %s",
         vlan, params.name);
}

void watch(watcher *events, FILE *actor) {
    const auto next_step = [actor] {
        (void)fputc('\n', actor);
        (void)fflush(actor);
    };
    const std::string carrier_file = std::string("/sys/class/net/") + port_name + "/carrier";
    const auto carrier_is = [&carrier_file](char expected) {
        return std::ifstream(carrier_file).get() == expected;
    };
    const auto expect_carrier = [&](char expected) {
        events->expect(YB_NET_IF_EVENT_LINK_CHANGE, port, [&] { return carrier_is(expected); });
        run(std::string("grep -H ") + expected + " " + carrier_file);
    };
    next_step();
    events->expect(YB_NET_IF_EVENT_LINK_UP, port);
    next_step();
    events->expect(YB_NET_IF_EVENT_LINK_UP, vlan);
    next_step(); // an address is no link event; the next one says that it was added
    next_step();
    expect_carrier('0');
    run(std::string("ip -o -4 addr show dev ") + vlan_name + " | grep -o 'inet 10.0.0.5.*vlan10:1'");
    next_step();
    expect_carrier('1');
    next_step();
    events->expect(YB_NET_IF_EVENT_LINK_DOWN, vlan);
    next_step();
    events->expect(YB_NET_IF_EVENT_LINK_DELETED, vlan);
}

// ---- The actor

// Waits for its turn and announces what comes next; false when there is no next turn.
bool turn(const char *what) {
    if (getchar() != '\n')
        return false;
    printf("  another process: %s\n", what);
    (void)fflush(stdout);
    return true;
}

template <typename call_t> void step(const char *what, call_t call) {
    if (!turn(what)) {
        surprises++;
        return;
    }
    const yb_status_t status = call();
    if (status != YB_STATUS_SUCCESS)
        tell(YB_STATUS_SUCCESS, status, "  %s", what);
}

yb_status_t add_alias() {
    yb_ip_addr_t address = {};
    yb_ip_addr_t prefix = {};
    address.version = prefix.version = YB_IP_VERSION_IPV4;
    address.address.ipv4 = inet_addr("10.0.0.5");
    prefix.address.ipv4_prefix.addr = inet_addr("10.0.0.0");
    prefix.address.ipv4_prefix.mask = inet_addr("255.255.255.0");
    return yb_net_virtual_net_if_alias_set(YB_ACCESS_CMD_ADD, vlan, "vlan10:1", &address, &prefix);
}

} // namespace

void play_events(const std::string &self) {
    heading("link events: this process watches, another one acts");
    tell(YB_STATUS_SUCCESS, yb_net_init(print_log_line, 3, 0), "yb_net_init");
    {
        watcher events;
        make_interfaces();
        events.skip();
        printf("\n");
        (void)fflush(stdout);
        FILE *const actor = popen((self + " --act").c_str(), "we");
        if (actor != nullptr)
            watch(&events, actor);
        if (actor == nullptr || pclose(actor) != 0) {
            printf("    the other process failed\n");
            surprises++;
        }
        printf("\n");
    }
    // Its netdev is gone: only the record is left.
    tell(YB_STATUS_SUCCESS, net_lib_db_interface_remove(vlan), "the record of %u removed", vlan);
    tell(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DESTROY, port, nullptr), "DESTROY %u", port);
    tell(YB_STATUS_SUCCESS, yb_net_deinit(), "yb_net_deinit");
    run("ip link set dev swid0_eth down");
}

int act_on_links() {
    if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
        return 1;
    step("state of 101 (swp1) set up", [] { return yb_net_interface_state_set(port, YB_NET_IF_STATE_UP); });
    step("state of 110 (VLAN 10) set up",
         [] { return yb_net_interface_state_set(vlan, YB_NET_IF_STATE_UP); });
    step("alias 10.0.0.5 added to 110", add_alias);
    step("operational state of 101 set down",
         [] { return yb_net_interface_oper_state_set(port, YB_NET_IF_STATE_DOWN); });
    step("operational state of 101 set up",
         [] { return yb_net_interface_oper_state_set(port, YB_NET_IF_STATE_UP); });
    step("state of 110 set down", [] { return yb_net_interface_state_set(vlan, YB_NET_IF_STATE_DOWN); });
    // By ip(8): the library's DESTROY would also remove the record by which the event is translated.
    step("ip link del dev swid0_eth.10", [] {
        return std::system("ip link del dev swid0_eth.10") == 0 ? YB_STATUS_SUCCESS : YB_STATUS_ERROR;
    });
    if (net_lib_db_interfaces_unload(0) != YB_STATUS_SUCCESS)
        surprises++;
    return surprises == 0 ? 0 : 1;
}
