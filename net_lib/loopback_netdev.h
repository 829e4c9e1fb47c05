// SPDX-License-Identifier: Apache-2.0
//
// Loopback interfaces: bridges without ports, made and removed inside their
// namespace. Reached through the dispatcher (interface_set.cc).
#ifndef YBNET_NET_LIB_LOOPBACK_NETDEV_H
#define YBNET_NET_LIB_LOOPBACK_NETDEV_H

#include "ybnet/yb_access_cmd.h"
#include "ybnet/yb_net_interface.h"
#include "ybnet/yb_status.h"

// CREATE makes, DESTROY removes the bridge. YB_STATUS_PARAM_ERROR (ERROR) without a name, for every command;
// YB_STATUS_CMD_UNSUPPORTED for other commands; YB_STATUS_ERROR when the command failed (unlogged), did not
// fit its buffer (unlogged) or was refused for its names (ERROR).
yb_status_t yb_net_loopback_if_set(yb_access_cmd_t cmd, const yb_net_interface_params_t *params);

#endif
