// SPDX-License-Identifier: Apache-2.0
//
// Loopback interfaces end to end on this machine's kernel: bridges in
// namespaces, records, lookups.
#include "tests/host/netdev_fixture.h"

namespace {

class loopback : public host_netdev_test {};

} // namespace

TEST_F(loopback, is_a_bridge_of_its_namespace_and_found_by_its_ifindex_there) {
    make_namespace("red");
    make_netdev("filler", "red");
    ASSERT_EQ(YB_STATUS_SUCCESS, create(7, loopback_params("lo7", "red")));
    EXPECT_THAT(run_ip({"-n", "red", "-d", "link", "show", "dev", "lo7"}).output,
                testing::HasSubstr("bridge"));
    yb_net_interface_record_t record = {};
    const uint32_t ifindex = ifindex_of("lo7", "red");
    ASSERT_NE(0u, ifindex);
    ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get_by_linux_ifindex_ns(ifindex, "red", &record));
    EXPECT_EQ(7u, record.sys_ifindex);
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_interface_params_get_by_linux_ifindex(ifindex, &record));
    ASSERT_EQ(YB_STATUS_SUCCESS, destroy(7));
    EXPECT_FALSE(netdev_exists("lo7", "red"));
    EXPECT_EQ(YB_STATUS_ENTRY_NOT_FOUND, yb_net_interface_params_get(7, &record));
}

TEST_F(loopback, of_one_name_can_stand_in_each_namespace) {
    for (const char *const ns : {"red", "blue"})
        make_namespace(ns);
    EXPECT_EQ(YB_STATUS_SUCCESS, create(1, loopback_params("same")));
    EXPECT_EQ(YB_STATUS_SUCCESS, create(2, loopback_params("same", "red")));
    EXPECT_EQ(YB_STATUS_SUCCESS, create(3, loopback_params("same", "blue")));
    EXPECT_EQ(YB_STATUS_SUCCESS, destroy(2));
    EXPECT_TRUE(netdev_exists("same"));
    EXPECT_TRUE(netdev_exists("same", "blue"));
}

TEST_F(loopback, whose_name_is_taken_is_refused_by_the_kernel) {
    make_netdev("taken");
    stderr_capture ips;
    EXPECT_EQ(YB_STATUS_ERROR, create(1, loopback_params("taken")));
    EXPECT_THAT(ips.text(), testing::HasSubstr("File exists"));
    EXPECT_THAT(logged_lines(), testing::IsEmpty());
}

TEST_F(loopback, in_a_namespace_that_does_not_exist_is_refused) {
    stderr_capture ips;
    EXPECT_EQ(YB_STATUS_ERROR, create(1, loopback_params("lo1", "nowhere")));
    EXPECT_THAT(ips.text(), testing::HasSubstr("Cannot open network namespace"));
    EXPECT_FALSE(netdev_exists("lo1"));
}

TEST_F(loopback, removed_by_somebody_else_keeps_its_record) {
    ASSERT_EQ(YB_STATUS_SUCCESS, create(1, loopback_params("lo1")));
    remove_netdev("lo1");
    stderr_capture ips;
    EXPECT_EQ(YB_STATUS_ERROR, destroy(1));
    yb_net_interface_record_t record = {};
    EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get(1, &record));
}

TEST_F(loopback, may_bear_every_character_that_names_may_have) {
    make_namespace("n.s_-@+=:A9");
    uint32_t sys_ifindex = 1;
    for (const char *const name :
         {"0", "a.b", "a_b", "a-b", "a@b", "a+b", "a=b", "Z9._-@+=", "=", "0123456789abcde"}) {
        ASSERT_EQ(YB_STATUS_SUCCESS, create(sys_ifindex, loopback_params(name, "n.s_-@+=:A9"))) << name;
        EXPECT_TRUE(netdev_exists(name, "n.s_-@+=:A9")) << name;
        EXPECT_EQ(YB_STATUS_SUCCESS, destroy(sys_ifindex++)) << name;
    }
}

TEST_F(loopback, hundred_of_them_come_and_go) {
    make_namespace("red");
    for (uint32_t i = 0; i < 100; i++)
        ASSERT_EQ(YB_STATUS_SUCCESS, create(i, loopback_params("lo" + std::to_string(i), "red")));
    EXPECT_EQ(YB_STATUS_ENTRY_ALREADY_EXISTS, create(50, loopback_params("another", "red")));
    for (uint32_t i = 0; i < 100; i++) {
        yb_net_interface_record_t record = {};
        ASSERT_EQ(YB_STATUS_SUCCESS, yb_net_interface_params_get(i, &record));
        EXPECT_EQ("lo" + std::to_string(i), text_in(record.params.name));
        ASSERT_EQ(YB_STATUS_SUCCESS, destroy(i));
    }
    EXPECT_EQ("lo", run_ip({"-n", "red", "-br", "link"}).output.substr(0, 2));
}
