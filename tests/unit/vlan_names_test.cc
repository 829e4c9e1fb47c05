// SPDX-License-Identifier: Apache-2.0
//
// The three names of a VLAN request: by type and command, and nothing written
// beyond what is said or behind a buffer. What is made under these names is
// vlan_create_test.cc's.
#include "net_lib/vlan_netdev.h"

#include "tests/unit/netdev_fixture.h"

namespace {

class vlan_names : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
    }
    void TearDown() override {
        EXPECT_THAT(logged_lines(), testing::IsEmpty());
        EXPECT_THAT(calls::commands(), testing::IsEmpty());
    }

    yb_status_t build(yb_access_cmd_t cmd, const yb_net_interface_params_t &params, size_t size = 50) {
        memset(base, '~', sizeof(base));
        memset(alternative, '~', sizeof(alternative));
        memset(full, '~', sizeof(full));
        vlan = 0xEEEE;
        name_format = 0xEEEEEEEE;
        const yb_status_t status = __yb_net_build_if_names(cmd, &params, base, size, alternative, size, full,
                                                           size, &vlan, &name_format);
        for (const char(*const name)[60] : {&base, &alternative, &full}) {
            for (size_t i = size; i < sizeof(*name); i++)
                EXPECT_EQ('~', (*name)[i]) << "written behind the buffer";
        }
        return status;
    }
    void expect_refused(const yb_net_interface_params_t &params) {
        EXPECT_EQ(YB_STATUS_PARAM_ERROR, build(YB_ACCESS_CMD_CREATE, params));
        EXPECT_EQ('~', base[0]);
        EXPECT_EQ('~', alternative[0]);
        EXPECT_EQ('~', full[0]);
        EXPECT_EQ(0xEEEE, vlan);
        EXPECT_EQ(0xEEEEEEEE, name_format);
    }

    char base[60];
    char alternative[60];
    char full[60];
    uint16_t vlan;
    uint32_t name_format;
};

} // namespace

TEST_F(vlan_names, vlan_is_named_by_swid_and_id_for_every_command) {
    for (const yb_access_cmd_t cmd : {12u, 13u, 2u}) {
        yb_net_interface_params_t params = vlan_params(3, 42, "", YB_NET_NAME_FORMAT_VLAN);
        fill_field(params.name, "recorded");
        ASSERT_EQ(YB_STATUS_SUCCESS, build(cmd, params));
        EXPECT_STREQ("swid3_eth", base);
        EXPECT_STREQ("vlan42", alternative);
        EXPECT_STREQ("swid3_eth.42", full);
        EXPECT_EQ(42, vlan);
        EXPECT_EQ(1u, name_format);
    }
}

TEST_F(vlan_names, swids_0_to_7_and_254_are_accepted) {
    for (const int swid : {0, 1, 6, 7, 254}) {
        ASSERT_EQ(YB_STATUS_SUCCESS, build(YB_ACCESS_CMD_CREATE, vlan_params(static_cast<uint8_t>(swid), 1)));
        EXPECT_EQ("swid" + std::to_string(swid) + "_eth", base);
        EXPECT_EQ("swid" + std::to_string(swid) + "_eth.1", full);
    }
}

TEST_F(vlan_names, other_swids_are_refused_with_nothing_written) {
    for (const int swid : {8, 9, 127, 128, 253, 255})
        expect_refused(vlan_params(static_cast<uint8_t>(swid), 1));
}

TEST_F(vlan_names, other_types_are_refused_with_nothing_written) {
    for (const uint32_t type : {2u, 3u, 4u, 5u, 6u, 7u, 0x100u, 0xFFFFFFFFu}) {
        yb_net_interface_params_t params = vlan_params(0, 1);
        params.type = type;
        expect_refused(params);
    }
}

TEST_F(vlan_names, range_of_id_and_format_are_not_looked_at) {
    ASSERT_EQ(YB_STATUS_SUCCESS, build(YB_ACCESS_CMD_CREATE, vlan_params(254, 65535, "", 0xFFFFFFFF)));
    EXPECT_STREQ("vlan65535", alternative);
    EXPECT_STREQ("swid254_eth.65535", full);
    EXPECT_EQ(65535, vlan);
    EXPECT_EQ(0xFFFFFFFFu, name_format);
}

TEST_F(vlan_names, port_vlan_to_be_made_is_named_by_its_port) {
    ASSERT_EQ(YB_STATUS_SUCCESS, build(YB_ACCESS_CMD_CREATE, port_vlan_params("swp1", 7, "", "recorded")));
    EXPECT_STREQ("swp1", base);
    EXPECT_STREQ("swp1.7", full);
    EXPECT_EQ('~', alternative[0]) << "not written";
    EXPECT_EQ(7, vlan);
    EXPECT_EQ(0u, name_format);
}

TEST_F(vlan_names, port_vlan_that_exists_has_the_name_recorded_at_its_creation) {
    for (const yb_access_cmd_t cmd : {13u, 2u, 15u, 99u}) {
        ASSERT_EQ(YB_STATUS_SUCCESS, build(cmd, port_vlan_params("swp1", 7, "", "recorded")));
        EXPECT_STREQ("swp1", base);
        EXPECT_STREQ("recorded", full);
    }
}

TEST_F(vlan_names, port_name_without_nul_is_cut_to_15_characters_whatever_the_buffer) {
    ASSERT_EQ(YB_STATUS_SUCCESS, build(YB_ACCESS_CMD_CREATE, port_vlan_params("0123456789abcdef", 4095)));
    EXPECT_STREQ("0123456789abcde", base);
    EXPECT_STREQ("0123456789abcde.4095", full);
}

TEST_F(vlan_names, recorded_name_without_nul_ends_with_its_field) {
    yb_net_interface_params_t params = port_vlan_params("swp1", 7, "namespace", "0123456789abcdef");
    ASSERT_EQ(YB_STATUS_SUCCESS, build(YB_ACCESS_CMD_DESTROY, params));
    EXPECT_STREQ("0123456789abcdef", full);
}

TEST_F(vlan_names, names_are_cut_to_their_buffers) {
    ASSERT_EQ(YB_STATUS_SUCCESS, build(YB_ACCESS_CMD_CREATE, vlan_params(7, 4095), 5));
    EXPECT_STREQ("swid", base);
    EXPECT_STREQ("vlan", alternative);
    EXPECT_STREQ("swid", full);
    ASSERT_EQ(YB_STATUS_SUCCESS, build(YB_ACCESS_CMD_CREATE, port_vlan_params("longport", 4095), 5));
    EXPECT_STREQ("long", base);
    EXPECT_STREQ("long", full);
}
