// SPDX-License-Identifier: Apache-2.0
//
// A caller whose stack knows the whole packet descriptor, and so declares
// yb_net_resolve_l2_attribute() with it: apart from net_lib.h, which knows its
// head only.
#include "tests/unit/long_descriptor_caller.h"

#include <cstring>

namespace {

struct whole_descriptor {
    uint8_t bytes[96];
};

} // namespace

extern "C" yb_status_t yb_net_resolve_l2_attribute(yb_net_l2_address_t *l2_address,
                                                   whole_descriptor descriptor);

yb_status_t resolve_with_whole_descriptor(yb_net_l2_address_t *l2_address,
                                          const yb_net_packet_descriptor_t &head) {
    whole_descriptor descriptor;
    memset(&descriptor, 0x77, sizeof(descriptor));
    memcpy(descriptor.bytes, head.bytes, sizeof(head.bytes));
    return yb_net_resolve_l2_attribute(l2_address, descriptor);
}
