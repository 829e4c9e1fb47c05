// SPDX-License-Identifier: Apache-2.0
//
// The main job of the library, played through on a real kernel: router
// interfaces of every kind that it makes, in two namespaces, seen by ip(8) and
// by a second process; the switch's ports; live link events. Runs as root on a
// host with 802.1Q and the switch driver (or its simulation), which is to say in
// the lab.
//
//   demo           the whole transcript; fails if any step does not end as it says
//   demo --table   the interfaces, as another process sees them
//   demo --ports   the ports, as another process sees them
//   demo --events  the part about link events, which wants a process of its own
//   demo --act     the process that this part watches
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/demo/events_demo.h"
#include "tools/demo/ports_demo.h"
#include "tools/demo/record_table.h"
#include "tools/demo/transcript.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/platform/yb_util.h"

namespace {

void print_log_line(uint32_t, const char *, const char *message) {
    printf("    log: %s%s", message, message[strlen(message) - 1] == '\n' ? "" : "\n");
}

yb_net_interface_params_t describe(uint32_t type, const char *name, const char *ns,
                                   const char *vrf = nullptr) {
    yb_net_interface_params_t params = {};
    params.type = type;
    (void)snprintf(params.name, sizeof(params.name), "%s", name);
    (void)snprintf(params.ns_name, sizeof(params.ns_name), "%s", ns);
    if (vrf != nullptr) {
        params.vrf_valid = 1;
        (void)snprintf(params.vrf_name, sizeof(params.vrf_name), "%s", vrf);
    }
    return params;
}

yb_net_interface_params_t describe_vlan(uint8_t swid, uint16_t vlan, uint32_t name_format, const char *ns,
                                        const char *vrf = nullptr) {
    yb_net_interface_params_t params = describe(YB_L2_INTERFACE_TYPE_VLAN, "", ns, vrf);
    params.by_type.vlan.swid = swid;
    params.by_type.vlan.vlan_id = vlan;
    params.by_type.vlan.name_format = name_format;
    return params;
}

yb_net_interface_params_t describe_port_vlan(const char *port, uint16_t vlan, const char *ns) {
    yb_net_interface_params_t params = describe(YB_L2_INTERFACE_TYPE_PORT_VLAN, "", ns);
    params.by_type.port_vlan.vlan_id = vlan;
    (void)snprintf(params.by_type.port_vlan.port_name, sizeof(params.by_type.port_vlan.port_name), "%s",
                   port);
    return params;
}

void create(yb_status_t expected, uint32_t sys_ifindex, yb_net_interface_params_t params,
            uint16_t rif = YB_NET_RIF_NONE, uint16_t vrid = YB_NET_VRID_NONE) {
    const yb_status_t status =
        yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, &params, rif, vrid);
    tell(expected, status, "CREATE %u %s -> \"%s\" in namespace \"%s\"", sys_ifindex,
         yb_router_interface_type_str(params.type), params.name, params.ns_name);
}

void show_kernel() {
    run("ip -n blue -br -d link show");
    run("ip -n red -br -d link show");
    run("ip -br -d link show type yb_netdev");
}

int show_table() {
    if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
        return 1;
    print_record_table();
    return net_lib_db_interfaces_unload(0) == YB_STATUS_SUCCESS ? 0 : 1;
}

void play(const std::string &self) {
    heading("two namespaces, and the library started");
    run("ip netns add blue");
    run("ip netns add red");
    tell(YB_STATUS_SUCCESS, yb_net_init(print_log_line, 3, 0), "yb_net_init");
    run("ls -l /dev/shm");

    heading("interfaces of all four kinds");
    yb_net_interface_params_t port = describe(YB_L2_INTERFACE_TYPE_PORT, "swp1", "");
    port.by_type.port.value1 = 1;
    port.by_type.port.value2 = 0x10100;
    create(YB_STATUS_SUCCESS, 101, port);
    create(YB_STATUS_SUCCESS, 110, describe_vlan(0, 10, YB_NET_NAME_FORMAT_VLAN, "blue", "vrf-a"), 5, 2);
    create(YB_STATUS_SUCCESS, 120, describe_vlan(1, 20, YB_NET_NAME_FORMAT_SWID, "red"));
    create(YB_STATUS_SUCCESS, 130, describe_port_vlan("swp1", 30, "blue"));
    create(YB_STATUS_SUCCESS, 140, describe(YB_L2_INTERFACE_TYPE_LOOPBACK, "loop1", "red"));

    heading("the kernel's own view");
    show_kernel();

    heading("the records, read by another process");
    run(self + " --table");

    heading(
        "a PORT_VLAN gets another VLAN id: the kernel is asked, the record follows (mainline keeps its tag)");
    yb_net_interface_params_t edited = describe_port_vlan("swp1", 31, "blue");
    tell(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_EDIT, 130, &edited), "EDIT 130 to VLAN 31");
    run("ip -n blue -d link show dev swp1.30 | grep -o 'vlan protocol 802.1Q id [0-9]*'");
    run(self + " --table | grep swp1.30");

    heading("a duplicate is refused, and its netdev stays: nothing is rolled back");
    create(YB_STATUS_ENTRY_ALREADY_EXISTS, 140, describe(YB_L2_INTERFACE_TYPE_LOOPBACK, "loop2", "red"));
    run("ip -n red link del dev loop2");

    heading("one interface destroyed, then all VLANs and ports");
    tell(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DESTROY, 140, nullptr), "DESTROY 140");
    tell(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DELETE_ALL, 0, nullptr), "DELETE_ALL");
    run(self + " --table");
    show_kernel();

    play_ports(self);

    heading("the last user leaves, and the segments with it");
    tell(YB_STATUS_SUCCESS, yb_net_deinit(), "yb_net_deinit");
    run("ls -l /dev/shm");
    run("ip netns del blue");
    run("ip netns del red");

    run(self + " --events");
}

} // namespace

int main(int argc, char **argv) {
    const std::string part = argc == 2 ? argv[1] : "";
    if (part == "--table")
        return show_table();
    if (part == "--ports")
        return show_ports_table();
    if (part == "--act")
        return act_on_links();
    if (part == "--events") {
        play_events(argv[0]);
        return surprises == 0 ? 0 : 1;
    }
    if (argc != 1) {
        (void)fprintf(stderr, "usage: demo [--table | --ports | --events]\n");
        return 2;
    }
    play(argv[0]);
    printf("\n%s\n", surprises == 0 ? "every step ended as expected" : "NOT every step ended as expected");
    return surprises == 0 ? 0 : 1;
}
