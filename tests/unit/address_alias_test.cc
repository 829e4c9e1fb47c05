// SPDX-License-Identifier: Apache-2.0
//
// Alias addresses: the requests byte for byte, the order of the checks, and what
// each way of storing an IPv4 value turns into.
#include "tests/unit/links_fixture.h"

#include <arpa/inet.h>
#include <cerrno>

#include "tests/support/ip_values.h"
#include "tests/support/tool_shims.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const yb_ip_addr_t alias = address_of(0x0A000005);
const yb_ip_addr_t network = prefix_of(0x0A000000, 0xFFFFFF00);

} // namespace

class address_alias : public links_fixture {
  protected:
    void SetUp() override {
        links_fixture::SetUp();
        add_record(100, 55, "lo"); // its Linux ifindex is not looked at, its name is
    }

    // The first 24 bytes of a request for lo, whose ifindex is 1.
    static byte_vector expected_header(uint8_t length, uint8_t type, uint16_t flags, uint8_t prefix_length) {
        return byte_vector{length, 0, 0, 0, type, 0} + bytes_of(flags) + bytes_of(rth.seq) +
               byte_vector{0, 0, 0, 0, AF_INET, prefix_length, 0, 0, 1, 0, 0, 0};
    }
    static byte_vector expected_lifetime() {
        return byte_vector{20,   0,    6, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                           0xFF, 0xFF, 0, 0, 0,    0,    0,    0,    0,    0};
    }

    struct in_kernel_terms {
        std::string address;
        int prefix_length;
        std::string broadcast;
    };
    // What a request asks the kernel for, read as the kernel reads it.
    in_kernel_terms asked_for(const yb_ip_addr_t &ip_addr, const yb_ip_addr_t &ip_prefix) {
        acknowledge_with(0);
        EXPECT_EQ(yb_net_virtual_net_if_alias_set(YB_ACCESS_CMD_DELETE, 100, nullptr, &ip_addr, &ip_prefix),
                  uint32_t{YB_STATUS_SUCCESS});
        const byte_vector &request = sent().back().bytes;
        char local[INET_ADDRSTRLEN] = {};
        char broadcast[INET_ADDRSTRLEN] = {};
        (void)inet_ntop(AF_INET, &request[28], local, sizeof(local));
        (void)inet_ntop(AF_INET, &request[44], broadcast, sizeof(broadcast));
        return {local, request[17], broadcast};
    }
    int prefix_length_of(uint32_t mask) {
        return asked_for(address_of(0), prefix_of(0, mask)).prefix_length;
    }
};

TEST_F(address_alias, add_request_is_what_the_kernel_is_documented_to_get) {
    acknowledge_with(0);
    ASSERT_EQ(yb_net_virtual_net_if_alias_set(YB_ACCESS_CMD_ADD, 100, "vlan10:1", &alias, &network),
              uint32_t{YB_STATUS_SUCCESS});
    ASSERT_EQ(sent().size(), 1u);
    const byte_vector expected =
        expected_header(84, RTM_NEWADDR, 0x0605, 24) +
        byte_vector{8, 0, 2, 0, 5, 0, 0, 10, 8, 0, 1, 0, 5, 0, 0, 10, 8, 0, 4, 0, 255, 0, 0, 10} +
        byte_vector{13, 0, 3, 0, 'v', 'l', 'a', 'n', '1', '0', ':', '1', 0, 0, 0, 0} + expected_lifetime();
    EXPECT_EQ(sent()[0].bytes, expected);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(address_alias, delete_request_has_no_label_and_looks_at_none) {
    acknowledge_with(0);
    const auto *const unreadable = reinterpret_cast<const char *>(1);
    ASSERT_EQ(yb_net_virtual_net_if_alias_set(YB_ACCESS_CMD_DELETE, 100, unreadable, &alias, &network),
              uint32_t{YB_STATUS_SUCCESS});
    const byte_vector expected =
        expected_header(68, RTM_DELADDR, 0x0005, 24) +
        byte_vector{8, 0, 2, 0, 5, 0, 0, 10, 8, 0, 1, 0, 5, 0, 0, 10, 8, 0, 4, 0, 255, 0, 0, 10} +
        expected_lifetime();
    EXPECT_EQ(sent()[0].bytes, expected);
}

TEST_F(address_alias, process_that_has_sent_no_request_before_fails) {
    stderr_capture captured;
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(YB_ACCESS_CMD_ADD, 100, "x", &alias, &network),
              uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(captured.text(), "Cannot talk to rtnetlink: Bad file descriptor\n");
    EXPECT_THAT(errors(), ElementsAre("yb_net_virtual_net_if_alias_set: rtnl_talk: ip addr alias of virtual "
                                      "interface, op[1]\n"));
    EXPECT_EQ(rth.opened, 0u);
}

TEST_F(address_alias, refusal_of_the_kernel_is_said_with_the_command) {
    acknowledge_with(-EADDRNOTAVAIL);
    stderr_capture captured;
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(YB_ACCESS_CMD_DELETE, 100, nullptr, &alias, &network),
              uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(captured.text(), "RTNETLINK answers [99]: Cannot assign requested address\n");
    EXPECT_THAT(errors(), ElementsAre("yb_net_virtual_net_if_alias_set: rtnl_talk: ip addr alias of virtual "
                                      "interface, op[3]\n"));
}

// Each request below is wrong in every way that is checked later, too.
TEST_F(address_alias, status_of_the_database_comes_first_and_silently) {
    const yb_ip_addr_t bad = {};
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(99, 101, nullptr, &bad, &bad),
              uint32_t{YB_STATUS_ENTRY_NOT_FOUND});
    EXPECT_THAT(log(), IsEmpty());
    (void)net_lib_db_interfaces_unload(0);
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(99, 101, nullptr, &bad, &bad),
              uint32_t{YB_STATUS_DB_NOT_INITIALIZED});
}

TEST_F(address_alias, missing_netdev_comes_second_and_is_said) {
    const yb_ip_addr_t bad = {};
    add_record(101, 1, "no_such_netdev");
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(99, 101, nullptr, &bad, &bad), uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("yb_net_virtual_net_if_alias_set: Cannot find device \"no_such_netdev\"\n"));
}

TEST_F(address_alias, name_that_fills_its_field_is_read_to_its_end) {
    add_record(101, 1, "sixteen_is_full_", 0, "namespace_behind");
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(1, 101, "x", &alias, &network),
              uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("yb_net_virtual_net_if_alias_set: Cannot find device \"sixteen_is_full_\"\n"));
}

TEST_F(address_alias, versions_other_than_ipv4_come_third) {
    for (const uint32_t version : {0u, 2u, 4u, 6u}) {
        yb_ip_addr_t other_alias = alias;
        other_alias.version = version;
        yb_ip_addr_t other_network = network;
        other_network.version = version;
        EXPECT_EQ(yb_net_virtual_net_if_alias_set(99, 100, nullptr, &other_alias, &network),
                  uint32_t{YB_STATUS_PARAM_ERROR});
        EXPECT_EQ(yb_net_virtual_net_if_alias_set(99, 100, nullptr, &alias, &other_network),
                  uint32_t{YB_STATUS_PARAM_ERROR});
        EXPECT_EQ(yb_net_virtual_net_if_alias_set(1, 100, "x", &other_alias, &network),
                  uint32_t{YB_STATUS_PARAM_ERROR});
        EXPECT_EQ(yb_net_virtual_net_if_alias_set(1, 100, "x", &alias, &other_network),
                  uint32_t{YB_STATUS_PARAM_ERROR});
    }
    EXPECT_EQ(calls::count("sendmsg"), 0);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(address_alias, address_outside_the_network_comes_before_a_bad_command) {
    const yb_ip_addr_t outside = address_of(0x0A000105); // 10.0.1.5
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(1, 100, "x", &outside, &network),
              uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(99, 100, nullptr, &outside, &network),
              uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_EQ(calls::count("sendmsg"), 0);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(address_alias, network_with_bits_outside_its_mask_is_refused) {
    const yb_ip_addr_t odd = prefix_of(0x0A000005, 0xFFFFFF00);
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(1, 100, "x", &alias, &odd), uint32_t{YB_STATUS_PARAM_ERROR});
}

TEST_F(address_alias, bad_command_comes_last_and_silently) {
    for (const uint32_t cmd : {0u, 2u, 4u, 12u, 99u}) {
        EXPECT_EQ(yb_net_virtual_net_if_alias_set(cmd, 100, "x", &alias, &network),
                  uint32_t{YB_STATUS_CMD_UNSUPPORTED});
    }
    EXPECT_EQ(calls::count("sendmsg"), 0);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(address_alias, longest_label_fits_exactly) {
    // 1056 bytes: 24 of headers, 24 of addresses, 20 of lifetime, and 988 for a label of 984 with its NUL.
    const std::string label(983, 'l');
    acknowledge_with(0);
    EXPECT_EQ(yb_net_virtual_net_if_alias_set(1, 100, label.c_str(), &alias, &network),
              uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(sent()[0].bytes.size(), 1056u);
}

TEST_F(address_alias, label_that_does_not_fit_is_said_on_standard_error_and_nothing_is_sent) {
    for (const size_t length : {984u, 1004u, 1055u, 1056u, 100000u}) {
        const std::string label(length, 'l');
        stderr_capture captured;
        EXPECT_EQ(yb_net_virtual_net_if_alias_set(1, 100, label.c_str(), &alias, &network),
                  uint32_t{YB_STATUS_ERROR});
        EXPECT_EQ(captured.text(), "addattr_l ERROR: message exceeded bound of 1056\n") << length;
    }
    EXPECT_EQ(calls::count("sendmsg"), 0);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(address_alias, prefix_length_is_measured_by_the_lowest_set_bit) {
    for (int length = 1; length <= 32; length++)
        EXPECT_EQ(prefix_length_of(0xFFFFFFFFu << (32 - length)), length);
    EXPECT_EQ(prefix_length_of(0), 0);
    EXPECT_EQ(prefix_length_of(0x00000100), 24); // gaps are not noticed
    EXPECT_EQ(prefix_length_of(0x80000001), 32);
}

// The three ways of storing 10.0.0.5 in 10.0.0.0/24 that yb_ip_addr.h lists, on this little-endian host.
TEST_F(address_alias, host_order_integers_arrive_as_another_address) {
    const auto asked = asked_for(address_of(0x0A000005), prefix_of(0x0A000000, 0xFFFFFF00));
    EXPECT_EQ(asked.address, "5.0.0.10");
    EXPECT_EQ(asked.prefix_length, 24);
    EXPECT_EQ(asked.broadcast, "255.0.0.10");
}

TEST_F(address_alias, network_order_bytes_arrive_with_broadcast_and_a_prefix_of_32) {
    const auto asked = asked_for(address_of(inet_addr("10.0.0.5")),
                                 prefix_of(inet_addr("10.0.0.0"), inet_addr("255.255.255.0")));
    EXPECT_EQ(asked.address, "10.0.0.5");
    EXPECT_EQ(asked.prefix_length, 32);
    EXPECT_EQ(asked.broadcast, "10.0.0.255");
}

TEST_F(address_alias, bytes_with_an_integer_mask_arrive_with_the_prefix_and_a_foreign_broadcast) {
    const uint32_t bytes = inet_addr("10.0.0.5");
    const auto asked = asked_for(address_of(bytes), prefix_of(bytes & 0xFFFFFF00, 0xFFFFFF00));
    EXPECT_EQ(asked.address, "10.0.0.5");
    EXPECT_EQ(asked.prefix_length, 24);
    EXPECT_EQ(asked.broadcast, "255.0.0.5");
}

TEST_F(address_alias, no_mask_gives_the_address_with_its_prefix_and_its_broadcast) {
    // Whatever the upper bits: a prefix length of 24 needs the low eight clear, and these end up in the
    // broadcast.
    for (uint32_t upper = 0; upper < 0x1000; upper++) {
        const uint32_t bytes = inet_addr("10.0.0.5");
        const uint32_t mask = upper << 20 | 0x100;
        const auto asked = asked_for(address_of(bytes), prefix_of(bytes & mask, mask));
        ASSERT_EQ(asked.prefix_length, 24);
        ASSERT_TRUE(asked.broadcast.starts_with("255."));
    }
}
