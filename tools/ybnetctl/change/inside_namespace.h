// SPDX-License-Identifier: Apache-2.0
//
// Named network namespaces (ip-netns(8)): which one this process is in, netdevs inside another one without running a
// command, and being in another one for the length of a scope.
#ifndef YBNET_YBNETCTL_CHANGE_INSIDE_NAMESPACE_H
#define YBNET_YBNETCTL_CHANGE_INSIDE_NAMESPACE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace ybnetctl {

// Whether "" or a name stands for the namespace that the calling thread is in.
bool is_own_namespace(const std::string &name);

// A number for the namespace with this name, "" for the one that the calling thread is in; 0 when there is none.
uint64_t namespace_number(const std::string &name = "");

// False only when there is certainly none of this name; "" always exists.
bool namespace_exists(const std::string &name);

// Moves the calling thread into a named namespace and back. Throws failure when that is refused.
class inside_namespace {
  public:
    explicit inside_namespace(const std::string &name);
    ~inside_namespace();
    inside_namespace(const inside_namespace &) = delete;
    inside_namespace &operator=(const inside_namespace &) = delete;

  private:
    int old_ = -1; // -1: it was there already
};

// The netdev's Linux ifindex, 0 for none. In a namespace that cannot be entered there is none; *problem (may be NULL)
// then says why.
uint32_t netdev_index(const std::string &ns, const std::string &name, std::string *problem = nullptr);

// The 802.1Q id that the kernel has for a VLAN netdev; nothing when it is none, or cannot be looked at.
std::optional<unsigned> vlan_id_in_kernel(const std::string &ns, const std::string &name);

} // namespace ybnetctl

#endif
