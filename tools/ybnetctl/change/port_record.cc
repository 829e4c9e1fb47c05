// SPDX-License-Identifier: Apache-2.0
//
// See port_record.h.
#include "tools/ybnetctl/change/port_record.h"

#include <algorithm>
#include <cstring>

#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/segments/port_search.h"
#include "tools/ybnetctl/segments/segment_copy.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db_layout.h"

namespace ybnetctl {

namespace {

bool is_all_zero(const yb_net_port_info_t &info) {
    const auto *const bytes = reinterpret_cast<const unsigned char *>(&info);
    return std::all_of(bytes, bytes + sizeof(info), [](unsigned char each) { return each == 0; });
}

// A record may be all zeros, if rarely: then the table itself has to tell.
bool is_in_table(session &run, library &lib, uint32_t sys_ifindex) {
    std::vector<std::byte> bytes = lib.rehearsed() != nullptr ? lib.rehearsed()->bytes_of(segment_kind::ports)
                                                              : read_contents(run, segment_kind::ports).bytes;
    if (bytes.size() < sizeof(ports_body))
        return false;
    return !buckets_of(*reinterpret_cast<const ports_body *>(bytes.data()), sys_ifindex).empty();
}

} // namespace

std::string port_thing(uint32_t sys_ifindex) {
    return "port " + std::to_string(sys_ifindex);
}

yb_net_port_info_t port_record_of(session &run, library &lib, uint32_t sys_ifindex) {
    yb_net_port_info_t info = {};
    const call_answer answer = lib.call_plainly([&] { return yb_net_port_get(sys_ifindex, &info); });
    if (answer.status == YB_STATUS_ENTRY_NOT_FOUND ||
        (answer.done() && is_all_zero(info) && !is_in_table(run, lib, sys_ifindex)))
        throw failure{exit_code::not_found, port_thing(sys_ifindex), "no record has this system ifindex",
                      "ybnetctl port list", yb_status_t{YB_STATUS_ENTRY_NOT_FOUND}};
    if (!answer.done())
        throw failure_of(port_thing(sys_ifindex), answer, "its record could not be read", "ybnetctl status");
    return info;
}

json port_json(uint32_t sys_ifindex, const yb_net_port_info_t &info) {
    net_lib_port_entry_t entry = {};
    entry.sys_ifindex = sys_ifindex;
    entry.info = info;
    json all = json::object();
    for (const field &each : port_entry_structure.fields)
        if (each.kind != field_kind::reserved && each.offset < offsetof(net_lib_port_entry_t, deleted))
            all[each.name] = field_json(each, reinterpret_cast<const std::byte *>(&entry));
    return all;
}

} // namespace ybnetctl
