// SPDX-License-Identifier: Apache-2.0
//
// 802.1Q VLAN netdevs of VLAN and PORT_VLAN interfaces: their names, making,
// removing and re-tagging them. Reached through the dispatcher (interface_set.h).
#ifndef YBNET_NET_LIB_VLAN_NETDEV_H
#define YBNET_NET_LIB_VLAN_NETDEV_H

#include <cstddef>
#include <cstdint>

#include "ybnet/yb_access_cmd.h"
#include "ybnet/yb_net_interface.h"
#include "ybnet/yb_status.h"

// CREATE makes, DESTROY removes, EDIT re-tags; YB_STATUS_CMD_UNSUPPORTED for other commands.
yb_status_t yb_net_vlan_if_set(yb_access_cmd_t cmd, uint32_t sys_ifindex, yb_net_interface_params_t *params);

// The names of a request: base is the parent, full the VLAN netdev as it is made, alternative (VLAN only) as
// it may be renamed. YB_STATUS_PARAM_ERROR, unlogged and with nothing written, for a bad type or swid.
yb_status_t __yb_net_build_if_names(yb_access_cmd_t cmd, const yb_net_interface_params_t *params,
                                    char *out_base, size_t base_size, char *out_alternative,
                                    size_t alternative_size, char *out_full, size_t full_size,
                                    uint16_t *out_vlan, uint32_t *out_name_format);

// Each logs its failure at ERROR (DEBUG when a command succeeded without effect).
yb_status_t yb_net_vlan_if_add(yb_net_interface_params_t *params);
yb_status_t yb_net_vlan_if_remove(yb_net_interface_params_t *params);
yb_status_t yb_net_port_vlan_if_change(uint32_t sys_ifindex, const yb_net_interface_params_t *params);

#endif
