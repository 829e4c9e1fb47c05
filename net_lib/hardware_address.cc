// SPDX-License-Identifier: Apache-2.0
//
// Telling hardware addresses apart by their length and content. Touches neither
// kernel nor database.
#include "ybnet/net_lib.h"

#include <cstdio>

#include "net_lib/net_lib_log.h"

namespace {

constexpr int32_t long_address_size = 20; // InfiniBand
constexpr int32_t short_address_size = 6; // Ethernet
constexpr int32_t compared_bytes = 12;    // of a long one

} // namespace

// Writes nothing to the log, trace lines included: a bad length is reported on standard error.
YB_EXPORT uint8_t yb_net_is_addr_eth(const uint8_t *addr, int32_t addr_len) {
    switch (addr_len) {
    case long_address_size: {
        uint32_t sum = 0;
        for (int32_t i = 0; i < compared_bytes; i++)
            sum += addr[i];
        return sum != 0 ? 1 : 0;
    }
    case short_address_size:
        return 0;
    default:
        (void)fprintf(stderr, "Invalid address length %d \n", addr_len);
        return 1;
    }
}
