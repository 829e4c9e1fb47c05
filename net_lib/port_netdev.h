// SPDX-License-Identifier: Apache-2.0
//
// Netdevs of the switch's own kernel driver, for port interfaces. Reached
// through the dispatcher (interface_set.cc).
#ifndef YBNET_NET_LIB_PORT_NETDEV_H
#define YBNET_NET_LIB_PORT_NETDEV_H

#include "ybnet/yb_access_cmd.h"
#include "ybnet/yb_net_interface.h"
#include "ybnet/yb_status.h"

// CREATE makes, DESTROY removes the netdev by an rtnetlink request, in the caller's namespace only. Failures
// are logged at ERROR; YB_STATUS_CMD_UNSUPPORTED, unlogged, for other commands.
yb_status_t yb_net_port_if_set(yb_access_cmd_t cmd, const yb_net_interface_params_t *params);

#endif
