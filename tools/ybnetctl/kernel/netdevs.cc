// SPDX-License-Identifier: Apache-2.0
//
// See netdevs.h.
#include "tools/ybnetctl/kernel/netdevs.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <net/if.h>
#include <netlink/cache.h>
#include <netlink/route/link.h>
#include <netlink/route/link/vlan.h>
#include <netlink/socket.h>

namespace ybnetctl {

namespace {

struct free_socket {
    void operator()(nl_sock *socket) const {
        nl_socket_free(socket); // closes its descriptor
    }
};
struct free_cache {
    void operator()(nl_cache *cache) const {
        nl_cache_free(cache);
    }
};

netdev netdev_of(rtnl_link *link) {
    const auto text = [](const char *string) { return std::string(string != nullptr ? string : ""); };
    netdev device;
    device.ifindex = static_cast<uint32_t>(rtnl_link_get_ifindex(link));
    device.name = text(rtnl_link_get_name(link));
    device.kind = text(rtnl_link_get_type(link));
    if (rtnl_link_is_vlan(link) != 0)
        device.vlan_id = static_cast<uint16_t>(rtnl_link_vlan_get_id(link));
    device.up = (rtnl_link_get_flags(link) & IFF_UP) != 0;
    device.carrier = rtnl_link_get_carrier(link) != 0;
    return device;
}

// Fills the view; "" or what failed. Takes the descriptor.
std::string dump_links(unique_descriptor descriptor, namespace_view &view) {
    const std::unique_ptr<nl_sock, free_socket> socket(nl_socket_alloc());
    if (!socket)
        return "no memory";
    int failed = nl_socket_set_fd(socket.get(), NETLINK_ROUTE, descriptor.number());
    if (failed != 0)
        return nl_geterror(failed);
    (void)descriptor.release();
    nl_cache *filled = nullptr;
    failed = rtnl_link_alloc_cache(socket.get(), AF_UNSPEC, &filled);
    if (failed != 0)
        return nl_geterror(failed);
    const std::unique_ptr<nl_cache, free_cache> links(filled);
    for (nl_object *at = nl_cache_get_first(links.get()); at != nullptr; at = nl_cache_get_next(at))
        view.add(netdev_of(reinterpret_cast<rtnl_link *>(at)));
    return "";
}

} // namespace

std::string state_in_words(const netdev &device) {
    if (!device.up)
        return "down";
    return device.carrier ? "up" : "up, no carrier";
}

void namespace_view::add(netdev device) {
    by_ifindex_[device.ifindex] = netdevs_.size();
    by_name_[device.name] = netdevs_.size();
    netdevs_.push_back(std::move(device));
}

const netdev *namespace_view::by_ifindex(uint32_t ifindex) const {
    const auto found = by_ifindex_.find(ifindex);
    return found == by_ifindex_.end() ? nullptr : &netdevs_[found->second];
}

const netdev *namespace_view::by_name(const std::string &wanted) const {
    const auto found = by_name_.find(wanted);
    return found == by_name_.end() ? nullptr : &netdevs_[found->second];
}

namespace_view view_namespace(const std::string &name) {
    namespace_view view;
    view.name = name;
    route_socket opened = open_route_socket(name, 0);
    view.identity = opened.of;
    if (opened.descriptor.number() < 0) {
        view.seen = opened.error == ENOENT ? sight::missing : sight::unseen;
        view.reason = opened.step + ": " + std::strerror(opened.error);
        return view;
    }
    view.reason = dump_links(std::move(opened.descriptor), view);
    view.seen = view.reason.empty() ? sight::seen : sight::unseen;
    return view;
}

} // namespace ybnetctl
