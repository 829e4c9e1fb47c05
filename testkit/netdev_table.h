// SPDX-License-Identifier: Apache-2.0
//
// The netdevs and network namespaces of a test, which exist in the shared
// directory only: net/NAMESPACE/NAME/ with one small file for each property.
// Changes in the test's own namespace are announced to the event sockets.
#ifndef YBNET_TESTKIT_NETDEV_TABLE_H
#define YBNET_TESTKIT_NETDEV_TABLE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace testkit {

struct netdev {
    std::string ns; // "" is the test's own namespace
    std::string name;
    uint32_t ifindex = 0;
    uint32_t flags = 0; // as set; IFF_RUNNING and IFF_LOWER_UP follow from IFF_UP and carrier
    bool carrier = true;
    uint32_t parent = 0; // ifindex of the netdev that it lies on: it goes with it
    std::string kind;

    uint32_t shown_flags() const;
};

// Callers hold the directory's lock. Changes return 0 or an errno, as the kernel gives it.
std::vector<netdev> netdevs_in(const std::string &ns);
std::optional<netdev> netdev_named(const std::string &ns, const std::string &name);
std::optional<netdev> netdev_numbered(const std::string &ns, uint32_t ifindex);

int netdev_add(netdev device, uint32_t *out_ifindex);
int netdev_remove(const std::string &ns, const std::string &name);
int netdev_rename(const std::string &ns, const std::string &name, const std::string &new_name);
int netdev_move(const std::string &ns, const std::string &name, const std::string &target);
// Sets the flags that mask selects.
int netdev_set_flags(const std::string &ns, const std::string &name, uint32_t flags, uint32_t mask);
int netdev_set_carrier(const std::string &ns, const std::string &name, bool carrier);

bool namespace_exists(const std::string &ns);
std::vector<std::string> namespaces(); // the named ones
int namespace_add(const std::string &ns);
int namespace_remove(const std::string &ns);

} // namespace testkit

#endif
