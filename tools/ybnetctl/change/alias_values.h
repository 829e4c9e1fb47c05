// SPDX-License-Identifier: Apache-2.0
//
// An address as it is typed, and the values that make the library send it. yb_ip_addr.h says why the library cannot
// be made to send both the prefix length and the broadcast address of a subnet: this offers the two ways that keep
// the address.
#ifndef YBNET_YBNETCTL_CHANGE_ALIAS_VALUES_H
#define YBNET_YBNETCTL_CHANGE_ALIAS_VALUES_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "ybnet/yb_ip_addr.h"

namespace ybnetctl {

struct typed_address {
    std::array<uint8_t, 4> octets = {};
    unsigned prefix_length = 0;
};

// "10.0.0.5/24": the length is part of it.
std::optional<typed_address> parse_address(const std::string &text);

struct alias_values {
    yb_ip_addr_t address = {};
    yb_ip_addr_t network = {};

    // What the kernel gets.
    std::string local;
    unsigned prefix_length = 0;
    std::string broadcast;
};

// connected: with the prefix length as typed, and so the route; else with the subnet's broadcast address.
alias_values alias_values_of(const typed_address &typed, bool connected);

} // namespace ybnetctl

#endif
