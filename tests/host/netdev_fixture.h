// SPDX-License-Identifier: Apache-2.0
//
// What the host tests of netdev management share: the library as processes link
// it, a loaded database, and no netdevs or namespaces of an earlier test.
#ifndef YBNET_TESTS_HOST_NETDEV_FIXTURE_H
#define YBNET_TESTS_HOST_NETDEV_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/log_lines.h"
#include "tests/support/netdevs.h"
#include "tests/support/processes.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

class host_netdev_test : public testing::Test {
  protected:
    void SetUp() override {
        clear_netdevs();
        platform::reset();
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
    }
    void TearDown() override {
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
        clear_netdevs();
    }

    static yb_status_t create(uint32_t sys_ifindex, yb_net_interface_params_t params) {
        return yb_net_interface_set(YB_ACCESS_CMD_CREATE, sys_ifindex, &params);
    }
    static yb_status_t destroy(uint32_t sys_ifindex) {
        return yb_net_interface_set(YB_ACCESS_CMD_DESTROY, sys_ifindex, nullptr);
    }
};

#endif
