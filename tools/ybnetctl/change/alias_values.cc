// SPDX-License-Identifier: Apache-2.0
//
// See alias_values.h.
#include "tools/ybnetctl/change/alias_values.h"

#include <arpa/inet.h>
#include <cstring>
#include <strings.h>

namespace ybnetctl {

namespace {

std::string dotted(uint32_t as_stored) {
    std::array<char, INET_ADDRSTRLEN> text{};
    in_addr address = {};
    address.s_addr = as_stored;
    (void)inet_ntop(AF_INET, &address, text.data(), text.size()); // has the room
    return text.data();
}

// As the library measures a mask: by its lowest set bit.
unsigned measured_length(uint32_t mask) {
    const int lowest = ffs(static_cast<int>(mask));
    return lowest == 0 ? 0 : static_cast<unsigned>(33 - lowest);
}

} // namespace

std::optional<typed_address> parse_address(const std::string &text) {
    const size_t slash = text.find('/');
    typed_address typed;
    if (slash == std::string::npos ||
        inet_pton(AF_INET, text.substr(0, slash).c_str(), typed.octets.data()) != 1 ||
        text.find('\0') != std::string::npos)
        return std::nullopt;
    const std::string length = text.substr(slash + 1);
    if (length.empty() || length.size() > 2 || length.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    typed.prefix_length = static_cast<unsigned>(std::stoul(length));
    return typed.prefix_length <= 32 ? std::optional(typed) : std::nullopt;
}

alias_values alias_values_of(const typed_address &typed, bool connected) {
    uint32_t address = 0;
    std::memcpy(&address, typed.octets.data(), sizeof(address));
    const uint32_t counted_mask = typed.prefix_length == 0 ? 0 : UINT32_MAX << (32 - typed.prefix_length);
    const uint32_t mask = connected ? counted_mask : htonl(counted_mask);

    alias_values values;
    values.address.version = YB_IP_VERSION_IPV4;
    values.address.address.ipv4 = address;
    values.network.version = YB_IP_VERSION_IPV4;
    values.network.address.ipv4_prefix.addr = address & mask;
    values.network.address.ipv4_prefix.mask = mask;
    values.local = dotted(address);
    values.prefix_length = measured_length(mask);
    values.broadcast = dotted(address | ~mask);
    return values;
}

} // namespace ybnetctl
