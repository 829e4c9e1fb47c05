// SPDX-License-Identifier: Apache-2.0
//
// See netdev_left.h.
#include "tools/ybnetctl/change/netdev_left.h"

#include <array>
#include <net/if.h>

#include "tools/ybnetctl/change/inside_namespace.h"
#include "tools/ybnetctl/change/names.h"
#include "tools/ybnetctl/see/own_namespace.h"

namespace ybnetctl {

namespace {

std::string name_of(uint32_t ifindex) {
    std::array<char, IF_NAMESIZE> name{};
    return if_indextoname(ifindex, name.data()) == nullptr ? "" : name.data();
}

} // namespace

netdev_remains netdev_left(const library &lib, const yb_net_interface_record_t &record) {
    const std::string ns = text_of(record.params.ns_name);
    const std::string name = text_of(record.params.name);
    const std::string where = ns.empty() ? "" : " in namespace " + ns;
    constexpr const char *look = "ybnetctl audit # what is there";
    if (!namespace_exists(ns))
        return {}; // and all that was in it
    if (const std::string here = ns.empty() ? named_instead_of_default() : ""; !here.empty())
        return {"whether its netdev is gone cannot be told: " + not_the_default_one(here),
                "the same outside of namespace " + here};
    try {
        const inside_namespace there(ns);
        if (lib.netdev_index("", name) != 0)
            return {"its netdev " + name + where + " exists, and would belong to nobody without its record",
                    "ybnetctl interface destroy " + std::to_string(record.sys_ifindex) + " # both"};
        // Renamed, it is the record's all the same.
        if (const std::string other = name_of(record.linux_ifindex); !other.empty() && other != name)
            return {"its Linux ifindex " + std::to_string(record.linux_ifindex) + where + " is the netdev " +
                        other + "'s, which may be its own under another name",
                    look};
        return {};
    } catch (const failure &unseen) {
        return {"whether its netdev is gone cannot be told: " + unseen.thing + ' ' + unseen.reason, look};
    }
}

} // namespace ybnetctl
