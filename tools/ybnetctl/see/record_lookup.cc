// SPDX-License-Identifier: Apache-2.0
//
// See record_lookup.h.
#include "tools/ybnetctl/see/record_lookup.h"

#include <algorithm>
#include <ostream>

#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

constexpr int share = 5; // of the time, one part in this many may go into reading
constexpr std::chrono::seconds allowance_max(1);

} // namespace

record_lookup::record_lookup(session &run)
    : run_(run), allowance_(allowance_max), counted_to_(clock::now()) {}

void record_lookup::read() {
    std::vector<recorded_interface> records;
    try {
        records = recorded_interfaces(read_contents(run_, segment_kind::interfaces));
    } catch (const failure &what) {
        // A monitor outlives the stack that it watches: what is missing now may come.
        if (!absence_said_)
            run_.err << "ybnetctl: " << printable(what.thing) << ": " << printable(what.reason)
                     << "; events come without system ifindex until there is one\n"
                     << std::flush;
        absence_said_ = true;
    }
    if (records == records_)
        return;
    records_ = std::move(records);
    by_netdev_.clear();
    for (const recorded_interface &record : records_) {
        by_netdev_.emplace(key(record.ns, record.linux_ifindex),
                           record); // the first, as the library finds it
        remembered_.insert_or_assign(key(record.ns, record.linux_ifindex), record);
    }
}

void record_lookup::refresh() {
    const clock::time_point start = clock::now();
    allowance_ = std::min<clock::duration>(allowance_max, allowance_ + (start - counted_to_) / share);
    counted_to_ = start;
    if (allowance_ <= clock::duration::zero())
        return;
    read();
    allowance_ -= clock::now() - start;
}

const recorded_interface *record_lookup::find(const std::string &ns, uint32_t linux_ifindex) const {
    const auto found = by_netdev_.find({ns, linux_ifindex});
    return found == by_netdev_.end() ? nullptr : &found->second;
}

const recorded_interface *record_lookup::find_last(const std::string &ns, uint32_t linux_ifindex) const {
    const recorded_interface *const now = find(ns, linux_ifindex);
    const auto found = remembered_.find({ns, linux_ifindex});
    return now != nullptr || found == remembered_.end() ? now : &found->second;
}

} // namespace ybnetctl
