// SPDX-License-Identifier: Apache-2.0
//
// Alias addresses on the real kernel, told by ip(8): address, prefix length,
// broadcast, label and lifetime of each way to store them.
#include "tests/host/links_fixture.h"

#include <arpa/inet.h>

#include "tests/support/ip_values.h"

using testing::HasSubstr;
using testing::Not;

class alias_on_kernel : public kernel_links {
  protected:
    void SetUp() override {
        kernel_links::SetUp();
        make("br1", "type bridge", 100);
        ASSERT_EQ(yb_net_interface_state_set(100, 1),
                  uint32_t{YB_STATUS_SUCCESS}); // opens the request handle
    }
    static yb_status_t set(yb_access_cmd_t cmd, const yb_ip_addr_t &address, const yb_ip_addr_t &prefix,
                           const char *label = "br1:1") {
        return yb_net_virtual_net_if_alias_set(cmd, 100, label, &address, &prefix);
    }
    static std::string ip_says() {
        return output_of("ip -d -o -4 addr show dev br1");
    }
    const yb_ip_addr_t address_ = address_of(inet_addr("10.0.0.5"));
    const yb_ip_addr_t prefix_ = prefix_of(inet_addr("10.0.0.0"), inet_addr("255.255.255.0"));
};

TEST_F(alias_on_kernel, network_order_bytes_give_the_address_its_broadcast_and_32) {
    EXPECT_EQ(set(YB_ACCESS_CMD_ADD, address_, prefix_), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(ip_says(), HasSubstr("inet 10.0.0.5/32 brd 10.0.0.255 scope global br1:1\\"));
    EXPECT_THAT(ip_says(), HasSubstr("valid_lft forever preferred_lft forever"));
    EXPECT_EQ(output_of("ip route show dev br1"), ""); // no route comes with it
}

TEST_F(alias_on_kernel, host_order_integers_give_another_address) {
    EXPECT_EQ(set(YB_ACCESS_CMD_ADD, address_of(0x0A000005), prefix_of(0x0A000000, 0xFFFFFF00)),
              uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(ip_says(), HasSubstr("inet 5.0.0.10/24 brd 255.0.0.10 scope global br1:1\\"));
}

TEST_F(alias_on_kernel, bytes_with_an_integer_mask_give_the_subnet_and_its_route) {
    const uint32_t bytes = inet_addr("10.0.0.5");
    EXPECT_EQ(set(YB_ACCESS_CMD_ADD, address_of(bytes), prefix_of(bytes & 0xFFFFFF00, 0xFFFFFF00)),
              uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(ip_says(), HasSubstr("inet 10.0.0.5/24 brd 255.0.0.5 scope global br1:1\\"));
    EXPECT_THAT(output_of("ip route show dev br1"),
                HasSubstr("10.0.0.0/24 proto kernel scope link src 10.0.0.5"));
    EXPECT_THAT(output_of("ip route show table local dev br1"), HasSubstr("broadcast 255.0.0.5"));
}

TEST_F(alias_on_kernel, delete_takes_away_what_add_made) {
    EXPECT_EQ(set(YB_ACCESS_CMD_ADD, address_, prefix_), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(set(YB_ACCESS_CMD_DELETE, address_, prefix_, nullptr), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(ip_says(), "");
}

TEST_F(alias_on_kernel, second_add_and_second_delete_are_refused_by_the_kernel) {
    stderr_capture captured;
    EXPECT_EQ(set(YB_ACCESS_CMD_ADD, address_, prefix_), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(set(YB_ACCESS_CMD_ADD, address_, prefix_), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(set(YB_ACCESS_CMD_DELETE, address_, prefix_), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(set(YB_ACCESS_CMD_DELETE, address_, prefix_), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(captured.text(), "RTNETLINK answers [17]: File exists\n"
                               "RTNETLINK answers [99]: Cannot assign requested address\n");
}

TEST_F(alias_on_kernel, label_longer_than_a_netdev_name_is_refused_by_the_kernel) {
    stderr_capture captured;
    EXPECT_EQ(set(YB_ACCESS_CMD_ADD, address_, prefix_, "br1:45678901234"), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(set(YB_ACCESS_CMD_DELETE, address_, prefix_), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(set(YB_ACCESS_CMD_ADD, address_, prefix_, "br1:456789012345"), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(ip_says(), "");
    EXPECT_THAT(captured.text(), testing::StartsWith("RTNETLINK answers ["));
}
