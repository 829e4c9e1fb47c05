// SPDX-License-Identifier: Apache-2.0
//
// Whether the netdev of a record is really gone: asked before a record is removed alone, for without its record a
// netdev that is still there belongs to nobody.
#ifndef YBNET_YBNETCTL_CHANGE_NETDEV_LEFT_H
#define YBNET_YBNETCTL_CHANGE_NETDEV_LEFT_H

#include <string>

#include "tools/ybnetctl/change/library.h"
#include "ybnet/yb_net_interface.h"

namespace ybnetctl {

struct netdev_remains {
    std::string
        words; // a netdev with the record's name or Linux ifindex is in its namespace, or it cannot be told
    std::string advice; // what to try then
};

// What speaks against removing the record alone: nothing (no words) when the netdev is gone. Of a rehearsal, what its
// steps would have left.
netdev_remains netdev_left(const library &lib, const yb_net_interface_record_t &record);

} // namespace ybnetctl

#endif
