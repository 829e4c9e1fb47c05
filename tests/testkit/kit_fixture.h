// SPDX-License-Identifier: Apache-2.0
//
// What the kit's own tests share: a test begun once, ended with the program, and
// everything forgotten before each. They link the kit and libybnet only, as other people's tests do.
#ifndef YBNET_TESTS_KIT_FIXTURE_H
#define YBNET_TESTS_KIT_FIXTURE_H

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "ybnet/net_lib.h"
#include "ybnet/testkit/testkit.h"

constexpr unsigned limit_ms = 20000;

class kit_end : public testing::Environment {
    void TearDown() override {
        EXPECT_EQ(0, ybtk_end());
    }
};
inline testing::Environment *const kit_ends = testing::AddGlobalTestEnvironment(new kit_end);

class kit_test : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(0, ybtk_begin()) << errno;
    }
    void SetUp() override {
        ASSERT_EQ(0, ybtk_reset());
        ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_init(nullptr, 3, 0));
        ASSERT_EQ(0, ybtk_netdev_add(nullptr, "swid0_eth", nullptr));
    }
    void TearDown() override {
        EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_deinit());
    }

    static yb_net_interface_params_t vlan(uint16_t id, const std::string &ns = "") {
        yb_net_interface_params_t params = {};
        params.type = YB_L2_INTERFACE_TYPE_VLAN;
        params.by_type.vlan.vlan_id = id;
        ns.copy(params.ns_name, sizeof(params.ns_name) - 1);
        return params;
    }
    static yb_net_interface_params_t named(uint32_t type, const std::string &name,
                                           const std::string &ns = "") {
        yb_net_interface_params_t params = {};
        params.type = type;
        name.copy(params.name, sizeof(params.name) - 1);
        ns.copy(params.ns_name, sizeof(params.ns_name) - 1);
        return params;
    }
    static yb_status_t create(uint32_t sys_ifindex, yb_net_interface_params_t params) {
        return yb_net_interface_set(YB_ACCESS_CMD_CREATE, sys_ifindex, &params);
    }
    static yb_status_t destroy(uint32_t sys_ifindex) {
        return yb_net_interface_set(YB_ACCESS_CMD_DESTROY, sys_ifindex, nullptr);
    }
    static std::vector<std::string> runs() {
        std::vector<std::string> lines;
        for (size_t i = 0; i < ybtk_tool_run_count(); i++)
            lines.emplace_back(ybtk_tool_run_get(i));
        return lines;
    }
};

#endif
