// SPDX-License-Identifier: Apache-2.0
//
// LAGs and MLAG ids of port_view.h: put together from the records of the LAGs, the
// records of their members, and the three maps, which all go their own ways.
#include <map>

#include "tools/ybnetctl/see/port_view.h"
#include "tools/ybnetctl/segments/decode.h"

namespace ybnetctl {

namespace {

const port_view *record_of(const std::vector<port_view> &ports, uint32_t log_port) {
    for (const port_view &one : ports) {
        if (one.log_port == log_port)
            return &one;
    }
    return nullptr;
}

void note_lag(const ports_body &body, lag_view &lag) {
    const uint32_t sys_ifindex = library_log_port_get(body, lag.log_port);
    const std::string name = hexadecimal(lag.log_port);
    if (!lag.port) {
        lag.notes.push_back("no port with the logical port " + name + " is recorded" +
                            (lag.members.empty() ? "" : ": its members name a LAG that is gone"));
        return;
    }
    if (sys_ifindex != lag.port->sys_ifindex)
        lag.notes.push_back(
            "for " + name + " the library answers " +
            (sys_ifindex == 0 ? "no system ifindex" : "system ifindex " + std::to_string(sys_ifindex)));
    const unsigned recorded = lag.port->mlag_id.value_or(0);
    const unsigned mapped = lag.mlag_id.value_or(0);
    if (recorded != mapped)
        lag.notes.push_back("its record has MLAG id " + std::to_string(recorded) + ", the map " +
                            std::to_string(mapped) + ", which the library answers");
}

} // namespace

std::vector<lag_view> lags_in(const ports_body &body, const std::vector<port_view> &ports) {
    std::map<uint32_t, lag_view> by_log_port;
    for (const port_view &one : ports) {
        if (one.is_lag())
            by_log_port[*one.log_port].port = one;
        if (one.lag)
            by_log_port[*one.lag].members.push_back(one);
    }
    for (const uint32_t log_port : body.mlag_to_lag) {
        if (log_port != 0)
            (void)by_log_port[log_port];
    }
    std::vector<lag_view> lags;
    for (auto &[log_port, lag] : by_log_port) {
        lag.log_port = log_port;
        if (const uint16_t id = body.lag_to_mlag[lag.index()]; id != 0)
            lag.mlag_id = id;
        note_lag(body, lag);
        lags.push_back(std::move(lag));
    }
    return lags;
}

std::vector<mlag_view> mlags_in(const ports_body &body, const std::vector<port_view> &ports) {
    std::map<unsigned, mlag_view> by_id;
    for (unsigned id = YB_NET_MLAG_ID_MIN; id <= YB_NET_MLAG_ID_MAX; id++) {
        if (body.mlag_to_lag[id] != 0)
            by_id[id].log_port = body.mlag_to_lag[id];
    }
    for (unsigned index = 0; index < YB_NET_LAG_TO_MLAG_LENGTH; index++) {
        const unsigned id = body.lag_to_mlag[index];
        if (id == 0)
            continue;
        mlag_view &mlag = by_id[id];
        if (!mlag.log_port || YB_NET_LOG_PORT_LAG_INDEX(*mlag.log_port) != index)
            mlag.notes.push_back("LAG index " + std::to_string(index) + " is bound to it too, one way only");
    }
    std::vector<mlag_view> mlags;
    for (auto &[id, mlag] : by_id) {
        mlag.id = id;
        if (mlag.log_port) {
            const unsigned back = body.lag_to_mlag[YB_NET_LOG_PORT_LAG_INDEX(*mlag.log_port)];
            if (back != id)
                mlag.notes.push_back("the LAG " + hexadecimal(*mlag.log_port) + " itself is bound to " +
                                     (back == 0 ? "no MLAG id" : "MLAG id " + std::to_string(back)) +
                                     " now; the library still answers it for " + std::to_string(id));
            if (const port_view *const record = record_of(ports, *mlag.log_port))
                mlag.lag = *record;
            else
                mlag.notes.push_back("no port with the logical port " + hexadecimal(*mlag.log_port) +
                                     " is recorded");
        }
        mlags.push_back(std::move(mlag));
    }
    return mlags;
}

} // namespace ybnetctl
