// SPDX-License-Identifier: Apache-2.0
//
// What the tests of netdev management share: no netdevs, namespaces, records or
// recorded calls of an earlier test, recording tools in PATH that stand in for
// 802.1Q, and a look at the lock.
#ifndef YBNET_TESTS_NETDEV_FIXTURE_H
#define YBNET_TESTS_NETDEV_FIXTURE_H

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "net_lib/rtnl/request.h"
#include "net_lib_db/interfaces_segment.h"
#include "tests/support/log_lines.h"
#include "tests/support/netdevs.h"
#include "tests/support/recording_platform.h"
#include "tests/support/system_calls.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

using commands_t = std::vector<std::string>;

class netdev_test : public testing::Test {
  protected:
    void SetUp() override {
        clear_netdevs();
        stand_in_for_vlans(shims);
        platform::reset();
        set_verbosity(3);
        calls::reset();
    }
    void TearDown() override {
        calls::reset();
        EXPECT_FALSE(locked()) << "an operation kept the lock";
        (void)net_lib_db_interfaces_unload(0);
        if (rth.fd >= 0)
            close(rth.fd);
        rth = {-1, {}, 0, 0};
        clear_netdevs();
    }

    // 5: DEBUG lines too.
    static void set_verbosity(uint32_t level) {
        ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &level));
    }

    static void load() {
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
        calls::reset();
    }

    static bool locked() {
        if (interfaces_segment.body == nullptr)
            return false;
        const auto *const lock =
            reinterpret_cast<const pthread_rwlock_t *>(segment_trailer(interfaces_segment).plock.rwlock);
        return (lock->__data.__readers & 2) != 0; // looked at, not tried: releases are counted
    }

    // Commands given to system(3) and popen(3) since the last load() or SetUp().
    static commands_t commands() {
        return calls::commands();
    }

    // A stored record, which must be there.
    static yb_net_interface_record_t stored(uint32_t sys_ifindex) {
        yb_net_interface_record_t record = {};
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_get(sys_ifindex, &record));
        return record;
    }
    static bool is_stored(uint32_t sys_ifindex) {
        yb_net_interface_record_t record = {};
        return net_lib_db_interface_get(sys_ifindex, &record) == YB_STATUS_SUCCESS;
    }
    static void store(uint32_t sys_ifindex, const yb_net_interface_params_t &params,
                      uint32_t linux_ifindex = 0) {
        const uint32_t index = linux_ifindex != 0 ? linux_ifindex : 100000 + sys_ifindex;
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add(sys_ifindex, index, &params));
    }

    // The block's fields as one comparable value.
    static std::string bytes_of(const yb_net_interface_params_t &params) {
        return {reinterpret_cast<const char *>(&params), sizeof(params)};
    }

    static void expect_nothing_logged() {
        EXPECT_THAT(logged_lines(), testing::IsEmpty());
    }

    tool_shims shims;
};

#endif
