// SPDX-License-Identifier: Apache-2.0
//
// See database_user.h.
#include "tests/ybnetctl/database_user.h"

#include <csignal>
#include <cstring>
#include <gtest/gtest.h>

#include "tests/ybnetctl/tool.h"
#include "ybnet/net_lib_db.h"

namespace {

bool load() {
    uint32_t silent = 0;
    return net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &silent) == YB_STATUS_SUCCESS &&
           net_lib_db_interfaces_load(0) == YB_STATUS_SUCCESS &&
           net_lib_db_ports_load(0) == YB_STATUS_SUCCESS;
}

int unload() {
    const yb_status_t interfaces = net_lib_db_interfaces_unload(0);
    const yb_status_t ports = net_lib_db_ports_unload(0);
    return interfaces == YB_STATUS_SUCCESS && ports == YB_STATUS_SUCCESS ? 0 : 93;
}

void must(yb_status_t status, const char *what) {
    if (status != YB_STATUS_SUCCESS) {
        (void)fprintf(stderr, "%s: status %u\n", what, status);
        _exit(94);
    }
}

} // namespace

database_user::database_user(const std::function<void(const std::function<void()> &ready)> &work, int)
    : child_(std::make_unique<child_process>([this, &work] {
          if (!load())
              return 90;
          if (work)
              work([this] { ready_.add(); });
          if (ready_.value() == 0)
              ready_.add();
          return end_.wait_for(1) ? unload() : 92;
      })) {
    if (!ready_.wait_for(1, std::chrono::seconds(30)))
        ADD_FAILURE() << "a process that uses the databases did not come up";
}

database_user::database_user(std::function<void()> work)
    : database_user(
          [&work](const std::function<void()> &) {
              if (work)
                  work();
          },
          0) {}

int database_user::end() {
    end_.add();
    return child_->wait();
}

void database_user::kill() {
    child_->signal(SIGKILL);
    (void)child_->wait();
}

yb_net_interface_params_t vlan_params(const std::string &name, const std::string &ns, uint16_t vlan_id) {
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_VLAN;
    (void)memcpy(params.name, name.data(), std::min(name.size(), sizeof(params.name)));
    (void)memcpy(params.ns_name, ns.data(), std::min(ns.size(), sizeof(params.ns_name)));
    params.by_type.vlan.vlan_id = vlan_id;
    return params;
}

yb_net_port_info_t port_info(const std::string &name, uint32_t log_port) {
    yb_net_port_info_t info = {};
    (void)memcpy(info.name, name.data(), std::min(name.size(), sizeof(info.name)));
    info.log_port = log_port;
    return info;
}

void record_all() {
    yb_net_interface_params_t params = vlan_params("swp1", "", 0);
    params.type = YB_L2_INTERFACE_TYPE_PORT;
    params.by_type.port = {.value1 = 1, .value2 = 0x10100, .unused = {}};
    must(net_lib_db_interface_add(101, 4, &params), "swp1");

    params = vlan_params("vlan10", "blue", 10);
    params.vrf_valid = 1;
    memcpy(params.vrf_name, "red", sizeof("red"));
    must(net_lib_db_interface_add_full(110, 5, &params, 5, 2, 1), "vlan10");

    params = vlan_params("swp1.30", "", 0);
    params.type = YB_L2_INTERFACE_TYPE_PORT_VLAN;
    params.by_type.port_vlan = {};
    params.by_type.port_vlan.vlan_id = 30;
    memcpy(params.by_type.port_vlan.port_name, "swp1", sizeof("swp1"));
    must(net_lib_db_interface_add(130, 7, &params), "swp1.30");

    params = vlan_params("loop1", "red", 0);
    params.type = YB_L2_INTERFACE_TYPE_LOOPBACK;
    must(net_lib_db_interface_add(140, 2, &params), "loop1");

    yb_net_port_info_t info = port_info("swp1", 0x10100);
    info.protocol = 1;
    must(net_lib_db_port_set(0x10001, &info), "port swp1");
    info = port_info("swp2", 0x10200);
    info.protocol = 2;
    must(net_lib_db_port_set(0x10002, &info), "port swp2");
    info = port_info("lag1", 0x10000500);
    info.mlag_id = 7;
    must(net_lib_db_port_set(0x20001, &info), "LAG");
    must(net_lib_db_port_lag_set(0x10001, 0x10000500), "member");
}

std::string jq(const std::string &document, const std::string &filter) {
    const tool_result result = run_program({"jq", "-r", filter}, {}, document);
    EXPECT_EQ(0, result.code) << filter << "\n" << result.err << document;
    std::string text = result.out;
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}
