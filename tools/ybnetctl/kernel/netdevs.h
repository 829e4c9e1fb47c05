// SPDX-License-Identifier: Apache-2.0
//
// The kernel's netdevs of one network namespace, by a dump of its links
// (rtnetlink(7), read with libnl-route-3).
#ifndef YBNET_YBNETCTL_KERNEL_NETDEVS_H
#define YBNET_YBNETCTL_KERNEL_NETDEVS_H

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/ybnetctl/kernel/namespaces.h"

namespace ybnetctl {

struct netdev {
    uint32_t ifindex = 0;
    std::string name;
    std::string kind;                // "vlan", "bridge", "yb_netdev"; "" for lo and hardware
    std::optional<uint16_t> vlan_id; // the tag, of kind "vlan"
    bool up = false;                 // administratively
    bool carrier = false;
};

// "up", "up, no carrier" or "down".
std::string state_in_words(const netdev &device);

enum class sight {
    seen,    // the netdevs are what the kernel has
    missing, // there is no such namespace
    unseen   // it could not be looked at: reason says why
};

struct namespace_view {
    std::string name; // "" is the caller's own
    sight seen = sight::missing;
    std::string reason;
    namespace_identity identity;

    void add(netdev device);
    [[nodiscard]] const std::vector<netdev> &netdevs() const {
        return netdevs_;
    }
    // NULL when there is none.
    [[nodiscard]] const netdev *by_ifindex(uint32_t ifindex) const;
    [[nodiscard]] const netdev *by_name(const std::string &wanted) const;

  private:
    std::vector<netdev> netdevs_;
    std::unordered_map<uint32_t, size_t> by_ifindex_;
    std::unordered_map<std::string, size_t> by_name_;
};

namespace_view view_namespace(const std::string &name);

} // namespace ybnetctl

#endif
