// SPDX-License-Identifier: Apache-2.0
//
// See port_netdev.h. The link kind "yb_netdev" is registered by the switch's
// kernel driver, which owns the meaning of the two private attributes.
#include "net_lib/port_netdev.h"

#include <cstring>
#include <net/if.h>

#include "net_lib/net_lib_log.h"
#include "net_lib/rtnl/link_request.h"
#include "net_lib/rtnl/request.h"
#include "net_lib_db/text_field.h"
#include "ybnet/platform/yb_util.h"

namespace {

constexpr const char *link_kind = "yb_netdev";

// Private attributes of the link kind, inside IFLA_INFO_DATA.
constexpr int attribute_value1 = 1;
constexpr int attribute_value2 = 2;

// Smaller than the request; kept.
constexpr int32_t private_attributes_bound = 1024;

// A name fits the request by far, so the builders cannot fail here.
void build_create(link_request *request, const char *name, const yb_net_port_params_t &port) {
    struct nlmsghdr *const header = &request->header;
    header->nlmsg_type = RTM_NEWLINK;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_EXCL | NLM_F_CREATE;
    addattr_l(header, YB_NET_RTNL_REQ_SIZE, IFLA_IFNAME, name, static_cast<int32_t>(strlen(name) + 1));
    struct rtattr *const link_info = addattr_nest(header, YB_NET_RTNL_REQ_SIZE, IFLA_LINKINFO);
    addattr_l(header, YB_NET_RTNL_REQ_SIZE, IFLA_INFO_KIND, link_kind,
              static_cast<int32_t>(strlen(link_kind))); // without its NUL
    struct rtattr *const info_data = addattr_nest(header, YB_NET_RTNL_REQ_SIZE, IFLA_INFO_DATA);
    addattr32(header, private_attributes_bound, attribute_value1, port.value1);
    addattr32(header, private_attributes_bound, attribute_value2, port.value2);
    addattr_nest_end(header, info_data);
    addattr_nest_end(header, link_info);
}

} // namespace

yb_status_t yb_net_port_if_set(yb_access_cmd_t cmd, const yb_net_interface_params_t *params) {
    NET_LIB_TRACE_FUNCTION();
    const auto name = text_of_field(params->name);
    const size_t size = strlen(name.text) + 1;
    if (size == 1) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: \"%s\" is not a valid device identifier\n", __func__, name.text);
        return YB_STATUS_PARAM_ERROR;
    }
    if (size > YB_NET_IF_NAME_SIZE) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: \"%s\" name is too long, max len (%d)\n", __func__, name.text,
                    YB_NET_IF_NAME_SIZE);
        return YB_STATUS_PARAM_ERROR;
    }
    if (rtnl_open() != 0)
        return YB_STATUS_ERROR; // said on standard error

    link_request request = {};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(struct ifinfomsg));
    request.link.ifi_family = AF_NETLINK; // not AF_UNSPEC: kept, the kernel does not look at it
    switch (cmd) {
    case YB_ACCESS_CMD_CREATE:
        build_create(&request, name.text, params->by_type.port);
        break;
    case YB_ACCESS_CMD_DESTROY:
        request.header.nlmsg_type = RTM_DELLINK;
        request.header.nlmsg_flags = NLM_F_REQUEST;
        request.link.ifi_index = static_cast<int>(if_nametoindex(name.text));
        if (request.link.ifi_index == 0) {
            NET_LIB_LOG(YB_LEVEL_ERROR, "Cannot find device \"%s\"\n", name.text);
            return YB_STATUS_PARAM_ERROR;
        }
        break;
    default:
        return YB_STATUS_CMD_UNSUPPORTED;
    }
    if (rtnl_talk(&request.header) != 0) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: rtnl_talk: failed to %s port netdev \"%s\".\n", __func__,
                    yb_access_cmd_str(cmd), name.text);
        return YB_STATUS_ERROR;
    }
    return YB_STATUS_SUCCESS;
}
