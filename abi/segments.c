/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The types of the shared-memory segments, which no exported function takes: named here so that tools/abi can
 * dump their layout into segments.abi, as it dumps the library's interface into libybnet.so.1.abi.
 */
#include "ybnet/net_lib_db_layout.h"

net_lib_db_interfaces_segment_t *interfaces_segment;
net_lib_db_ports_segment_t *ports_segment;
