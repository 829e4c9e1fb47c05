// SPDX-License-Identifier: Apache-2.0
//
// Ports and LAGs in a copy of their segment, as the queries show them. What is
// shown is what lies in the table and in the maps; notes say where the two
// disagree, and where the library would answer something else.
#ifndef YBNET_YBNETCTL_SEE_PORT_VIEW_H
#define YBNET_YBNETCTL_SEE_PORT_VIEW_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/ybnetctl/segments/port_search.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

struct port_view {
    uint16_t bucket = 0;
    uint32_t sys_ifindex = 0;
    std::string name;
    std::optional<uint32_t> log_port;
    std::optional<unsigned> protocol;
    std::optional<uint32_t> lag; // logical port of the LAG that it is a member of
    std::optional<unsigned> mlag_id;
    bool uncounted = false; // bucket_state::uncounted

    [[nodiscard]] bool is_lag() const {
        return log_port && YB_NET_LOG_PORT_IS_LAG(*log_port);
    }
};

port_view view_of(const ports_body &body, uint16_t bucket);

// Every recorded port, by system ifindex, those that the library does not list among them.
std::vector<port_view> ports_in(const ports_body &body);

// Where the library's answers are not this record, and where the maps say something else, in words.
std::vector<std::string> port_notes(const ports_body &body, const port_view &one);

// Buckets that are not as they should be, in words, for all of the table.
std::vector<std::string> table_notes(const ports_body &body, const std::vector<port_view> &all);

// One LAG: of the table, or known only by what still names it.
struct lag_view {
    uint32_t log_port = 0;
    std::optional<port_view> port; // its record
    std::optional<unsigned> mlag_id;
    std::vector<port_view> members;
    std::vector<std::string> notes;

    [[nodiscard]] uint32_t index() const {
        return YB_NET_LOG_PORT_LAG_INDEX(log_port);
    }
};

// By logical port: every recorded LAG, and every one that a member or the map of MLAG ids names.
std::vector<lag_view> lags_in(const ports_body &body, const std::vector<port_view> &ports);

struct mlag_view {
    unsigned id = 0;
    std::optional<uint32_t> log_port; // of the LAG that net_lib_db_lag_get() answers
    std::optional<port_view> lag;     // its record
    std::vector<std::string> notes;
};

// Every id that a LAG is bound to, or that still names one.
std::vector<mlag_view> mlags_in(const ports_body &body, const std::vector<port_view> &ports);

void print_ports(session &run, const std::vector<port_view> &shown);
void print_notes(session &run, const std::vector<std::string> &notes);
json to_json(const port_view &one);

} // namespace ybnetctl

#endif
