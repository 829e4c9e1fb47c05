// SPDX-License-Identifier: Apache-2.0
//
// Making, changing and removing netdevs, with real commands and requests; 802.1Q netdevs are plain ones of the same
// names.
#include "tests/faults/scenario.h"

#include <net/if.h>

#include "tests/support/netdevs.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

namespace faults {

namespace {

constexpr uint32_t fresh = 300;
constexpr const char *blue = "blue"; // the namespace that is given

// What the case before may have left.
void remove_left_netdevs() {
    for (const char *const name : {"swid0_eth.10", "vlan10", "port1"}) {
        if (if_nametoindex(name) != 0)
            remove_netdev(name);
    }
}

void remove_left_loopback() {
    use_plain_tools();
    (void)run_ip({"-n", blue, "link", "del", "dev", "lo7"});
}

yb_status_t create(yb_net_interface_params_t params, std::string *answer) {
    const yb_status_t status = yb_net_interface_set(YB_ACCESS_CMD_CREATE, fresh, &params);
    *answer = text_in(params.name);
    return status;
}

void record(uint32_t sys_ifindex, const yb_net_interface_params_t &params, uint32_t linux_ifindex) {
    must(net_lib_db_interface_add(sys_ifindex, linux_ifindex, &params) == YB_STATUS_SUCCESS, "a record");
}

void make_vlan() {
    remove_left_netdevs();
    make_netdev("vlan10");
    record(fresh, vlan_params(0, 10, "", YB_NET_NAME_FORMAT_VLAN), if_nametoindex("vlan10"));
}

void make_port() {
    remove_left_netdevs();
    make_netdev("port1");
    record(fresh, port_params("port1"), if_nametoindex("port1"));
}

// And nothing else that cannot be removed.
void make_vlan_and_port() {
    make_vlan();
    make_netdev("port1");
    record(fresh + 1, port_params("port1"), if_nametoindex("port1"));
    must(net_lib_db_interface_remove(101) == YB_STATUS_SUCCESS, "a record less");
}

void make_port_vlan() {
    if (!netdev_exists("port1.20", blue))
        make_netdev("port1.20", blue);
    record(fresh, port_vlan_params("port1", 20, blue, "port1.20"), ifindex_of("port1.20", blue));
}

yb_status_t destroy() {
    return yb_net_interface_set(YB_ACCESS_CMD_DESTROY, fresh, nullptr);
}

// A request socket that cannot be made ready is dropped open (yb_net_rtnl.h).
constexpr const char *dropped_request_socket = "socket";

// Whether netdev and record are there, of the interface that is made or removed.
std::string netdev_and_record() {
    yb_net_interface_record_t found = {};
    const yb_status_t status = yb_net_interface_params_get(fresh, &found);
    std::string text = "status " + std::to_string(status) + ", record " + text_in(found.params.name);
    for (const char *const name : {"swid0_eth.10", "vlan10", "port1"})
        text += if_nametoindex(name) != 0 ? std::string(", netdev ") + name : "";
    return text;
}

} // namespace

std::vector<scenario> netdev_scenarios() {
    std::vector<scenario> all;
    const auto add = [&all](const char *function, const char *situation, void (*prepare)(),
                            const std::function<uint32_t(std::string *)> &call) {
        all.push_back({function, situation, given::netdevs, prepare, call, dropped_request_socket});
        all.back().makes_netdevs = true;
        all.back().effect = netdev_and_record;
        all.back().at_once = 8;
    };
    add("yb_net_interface_set", "create_loopback", remove_left_loopback,
        [](std::string *answer) { return create(loopback_params("lo7", blue), answer); });
    add("yb_net_interface_set", "create_vlan", remove_left_netdevs,
        [](std::string *answer) { return create(vlan_params(0, 10, "", YB_NET_NAME_FORMAT_VLAN), answer); });
    // This kernel has no such netdevs, and refuses.
    add("yb_net_interface_set", "create_port", remove_left_netdevs,
        [](std::string *answer) { return create(port_params("port1"), answer); });
    add("yb_net_interface_set", "edit_port_vlan", make_port_vlan, [](std::string *) {
        yb_net_interface_params_t params = port_vlan_params("port1", 21, blue, "port1.20");
        return yb_net_interface_set(YB_ACCESS_CMD_EDIT, fresh, &params);
    });
    add("yb_net_interface_set", "destroy_vlan", make_vlan, [](std::string *) { return destroy(); });
    add("yb_net_interface_set", "destroy_port", make_port, [](std::string *) { return destroy(); });
    add("yb_net_interface_set_full", "create_loopback", remove_left_loopback, [](std::string *) {
        yb_net_interface_params_t params = loopback_params("lo7", blue);
        return yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, fresh, &params, 1, 2);
    });
    add("net_lib_interface_remove_all", "", make_vlan_and_port,
        [](std::string *) { return net_lib_interface_remove_all(); });
    return all;
}

} // namespace faults
