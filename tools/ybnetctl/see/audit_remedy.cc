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
        return ip_in(record.ns) + "link set dev " + shell_word(audited.device->name) + " name " +
               shell_word(record.name);
    case finding::other_ifindex:
        return is_destroyed_by_name(record) ? destroy(record) + " # the netdev, too; then create it anew"
                                            : destroy(record, record_alone);
    case finding::moved:
        return ip_in(audited.found_in) + "link set dev " + shell_word(record.name) + " netns " +
               (record.ns.empty() ? "1" : shell_word(record.ns));
    case finding::gone:
    case finding::no_namespace:
        break;
    }
    return destroy(record, record_of_a_netdev_that_is_gone);
}

} // namespace ybnetctl
