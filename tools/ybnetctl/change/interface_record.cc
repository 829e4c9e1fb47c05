// SPDX-License-Identifier: Apache-2.0
//
// See interface_record.h.
#include "tools/ybnetctl/change/interface_record.h"

#include "tools/ybnetctl/change/names.h"
#include "tools/ybnetctl/see/interface_view.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db_layout.h"

namespace ybnetctl {

std::string interface_thing(uint32_t sys_ifindex) {
    return "interface " + std::to_string(sys_ifindex);
}

yb_net_interface_record_t record_of(library &lib, uint32_t sys_ifindex) {
    yb_net_interface_record_t record = {};
    const call_answer answer =
        lib.call_plainly([&] { return yb_net_interface_params_get(sys_ifindex, &record); });
    if (answer.status == YB_STATUS_ENTRY_NOT_FOUND)
        throw failure{exit_code::not_found, interface_thing(sys_ifindex), "no record has this system ifindex",
                      "ybnetctl interface list", answer.status};
    if (!answer.done())
        throw failure_of(interface_thing(sys_ifindex), answer, "its record could not be read",
                         "ybnetctl status");
    return record;
}

json to_json(const yb_net_interface_record_t &record) {
    net_lib_db_interface_entry_t entry = {};
    entry.record = record;
    json all = to_json(view_of(entry, 0));
    all.erase("slot"); // the library does not say
    return all;
}

change_result made_result(library &lib, uint32_t sys_ifindex) {
    const yb_net_interface_record_t record = record_of(lib, sys_ifindex);
    const std::string ns = text_of(record.params.ns_name);
    change_result result;
    result.document["interface"] = to_json(record);
    result.sentence = interface_thing(sys_ifindex) + ": " + text_of(record.params.name) +
                      (ns.empty() ? "" : " in namespace " + ns) + ", Linux ifindex " +
                      std::to_string(record.linux_ifindex);
    return result;
}

} // namespace ybnetctl
