// SPDX-License-Identifier: Apache-2.0
//
// The process's rtnetlink request socket: opening it, sending a request and
// waiting for the kernel's acknowledgement. Failures are reported on standard
// error, not through the log. One thread at a time.
#ifndef YBNET_NET_LIB_RTNL_REQUEST_H
#define YBNET_NET_LIB_RTNL_REQUEST_H

#include "ybnet/yb_net_rtnl.h"

// Opens rth unless it is open. 0, or 1 with a line on standard error.
int32_t rtnl_open();

// Stamps n with the next sequence number, sends it and waits for its acknowledgement, without a time-out. 0
// when the kernel acknowledged; else 1, with a line on standard error and, after a kernel error, errno set to
// it. Calls made before rtnl_open() fail in sendmsg(2).
int32_t rtnl_talk(struct nlmsghdr *n);

#endif
