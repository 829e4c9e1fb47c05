// SPDX-License-Identifier: Apache-2.0
//
// The maps of the ports segment: from logical ports to system ifindexes, and between LAGs and MLAG ids. With the
// segment's lock held, as all of this. Which port enters and leaves them is port_records.cc's.
#ifndef YBNET_NET_LIB_DB_PORT_MAPS_H
#define YBNET_NET_LIB_DB_PORT_MAPS_H

#include <cstddef>
#include <cstdint>

#include "net_lib_db/ports_segment.h"

inline net_lib_db_ports_segment_t &ports_body() {
    return *static_cast<net_lib_db_ports_segment_t *>(ports_segment.body);
}

// Logical ports read from shared memory may be damaged; both indexes are masked, so any value has its slot.
inline uint16_t &port_maps_lag_to_mlag(uint32_t log_port) {
    return ports_body().lag_to_mlag[YB_NET_LOG_PORT_LAG_INDEX(log_port)];
}

// Shared format: LAG index 255 lies beyond its map, on port index 0. Addressed from the segment's start,
// because indexing an array beyond its end is undefined.
inline uint32_t &port_maps_ifindex(uint32_t log_port) {
    using body_t = net_lib_db_ports_segment_t;
    const size_t offset =
        YB_NET_LOG_PORT_IS_LAG(log_port)
            ? offsetof(body_t, lag_to_ifindex) + YB_NET_LOG_PORT_LAG_INDEX(log_port) * sizeof(uint32_t)
            : offsetof(body_t, port_to_ifindex) + YB_NET_LOG_PORT_PORT_INDEX(log_port) * sizeof(uint32_t);
    return *reinterpret_cast<uint32_t *>(static_cast<std::byte *>(ports_segment.body) + offset);
}

// mlag_id: of a LAG at most YB_NET_MLAG_ID_MAX, or from shared memory, where it may be damaged: then it has no
// slot of its own.
inline void port_maps_enter(uint32_t sys_ifindex, uint32_t log_port, uint16_t mlag_id) {
    if (YB_NET_LOG_PORT_IS_LAG(log_port)) {
        port_maps_lag_to_mlag(log_port) = mlag_id;
        if (mlag_id != 0 && mlag_id <= YB_NET_MLAG_ID_MAX)
            ports_body().mlag_to_lag[mlag_id] = log_port;
    }
    port_maps_ifindex(log_port) = sys_ifindex;
}

inline void port_maps_clear(uint32_t log_port, uint16_t mlag_id) {
    if (YB_NET_LOG_PORT_IS_LAG(log_port) && mlag_id != 0) {
        port_maps_lag_to_mlag(log_port) = 0;
        if (mlag_id <= YB_NET_MLAG_ID_MAX)
            ports_body().mlag_to_lag[mlag_id] = 0;
    }
    port_maps_ifindex(log_port) = 0;
}

#endif
