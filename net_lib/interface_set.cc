// SPDX-License-Identifier: Apache-2.0
//
// The dispatcher behind yb_net_interface_set(): makes or removes the netdev by
// type, then records the result. Also the bulk removal. Queries are
// interface_queries.cc's.
#include "ybnet/net_lib.h"

#include <cstring>

#include "net_lib/command.h"
#include "net_lib/loopback_netdev.h"
#include "net_lib/net_lib_log.h"
#include "net_lib/port_netdev.h"
#include "net_lib/vlan_netdev.h"
#include "net_lib_db/text_field.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"

namespace {

yb_status_t set_netdev(yb_access_cmd_t cmd, uint32_t sys_ifindex, yb_net_interface_params_t *params) {
    switch (params->type) {
    case YB_L2_INTERFACE_TYPE_VLAN:
    case YB_L2_INTERFACE_TYPE_PORT_VLAN:
        return yb_net_vlan_if_set(cmd, sys_ifindex, params);
    case YB_L2_INTERFACE_TYPE_PORT:
        return yb_net_port_if_set(cmd, params);
    case YB_L2_INTERFACE_TYPE_LOOPBACK:
        return yb_net_loopback_if_set(cmd, params);
    default:
        return YB_STATUS_PARAM_ERROR;
    }
}

// Moves the new netdev into its namespace and records it.
yb_status_t record_created(uint32_t sys_ifindex, const yb_net_interface_params_t *params, uint16_t rif,
                           uint16_t vrid, bool lock_held) {
    const auto name = text_of_field(params->name);
    const auto ns = text_of_field(params->ns_name);
    // A loopback was made inside its namespace. Others stand in the caller's own, where the move runs.
    if (params->type != YB_L2_INTERFACE_TYPE_LOOPBACK && !__yb_net_if_move_to_ns(name.text, "", ns.text)) {
        NET_LIB_LOG(YB_LEVEL_ERROR,
                    "yb_net_interface_set: Failed to move interface \"%s\" to namespace \"%s\"\n", name.text,
                    ns.text);
        // On: what counts is whether the netdev is found there.
    }
    const uint32_t linux_ifindex = __yb_net_if_ifindex_get_in_ns(ns.text, name.text);
    if (linux_ifindex == 0) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_interface_set: Cannot find device \"%s\"\n", name.text);
        return YB_STATUS_ERROR;
    }
    return net_lib_db_interface_add_full(sys_ifindex, linux_ifindex, params, rif, vrid, lock_held ? 0 : 1);
}

yb_status_t record_result(yb_access_cmd_t cmd, uint32_t sys_ifindex, const yb_net_interface_params_t *params,
                          uint16_t rif, uint16_t vrid, bool lock_held) {
    switch (cmd) {
    case YB_ACCESS_CMD_CREATE:
        return record_created(sys_ifindex, params, rif, vrid, lock_held);
    case YB_ACCESS_CMD_DESTROY:
        return net_lib_db_interface_remove(sys_ifindex);
    case YB_ACCESS_CMD_EDIT:
        // Only PORT_VLAN comes here: an EDIT of another type has failed before.
        return net_lib_db_interface_vlan_set(sys_ifindex, params->by_type.port_vlan.vlan_id);
    default:
        return YB_STATUS_CMD_UNSUPPORTED;
    }
}

// full: hold the interfaces lock across a CREATE. Nothing is rolled back.
yb_status_t net_interface_set(yb_access_cmd_t cmd, uint32_t sys_ifindex, yb_net_interface_params_t *params,
                              uint16_t rif, uint16_t vrid, bool full) {
    NET_LIB_TRACE_FUNCTION();
    if (cmd == YB_ACCESS_CMD_DELETE_ALL)
        return net_lib_interface_remove_all();

    // Works on a copy: the caller's block is not touched while the lock is held.
    yb_net_interface_params_t own;
    if (cmd == YB_ACCESS_CMD_DESTROY) {
        yb_net_interface_record_t stored;
        const yb_status_t status = net_lib_db_interface_get(sys_ifindex, &stored);
        if (status != YB_STATUS_SUCCESS)
            return status;
        own = stored.params;
    } else {
        if (params == nullptr)
            return YB_STATUS_PARAM_NULL;
        own = *params;
    }

    const bool lock_held = full && cmd == YB_ACCESS_CMD_CREATE;
    if (lock_held)
        net_lib_db_interface_lock_acquire();
    yb_status_t status = set_netdev(cmd, sys_ifindex, &own);
    const bool netdev_made = status == YB_STATUS_SUCCESS && cmd == YB_ACCESS_CMD_CREATE;
    if (status == YB_STATUS_SUCCESS)
        status = record_result(cmd, sys_ifindex, &own, rif, vrid, lock_held);
    if (lock_held)
        net_lib_db_interface_lock_release();

    if (netdev_made && memcmp(params->name, own.name, sizeof(own.name)) != 0)
        memcpy(params->name, own.name, sizeof(own.name));
    return status;
}

} // namespace

YB_EXPORT yb_status_t yb_net_interface_set(yb_access_cmd_t cmd, uint32_t sys_ifindex,
                                           yb_net_interface_params_t *params) {
    return net_interface_set(cmd, sys_ifindex, params, YB_NET_RIF_NONE, YB_NET_VRID_NONE, false);
}

YB_EXPORT yb_status_t yb_net_interface_set_full(yb_access_cmd_t cmd, uint32_t sys_ifindex,
                                                yb_net_interface_params_t *params, uint16_t rif,
                                                uint16_t vrid) {
    return net_interface_set(cmd, sys_ifindex, params, rif, vrid, true);
}

namespace {

bool is_vlan_kind(uint32_t type) {
    return type == YB_L2_INTERFACE_TYPE_VLAN || type == YB_L2_INTERFACE_TYPE_PORT_VLAN;
}

yb_status_t remove_vlan_netdev(yb_net_interface_record_t *record) {
    const auto name = text_of_field(record->params.name);
    NET_LIB_LOG(YB_LEVEL_DEBUG, "del vlan/port_vlan netdev %s \n", name.text);
    return yb_net_vlan_if_set(YB_ACCESS_CMD_DESTROY, record->sys_ifindex, &record->params);
}

bool is_port_kind(uint32_t type) {
    return type == YB_L2_INTERFACE_TYPE_PORT || type == YB_L2_INTERFACE_TYPE_PKEY;
}

yb_status_t remove_port_netdev(yb_net_interface_record_t *record) {
    const auto name = text_of_field(record->params.name);
    NET_LIB_LOG(YB_LEVEL_DEBUG, "del port/pkey netdev %s \n", name.text);
    if (record->params.type == YB_L2_INTERFACE_TYPE_PKEY)
        return YB_STATUS_PARAM_ERROR; // nothing here makes or removes those: it ends the bulk removal
    return yb_net_port_if_set(YB_ACCESS_CMD_DESTROY, &record->params);
}

// Removes all records of one kind and their netdevs. False when one could not be removed; *out_status is the
// status of the last step taken, which may be the read of a free slot.
bool remove_kind(bool (*is_kind)(uint32_t type), yb_status_t (*remove_netdev)(yb_net_interface_record_t *),
                 yb_status_t *out_status) {
    for (uint32_t index = 0; index < YB_NET_INTERFACES_MAX; index++) {
        yb_net_interface_record_t record;
        *out_status = net_lib_db_interface_get_by_db_index(index, &record);
        if (*out_status == YB_STATUS_DB_NOT_INITIALIZED)
            return false; // said once; the other slots would answer the same
        if (*out_status != YB_STATUS_SUCCESS || !is_kind(record.params.type))
            continue;
        *out_status = remove_netdev(&record);
        if (*out_status != YB_STATUS_SUCCESS)
            return false;
        *out_status = net_lib_db_interface_remove(record.sys_ifindex);
    }
    return true;
}

} // namespace

YB_EXPORT yb_status_t net_lib_interface_remove_all() {
    NET_LIB_TRACE_FUNCTION();
    yb_status_t status = YB_STATUS_SUCCESS;
    // VLANs first, so that no port netdev goes while VLANs are stacked on it.
    if (remove_kind(is_vlan_kind, remove_vlan_netdev, &status))
        (void)remove_kind(is_port_kind, remove_port_netdev, &status); // its status is the result either way
    if (status == YB_STATUS_ENTRY_NOT_FOUND) // the table's last slot was free
        return YB_STATUS_SUCCESS;
    return status;
}
