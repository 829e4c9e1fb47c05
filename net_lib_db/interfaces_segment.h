// SPDX-License-Identifier: Apache-2.0
//
// The interfaces segment of this process, for the record operations.
#ifndef YBNET_NET_LIB_DB_INTERFACES_SEGMENT_H
#define YBNET_NET_LIB_DB_INTERFACES_SEGMENT_H

#include "net_lib_db/segment.h"

extern segment interfaces_segment;

// Creates the segment and brings it to its initial contents. YB_STATUS_SUCCESS with nothing mapped when
// another process was first.
yb_status_t net_lib_interfaces_db_init();

#endif
