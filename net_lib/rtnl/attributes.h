// SPDX-License-Identifier: Apache-2.0
//
// The appender of the address-alias request; the exported builders are in
// ybnet/yb_net_rtnl.h.
#ifndef YBNET_NET_LIB_RTNL_ATTRIBUTES_H
#define YBNET_NET_LIB_RTNL_ATTRIBUTES_H

#include "ybnet/yb_net_rtnl.h"

// addattr_l() that reports an attribute which does not fit on standard error and returns 1.
int32_t __alias_addattr_l(struct nlmsghdr *n, int32_t maxlen, int32_t type, const void *data, int32_t alen);

#endif
