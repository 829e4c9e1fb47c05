// SPDX-License-Identifier: Apache-2.0
//
// Ports in a copy of the ports segment, twice: what is in the table, bucket by
// bucket, and what the library's own search would answer for a key. The two
// differ where the table's rules surprise (net_lib_db.h), and the difference is
// what somebody who debugs it has to see.
#ifndef YBNET_YBNETCTL_SEGMENTS_PORT_SEARCH_H
#define YBNET_YBNETCTL_SEGMENTS_PORT_SEARCH_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ybnet/net_lib_db_layout.h"
#include "ybnet/yb_status.h"

namespace ybnetctl {

using ports_body = net_lib_db_ports_segment_t;

// The home bucket of a key, by the platform's crc_16().
uint16_t home_bucket(uint32_t sys_ifindex);

enum class bucket_state {
    empty,       // nothing in it
    recorded,    // a port, where its key says
    removed,     // a removed port's
    uncounted,   // a port whose CRC is 0: it can be read, but its bucket counts as empty
    stray_bytes, // counts as empty, and yet holds something: what was written for a port that is not recorded
    damaged,     // its hash is not its key's
};

bucket_state state_of(const net_lib_port_entry_t &bucket);

// The buckets that hold this key (recorded or uncounted), lowest first. More than one is possible: a port that was
// set again while its search no longer found it.
std::vector<uint16_t> buckets_of(const ports_body &body, uint32_t sys_ifindex);

// What net_lib_db_port_get() would answer: the status, and the bucket whose record it copies out.
struct library_answer {
    yb_status_t status = YB_STATUS_SUCCESS;
    uint16_t bucket = 0; // of a success
};
library_answer library_port_get(const ports_body &body, uint32_t sys_ifindex);

// What net_lib_db_log_port_get() would answer: the system ifindex in the logical port's slot of the maps; 0 none.
uint32_t library_log_port_get(const ports_body &body, uint32_t log_port);

// Where the library's answer for a key is not the record in that bucket, in words; "" where it is.
std::string difference_in_words(const ports_body &body, uint32_t sys_ifindex, uint16_t bucket);

// Of each bucket, whether the library's search for the key in it ends there: the same for all of the table at once, in a
// time that grows with the table however it was filled.
std::vector<bool> buckets_answered(const ports_body &body);

// The same for a key that is in no bucket: what the library answers all the same.
std::string absence_in_words(const ports_body &body, uint32_t sys_ifindex);

} // namespace ybnetctl

#endif
