// SPDX-License-Identifier: Apache-2.0
//
// Reads the L2 address out of a received packet's descriptor. Needs neither
// database.
#include "ybnet/net_lib.h"

#include <cstring>

#include "net_lib/net_lib_log.h"

namespace {

constexpr size_t format_offset = 4;
constexpr size_t param_offset = 12;
constexpr size_t address_offset = 14;

// Most significant byte first.
uint16_t two_bytes(const yb_net_packet_descriptor_t &descriptor, size_t offset) {
    return static_cast<uint16_t>(descriptor.bytes[offset] << 8 | descriptor.bytes[offset + 1]);
}

} // namespace

YB_EXPORT yb_status_t yb_net_resolve_l2_attribute(yb_net_l2_address_t *l2_address,
                                                  yb_net_packet_descriptor_t descriptor) {
    NET_LIB_TRACE_FUNCTION();
    if (l2_address == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_resolve_l2_attribute: l2_address is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    const uint16_t format = two_bytes(descriptor, format_offset);
    if (format != 0) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_resolve_l2_attribute: unknown packet format. id:%#x \n", format);
        return YB_STATUS_ERROR;
    }
    static_assert(address_offset + sizeof(l2_address->l2_addr) == sizeof(descriptor.bytes));
    l2_address->l2_type = 0;
    memcpy(l2_address->l2_addr, &descriptor.bytes[address_offset], sizeof(l2_address->l2_addr));
    l2_address->l2_param = two_bytes(descriptor, param_offset);
    return YB_STATUS_SUCCESS;
}
