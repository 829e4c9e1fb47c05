// SPDX-License-Identifier: Apache-2.0
//
// Adding and removing an IPv4 alias address on an interface's netdev by one
// address request (rtnetlink(7)). yb_ip_addr.h says what the stored values turn
// into; the arithmetic here is on host integers.
#include "ybnet/net_lib.h"

#include <cstring>
#include <net/if.h>
#include <strings.h>
#include <sys/socket.h>

#include "net_lib/net_lib_log.h"
#include "net_lib/rtnl/attributes.h"
#include "net_lib/rtnl/request.h"
#include "net_lib_db/text_field.h"
#include "ybnet/net_lib_db.h"

namespace {

struct address_request {
    struct nlmsghdr header;
    struct ifaddrmsg address;
    std::byte attributes[YB_NET_RTNL_REQ_SIZE - sizeof(struct nlmsghdr) - sizeof(struct ifaddrmsg)];
};
static_assert(sizeof(address_request) == YB_NET_RTNL_REQ_SIZE);

constexpr uint32_t infinite_lifetime = 0xFFFFFFFF;

// Measured by the lowest set bit alone: gaps in the mask go unnoticed.
uint8_t __ip_mask_to_prefix_len(const yb_ip_addr_t &prefix) {
    const int lowest = ffs(static_cast<int>(prefix.address.ipv4_prefix.mask));
    return static_cast<uint8_t>(lowest == 0 ? 0 : 33 - lowest);
}

yb_status_t __ip_addr_in_subnet_check(const yb_ip_addr_t &addr, const yb_ip_addr_t &prefix) {
    return (addr.address.ipv4 & prefix.address.ipv4_prefix.mask) == prefix.address.ipv4_prefix.addr
               ? YB_STATUS_SUCCESS
               : YB_STATUS_PARAM_ERROR;
}

uint32_t __ip_broadcast_get(const yb_ip_addr_t &addr, const yb_ip_addr_t &prefix) {
    return addr.address.ipv4 | ~prefix.address.ipv4_prefix.mask;
}

// The attributes of a request to add (with label) or delete an address. 0, or 1, with a line on standard
// error, when the label does not fit.
int32_t append_attributes(struct nlmsghdr *header, yb_access_cmd_t cmd, const char *label, uint32_t address,
                          uint32_t broadcast) {
    int32_t result = 0;
    const auto append = [&](int32_t type, const void *data, size_t size) {
        if (result == 0)
            result = __alias_addattr_l(header, YB_NET_RTNL_REQ_SIZE, type, data, static_cast<int32_t>(size));
    };
    append(IFA_LOCAL, &address, sizeof(address));
    append(IFA_ADDRESS, &address, sizeof(address));
    append(IFA_BROADCAST, &broadcast, sizeof(broadcast));
    if (cmd == YB_ACCESS_CMD_ADD)
        append(IFA_LABEL, label, strnlen(label, YB_NET_RTNL_REQ_SIZE) + 1); // that long does not fit either
    struct ifa_cacheinfo lifetime = {};
    lifetime.ifa_prefered = infinite_lifetime;
    lifetime.ifa_valid = infinite_lifetime;
    append(IFA_CACHEINFO, &lifetime, sizeof(lifetime));
    return result;
}

} // namespace

YB_EXPORT yb_status_t yb_net_virtual_net_if_alias_set(yb_access_cmd_t cmd, uint32_t sys_ifindex,
                                                      const char *label, const yb_ip_addr_t *ip_addr,
                                                      const yb_ip_addr_t *ip_prefix) {
    NET_LIB_TRACE_FUNCTION();
    yb_net_interface_record_t record;
    yb_status_t status = net_lib_db_interface_get(sys_ifindex, &record);
    if (status != YB_STATUS_SUCCESS)
        return status;
    const auto name = text_of_field(record.params.name);
    const uint32_t ifindex = if_nametoindex(name.text);
    if (ifindex == 0) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_virtual_net_if_alias_set: Cannot find device \"%s\"\n",
                    name.text);
        return YB_STATUS_PARAM_ERROR;
    }
    if (ip_addr->version != YB_IP_VERSION_IPV4 || ip_prefix->version != YB_IP_VERSION_IPV4)
        return YB_STATUS_PARAM_ERROR;
    status = __ip_addr_in_subnet_check(*ip_addr, *ip_prefix);
    if (status != YB_STATUS_SUCCESS)
        return status;
    if (cmd != YB_ACCESS_CMD_ADD && cmd != YB_ACCESS_CMD_DELETE)
        return YB_STATUS_CMD_UNSUPPORTED;

    const uint32_t broadcast = __ip_broadcast_get(*ip_addr, *ip_prefix);
    address_request request = {};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(struct ifaddrmsg));
    request.header.nlmsg_type = cmd == YB_ACCESS_CMD_ADD ? RTM_NEWADDR : RTM_DELADDR;
    request.header.nlmsg_flags =
        cmd == YB_ACCESS_CMD_ADD ? NLM_F_REQUEST | NLM_F_EXCL | NLM_F_CREATE : NLM_F_REQUEST;
    request.address.ifa_family = AF_INET;
    request.address.ifa_prefixlen = __ip_mask_to_prefix_len(*ip_prefix);
    request.address.ifa_index = ifindex;
    if (append_attributes(&request.header, cmd, label, ip_addr->address.ipv4, broadcast) != 0)
        return YB_STATUS_ERROR; // said on standard error
    // Without rtnl_open(), kept: in a process that has sent no other request this fails.
    if (rtnl_talk(&request.header) != 0) {
        NET_LIB_LOG(
            YB_LEVEL_ERROR,
            "yb_net_virtual_net_if_alias_set: rtnl_talk: ip addr alias of virtual interface, op[%u]\n", cmd);
        return YB_STATUS_ERROR;
    }
    return YB_STATUS_SUCCESS;
}
