// SPDX-License-Identifier: Apache-2.0
//
// What the lab tests of netdev management share: a loaded database, only the
// partitions' netdevs in the guest, and the kernel's own view of a netdev.
#ifndef YBNET_TESTS_LAB_NETDEV_FIXTURE_H
#define YBNET_TESTS_LAB_NETDEV_FIXTURE_H

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>

#include "tests/support/log_lines.h"
#include "tests/support/netdevs.h"
#include "tests/support/processes.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

class lab_netdev_test : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        make_namespace("red");
        make_namespace("blue");
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
    }
    void TearDown() override {
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
        clear_netdevs({"swid0_eth", "swid1_eth"});
    }

    static yb_status_t create(uint32_t sys_ifindex, yb_net_interface_params_t params) {
        return yb_net_interface_set(YB_ACCESS_CMD_CREATE, sys_ifindex, &params);
    }
    static yb_status_t destroy(uint32_t sys_ifindex) {
        return yb_net_interface_set(YB_ACCESS_CMD_DESTROY, sys_ifindex, nullptr);
    }
    static yb_net_interface_record_t stored(uint32_t sys_ifindex) {
        yb_net_interface_record_t record = {};
        EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get(sys_ifindex, &record));
        return record;
    }
    static bool is_stored(uint32_t sys_ifindex) {
        yb_net_interface_record_t record = {};
        return yb_net_interface_params_get(sys_ifindex, &record) == YB_STATUS_SUCCESS;
    }

    // "ip -d link show dev NAME" inside ns.
    static std::string shown(const std::string &name, const std::string &ns = "") {
        if (ns.empty())
            return run_ip({"-d", "link", "show", "dev", name}).output;
        return run_ip({"-n", ns, "-d", "link", "show", "dev", name}).output;
    }
    // The 802.1Q id that the kernel gives; -1 for a netdev that is none.
    static int vlan_id_of(const std::string &name, const std::string &ns = "") {
        std::smatch found;
        const std::string text = shown(name, ns);
        return std::regex_search(text, found, std::regex("vlan protocol 802\\.1Q id ([0-9]+) "))
                   ? std::stoi(found[1])
                   : -1;
    }
    static std::string file_text(const std::string &path) {
        std::ifstream file(path);
        std::string line;
        std::getline(file, line);
        return line;
    }
    // The driver's private values of a port netdev in the guest's own namespace.
    static std::string values_of(const std::string &name) {
        return file_text("/sys/class/net/" + name + "/yb_netdev/value1") + " " +
               file_text("/sys/class/net/" + name + "/yb_netdev/value2");
    }
};

#endif
