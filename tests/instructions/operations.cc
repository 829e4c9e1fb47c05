// SPDX-License-Identifier: Apache-2.0
//
// The main operations, one after the other, for callgrind to count: compare
// runs this program and puts the counts next to those in counts.json. Nothing
// here depends on time, addresses or other processes, so every run counts the
// same.
#include <cstdio>
#include <cstdlib>
#include <net/if.h>
#include <valgrind/callgrind.h>

#include "tests/support/sandbox.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

namespace {

constexpr unsigned rounds = 16; // compare divides by this
constexpr uint32_t interfaces = 64;
constexpr uint32_t ports = 1000;
constexpr uint32_t absent = 0x00FF'0000;
constexpr uint16_t mlag_id = 7;
constexpr uint32_t lo_key = 5000;

void expect(yb_status_t expected, yb_status_t status) {
    if (status == expected)
        return;
    (void)fprintf(stderr, "an operation ended with status %d\n", static_cast<int>(status));
    exit(1);
}

void succeeded(yb_status_t status) {
    expect(YB_STATUS_SUCCESS, status);
}

// Once uncounted, so that what is done on first use only is not in the numbers.
template <typename operation_t> void count(const char *name, operation_t operation) {
    operation();
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    for (unsigned i = 0; i < rounds; i++)
        operation();
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(name);
}

yb_net_interface_params_t params_in(const char *ns) {
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_LOOPBACK;
    (void)snprintf(params.ns_name, sizeof(params.ns_name), "%s", ns);
    return params;
}

yb_net_port_info_t port_on(uint32_t log_port) {
    yb_net_port_info_t info = {};
    info.attr_b = YB_NET_PORT_ATTR_B_NONE;
    info.protocol = 1;
    info.log_port = log_port;
    (void)snprintf(info.name, sizeof(info.name), "swp1");
    return info;
}

void fill() {
    const yb_net_interface_params_t params = params_in("blue");
    for (uint32_t i = 1; i <= interfaces; i++)
        succeeded(net_lib_db_interface_add(i, i, &params));
    for (uint32_t i = 1; i <= ports; i++) {
        const yb_net_port_info_t info = port_on(i << 8);
        succeeded(net_lib_db_port_set(i, &info));
    }
}

void count_interfaces() {
    static yb_net_interface_record_t record;
    const yb_net_interface_params_t params = params_in("blue");
    count("interface get, first of 64", [] { succeeded(net_lib_db_interface_get(1, &record)); });
    count("interface get, last of 64", [] { succeeded(net_lib_db_interface_get(interfaces, &record)); });
    count("interface get, missing",
          [] { expect(YB_STATUS_ENTRY_NOT_FOUND, net_lib_db_interface_get(absent, &record)); });
    count("interface get by netdev, first of 64",
          [] { succeeded(net_lib_db_interface_get_by_linux_ifindex_ns(1, "blue", &record)); });
    count("interface get by index", [] { succeeded(net_lib_db_interface_get_by_db_index(0, &record)); });
    count("interface rif add", [] { succeeded(net_lib_db_interface_rif_add(1, 9)); });
    count("interface add + remove", [&params] {
        succeeded(net_lib_db_interface_add(absent, absent, &params));
        succeeded(net_lib_db_interface_remove(absent));
    });
}

void count_ports() {
    static yb_net_port_info_t info;
    const yb_net_port_info_t known = port_on(1 << 8);
    const yb_net_port_info_t fresh = port_on(0xFF'0000);
    count("port get", [] { succeeded(net_lib_db_port_get(1, &info)); });
    count("port get, missing", [] { succeeded(net_lib_db_port_get(absent, &info)); });
    count("log_port get", [] {
        uint32_t sys_ifindex;
        succeeded(net_lib_db_log_port_get(1 << 8, &sys_ifindex));
    });
    count("lag get", [] {
        uint32_t log_port;
        succeeded(net_lib_db_lag_get(mlag_id, &log_port));
    });
    count("port set, known", [&known] { succeeded(net_lib_db_port_set(1, &known)); });
    count("port set, new, + remove", [&fresh] {
        succeeded(net_lib_db_port_set(absent, &fresh));
        succeeded(net_lib_db_port_remove(absent));
    });
    count("ports get_all, 1000 of 65,536", [] {
        static yb_net_port_info_t all[ports];
        uint32_t size = ports;
        succeeded(net_lib_db_ports_get_all(1, all, &size));
    });
}

// Of the library's own part: what the kernel and libnl do is not counted.
void count_links() {
    yb_net_interface_params_t params = params_in("");
    (void)snprintf(params.name, sizeof(params.name), "lo");
    succeeded(net_lib_db_interface_add(lo_key, if_nametoindex("lo"), &params));
    count("state set", [] { succeeded(yb_net_interface_state_set(lo_key, 1)); });
    count("state get, 1 link", [] {
        uint32_t up;
        succeeded(yb_net_interface_state_get(lo_key, &up));
    });
}

} // namespace

int main() {
    const std::string problem = sandbox_enter();
    if (!problem.empty()) {
        (void)fprintf(stderr, "no namespaces of its own: %s\n", problem.c_str());
        return 1;
    }
    succeeded(net_lib_db_interfaces_load(0));
    succeeded(net_lib_db_ports_load(0));
    uint32_t silent = 0; // a missing record is a message otherwise
    succeeded(net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &silent));
    fill();
    CALLGRIND_START_INSTRUMENTATION;
    printf("rounds %u\n", rounds);
    count_interfaces();
    count_ports();
    count_links();
    succeeded(net_lib_db_ports_unload(0));
    succeeded(net_lib_db_interfaces_unload(0));
    return 0;
}
