// SPDX-License-Identifier: Apache-2.0
//
// The dispatcher from several processes: what one makes another finds, changes
// and removes; and what a tool that fails leaves behind.
#include "tests/host/netdev_fixture.h"

namespace {

class interface_set : public host_netdev_test {
  protected:
    void SetUp() override {
        host_netdev_test::SetUp();
        make_namespace("red");
    }
    // In another process that loads the database itself.
    static int elsewhere(const std::function<int()> &body) {
        // The child starts as a copy of this process: a program of its own would not have the database loaded.
        child_process other([&body] {
            if (net_lib_db_interfaces_load(0) != YB_STATUS_ALREADY_INITIALIZED)
                return 99;
            return body();
        });
        return other.wait();
    }
};

} // namespace

TEST_F(interface_set, what_one_process_made_another_finds_and_removes) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, loopback_params("lo1", "red")));
    EXPECT_EQ(0, elsewhere([] {
                  yb_net_interface_record_t record = {};
                  if (yb_net_interface_params_get(1, &record) != YB_STATUS_SUCCESS ||
                      text_in(record.params.name) != "lo1")
                      return 1;
                  return destroy(1) == YB_STATUS_SUCCESS ? 0 : 2;
              }));
    EXPECT_FALSE(netdev_exists("lo1", "red"));
    yb_net_interface_record_t record = {};
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_interface_params_get(1, &record));
}

TEST_F(interface_set, processes_that_create_at_once_lose_nothing) {
    constexpr int processes = 4;
    constexpr uint32_t each = 10;
    shared_counter gate;
    std::vector<child_process> children;
    for (uint32_t number = 0; number < processes; number++) {
        children.emplace_back([number, &gate] {
            gate.add();
            if (!gate.wait_for(processes))
                return 98;
            for (uint32_t i = 0; i < each; i++) {
                const uint32_t sys_ifindex = number * 100 + i;
                yb_net_interface_params_t params = loopback_params("lo" + std::to_string(sys_ifindex), "red");
                const bool full = i % 2 == 0;
                const yb_status_t status =
                    full ? yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, sys_ifindex, &params,
                                                     static_cast<uint16_t>(i), 1)
                         : yb_net_interface_set(YB_ACCESS_CMD_CREATE, sys_ifindex, &params);
                if (status != YB_STATUS_SUCCESS)
                    return static_cast<int>(status);
            }
            return 0;
        });
    }
    for (child_process &child : children)
        EXPECT_EQ(0, child.wait());
    size_t found = 0;
    for (uint32_t number = 0; number < processes; number++) {
        for (uint32_t i = 0; i < each; i++) {
            yb_net_interface_record_t record = {};
            ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get(number * 100 + i, &record));
            EXPECT_EQ(ifindex_of(text_in(record.params.name), "red"), record.linux_ifindex);
            found++;
        }
    }
    EXPECT_EQ(processes * each, found);
}

TEST_F(interface_set, processes_that_want_one_interface_get_it_once) {
    constexpr int processes = 4;
    shared_counter gate;
    shared_counter made;
    std::vector<child_process> children;
    for (int number = 0; number < processes; number++) {
        children.emplace_back([number, &gate, &made] {
            gate.add();
            if (!gate.wait_for(processes))
                return 98;
            const yb_status_t status = create(1, loopback_params("lo" + std::to_string(number), "red"));
            made.add(status == YB_STATUS_SUCCESS ? 1 : 0);
            return status == YB_STATUS_SUCCESS || status == YB_STATUS_ENTRY_ALREADY_EXISTS ? 0 : 1;
        });
    }
    for (child_process &child : children)
        EXPECT_EQ(0, child.wait());
    EXPECT_EQ(1, made.value());
}

TEST_F(interface_set, delete_all_leaves_loopbacks) {
    tool_shims shims;
    stand_in_for_vlans(shims);
    make_netdev("swid0_eth");
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, vlan_params(0, 5, "red")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(2, loopback_params("lo2", "red")));
    ASSERT_EQ(YB_STATUS_SUCCESS, create(3, port_vlan_params("swid0_eth", 7)));
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_set(YB_ACCESS_CMD_DELETE_ALL, 0, nullptr));
    EXPECT_FALSE(netdev_exists("swid0_eth.5", "red"));
    EXPECT_FALSE(netdev_exists("swid0_eth.7"));
    EXPECT_TRUE(netdev_exists("lo2", "red"));
    yb_net_interface_record_t record = {};
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get(2, &record));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_interface_params_get(1, &record));
}

TEST_F(interface_set, tools_missing_from_path_are_failed_commands) {
    const std::string path = getenv("PATH");
    (void)setenv("PATH", "/nonexistent", 1);
    stderr_capture shells;
    EXPECT_EQ(YB_STATUS_ERROR, create(1, loopback_params("lo1", "red")));
    make_netdev("swid0_eth");
    EXPECT_EQ(YB_STATUS_ERROR, create(2, vlan_params(0, 5)));
    (void)setenv("PATH", path.c_str(), 1);
    EXPECT_THAT(logged_lines(), testing::ElementsAre(error_line(
                                    "yb_net_vlan_if_add: Command \"vconfig add swid0_eth 5\" failed. "
                                    "System_error: [32512] errno: Success\n")));
}
