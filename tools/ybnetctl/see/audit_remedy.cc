// SPDX-License-Identifier: Apache-2.0
//
// See audit_remedy.h.
#include "tools/ybnetctl/see/audit_remedy.h"

#include "tools/ybnetctl/shell_word.h"

namespace ybnetctl {

namespace {

std::string destroy(const recorded_interface &record, const std::string &how = "") {
    return "ybnetctl interface destroy " + std::to_string(record.sys_ifindex) + how;
}

constexpr const char *record_of_a_netdev_that_is_gone = " --record-only";
constexpr const char *record_alone = " --record-only --force";

// The netdev goes by its name, so one that has the name and is the library's kind goes with its record.
bool is_destroyed_by_name(const recorded_interface &record) {
    return record.type != YB_L2_INTERFACE_TYPE_PKEY;
}

std::string remedy_of_kind(const recorded_interface &record, const netdev &device) {
    if (device.kind == "vlan" && record.type == YB_L2_INTERFACE_TYPE_PORT_VLAN && device.vlan_id)
        return "ybnetctl interface edit " + std::to_string(record.sys_ifindex) + " --vid " +
               std::to_string(*device.vlan_id);
    if (device.kind == "vlan" && record.type == YB_L2_INTERFACE_TYPE_VLAN)
        return destroy(record) + " # the netdev, too; then create it anew";
    return destroy(record, record_alone) + " # the netdev is somebody else's and stays";
}

// Kernels before 6.2 rename a netdev only while it is down.
std::string rename(const recorded_interface &record, const netdev &device) {
    const std::string set = ip_in(record.ns) + "link set dev ";
    const std::string now = shell_word(device.name);
    const std::string then = shell_word(record.name);
    const std::string named = set + now + " name " + then;
    return device.up ? set + now + " down && " + named + " && " + set + then + " up" : named;
}

} // namespace

std::string remedy_of(const audited_record &audited) {
    const recorded_interface &record = audited.record;
    switch (audited.what) {
    case finding::ok:
    case finding::unseen:
        return "";
    case finding::kind:
        return remedy_of_kind(record, *audited.device);
    case finding::duplicate:
        return destroy(record, record_alone) + " # one of the two";
    case finding::renamed:
        return rename(record, *audited.device);
    case finding::other_ifindex:
        return is_destroyed_by_name(record) ? destroy(record) + " # the netdev, too; then create it anew"
                                            : destroy(record, record_alone);
    case finding::moved:
        return ip_in(audited.found_in) + "link set dev " + shell_word(record.name) + " netns " +
               (record.ns.empty() ? "$$" : shell_word(record.ns)); // $$: where the shell is, as the audit was
    case finding::gone:
    case finding::no_namespace:
        break;
    }
    return destroy(record, record_of_a_netdev_that_is_gone);
}

} // namespace ybnetctl
