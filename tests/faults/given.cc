// SPDX-License-Identifier: Apache-2.0
//
// What is given before a scenario's cases (scenario.h): brought about once, in the process that forks them.
#include "tests/faults/scenario.h"

#include <cstdlib>
#include <memory>
#include <string>

#include "tests/faults/case.h"
#include "tests/support/netdevs.h"
#include "tests/support/segment_file.h"
#include "tests/support/tool_shims.h"
#include "ybnet/net_lib_db.h"

namespace faults {

namespace {

std::unique_ptr<tool_shims> shims;
std::string plain_path; // without the shims

void load_interfaces() {
    const yb_net_interface_params_t params = port_params("lo");
    must(net_lib_db_interfaces_load(0) == YB_STATUS_SUCCESS, "the interfaces database");
    must(net_lib_db_interface_add(101, 1, &params) == YB_STATUS_SUCCESS, "a record");
    keep_what_is_given(&interfaces_format);
}

void load_ports() {
    yb_net_port_info_t port_5 = {};
    port_5.log_port = 5u << 8;
    yb_net_port_info_t lag_6 = {};
    lag_6.log_port = YB_NET_LOG_PORT_TYPE_LAG << 28 | 6u << 8;
    lag_6.mlag_id = 7;
    must(net_lib_db_ports_load(0) == YB_STATUS_SUCCESS, "the ports database");
    must(net_lib_db_port_set(5, &port_5) == YB_STATUS_SUCCESS &&
             net_lib_db_port_set(6, &lag_6) == YB_STATUS_SUCCESS,
         "records of ports");
    keep_what_is_given(&ports_format);
}

} // namespace

void load_what_is_given(given what) {
    switch (what) {
    case given::nothing:
        return;
    case given::ports:
        load_ports();
        return;
    case given::netdevs:
        plain_path = getenv("PATH");
        shims = std::make_unique<tool_shims>();
        stand_in_for_vlans(*shims);
        make_namespace("blue");
        make_netdev("swid0_eth"); // what VLANs are stacked on
        load_interfaces();
        return;
    default:
        load_interfaces();
    }
}

void use_plain_tools() {
    (void)setenv("PATH", plain_path.c_str(), 1);
}

void unload_what_is_given(given what) {
    keep_what_is_given(nullptr);
    if (what == given::ports)
        (void)net_lib_db_ports_unload(0);
    else if (what != given::nothing)
        (void)net_lib_db_interfaces_unload(0);
    if (what == given::netdevs) {
        shims.reset();
        clear_netdevs();
    }
}

} // namespace faults
