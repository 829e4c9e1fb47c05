// SPDX-License-Identifier: Apache-2.0
//
// Reading a link's administrative state out of a dump of all links. The walk
// over one datagram of the dump is pure, so that any bytes can be put through it.
#ifndef YBNET_NET_LIB_LINK_DUMP_H
#define YBNET_NET_LIB_LINK_DUMP_H

#include <cstddef>
#include <cstdint>

#include "ybnet/yb_status.h"

// What the datagrams of one dump have said so far; {} before the first.
struct link_dump {
    bool done;      // the dump is over, or has said what is wanted: nothing more is to be received
    bool found;     // the link was in it
    uint32_t state; // the link's state once found: 1 up, 0 down
    bool failed;    // the kernel refused the dump or broke it off; done is set too
    int reason;     // that error, an errno value
};

// Takes in one datagram of size bytes as received, at any alignment. Ends at the first message whose length
// does not fit, and reads nothing behind it.
void link_dump_walk(const void *datagram, size_t size, uint32_t linux_ifindex, link_dump *dump);

// Asks the kernel for all links, on a socket of its own, and writes 1 (up) or 0 (down) to *state. Any thread
// may call it. YB_STATUS_SUCCESS; YB_STATUS_PARAM_ERROR, unlogged, when no link has this ifindex;
// YB_STATUS_ERROR when the exchange failed (ERROR). *state is written on success only.
yb_status_t __if_state_get(uint32_t linux_ifindex, uint32_t *state);

#endif
