// SPDX-License-Identifier: Apache-2.0
//
// Interface records for monitor: found by namespace and Linux ifindex in a copy of
// the segment that is made anew for each event, as long as that costs little.
#ifndef YBNET_YBNETCTL_SEE_RECORD_LOOKUP_H
#define YBNET_YBNETCTL_SEE_RECORD_LOOKUP_H

#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/ybnetctl/kernel/recorded.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

class record_lookup {
  public:
    explicit record_lookup(session &run);

    // Reads the segment anew, so that an event is shown with the records of its moment; but when the readings of late
    // have taken a second more than a fifth of the time, as in a storm of events, the last copy has to do. That there
    // is no database is said once, on standard error.
    void refresh();

    [[nodiscard]] const std::vector<recorded_interface> &records() const {
        return records_;
    }
    // NULL when no record has the netdev.
    [[nodiscard]] const recorded_interface *find(const std::string &ns, uint32_t linux_ifindex) const;

    // The same for a netdev that is gone, whose record may be gone too: the last one that had it.
    [[nodiscard]] const recorded_interface *find_last(const std::string &ns, uint32_t linux_ifindex) const;

  private:
    using clock = std::chrono::steady_clock;
    using key = std::pair<std::string, uint32_t>;

    void read();

    session &run_;
    std::vector<recorded_interface> records_;
    std::map<key, recorded_interface> by_netdev_;
    std::map<key, recorded_interface> remembered_;
    clock::duration allowance_; // time that may go into reading now
    clock::time_point counted_to_;
    bool absence_said_ = false;
};

} // namespace ybnetctl

#endif
