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

#define LOG_MOVE_FAILED(name, ns)                                                                            \
    NET_LIB_LOG_AS("net_interface_set", YB_LEVEL_ERROR,                                                      \
                   "yb_net_interface_set: Failed to move interface \"%s\" to namespace \"%s\"\n", name, ns)

// False, with an ERROR line, when a netdev is to be moved into a namespace that no command can name: it would
// be made and then stay behind.
bool can_be_moved(const yb_net_interface_params_t &params) {
    const bool moves = params.type == YB_L2_INTERFACE_TYPE_VLAN ||
                       params.type == YB_L2_INTERFACE_TYPE_PORT_VLAN ||
                       params.type == YB_L2_INTERFACE_TYPE_PORT;
    const auto ns = text_of_field(params.ns_name);
    if (!moves || ns.text[0] == '\0' || __yb_net_name_is_plain(ns.text))
        return true;
    LOG_MOVE_FAILED(text_of_field(params.name).text, ns.text);
    return false;
}

// Moves the new netdev into its namespace and records it.
yb_status_t record_created(uint32_t sys_ifindex, const yb_net_interface_params_t *params, uint16_t rif,
                           uint16_t vrid, bool lock_held) {
    const auto name = text_of_field(params->name);
    const auto ns = text_of_field(params->ns_name);
    // A loopback was made inside its namespace. Others stand in the caller's own, where the move runs.
    if (params->type != YB_L2_INTERFACE_TYPE_LOOPBACK && !__yb_net_if_move_to_ns(name.text, "", ns.text)) {
        LOG_MOVE_FAILED(name.text, ns.text);
        // On: what counts is whether the netdev is found there.
    }
    const uint32_t linux_ifindex = __yb_net_if_ifindex_get_in_ns(ns.text, name.text);
    if (linux_ifindex == 0) {
        NET_LIB_LOG_AS("net_interface_set", YB_LEVEL_ERROR,
                       "yb_net_interface_set: Cannot find device \"%s\"\n", name.text);
        return YB_STATUS_ERROR;
    }
    return net_lib_db_interface_add_full(sys_ifindex, linux_ifindex, params, rif, vrid, lock_held ? 0 : 1);
}

yb_status_t record_result(yb_access_cmd_t cmd, uint32_t sys_ifindex, const yb_net_interface_params_t *params,
                          uint16_t rif, uint16_t vrid, bool lock_held) {
    if (cmd == YB_ACCESS_CMD_CREATE)
        return record_created(sys_ifindex, params, rif, vrid, lock_held);
    if (cmd == YB_ACCESS_CMD_DESTROY)
        return net_lib_db_interface_remove(sys_ifindex);
    // What is left is EDIT of a PORT_VLAN: any other command, and an EDIT of another type, has failed before.
    return net_lib_db_interface_vlan_set(sys_ifindex, params->by_type.port_vlan.vlan_id);
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
    if (cmd == YB_ACCESS_CMD_CREATE && !can_be_moved(own))
        return YB_STATUS_ERROR;

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

// The netdevs of a bulk removal go in two passes: VLANs first, so that no port netdev goes while VLANs are
// stacked on it. Loopbacks are in neither.
enum class removal_pass { vlans, ports };

bool is_in_pass(removal_pass pass, uint32_t type) {
    if (pass == removal_pass::vlans)
        return type == YB_L2_INTERFACE_TYPE_VLAN || type == YB_L2_INTERFACE_TYPE_PORT_VLAN;
    return type == YB_L2_INTERFACE_TYPE_PORT || type == YB_L2_INTERFACE_TYPE_PKEY;
}

yb_status_t remove_netdev(removal_pass pass, yb_net_interface_record_t *record) {
    constexpr const char *function = "net_lib_interface_remove_all";
    const auto name = text_of_field(record->params.name);
    if (pass == removal_pass::vlans) {
        NET_LIB_LOG_AS(function, YB_LEVEL_DEBUG, "del vlan/port_vlan netdev %s \n", name.text);
        return yb_net_vlan_if_set(YB_ACCESS_CMD_DESTROY, record->sys_ifindex, &record->params);
    }
    NET_LIB_LOG_AS(function, YB_LEVEL_DEBUG, "del port/pkey netdev %s \n", name.text);
    if (record->params.type == YB_L2_INTERFACE_TYPE_PKEY)
        return YB_STATUS_PARAM_ERROR; // nothing here makes or removes those: it ends the bulk removal
    return yb_net_port_if_set(YB_ACCESS_CMD_DESTROY, &record->params);
}

} // namespace

YB_EXPORT yb_status_t net_lib_interface_remove_all() {
    NET_LIB_TRACE_FUNCTION();
    yb_status_t status = YB_STATUS_SUCCESS;
    for (const removal_pass pass : {removal_pass::vlans, removal_pass::ports}) {
        for (uint32_t index = 0; index < YB_NET_INTERFACES_MAX; index++) {
            yb_net_interface_record_t record;
            status = net_lib_db_interface_get_by_db_index(index, &record);
            if (status == YB_STATUS_DB_NOT_INITIALIZED)
                return status; // said once; the other slots would answer the same
            if (status != YB_STATUS_SUCCESS || !is_in_pass(pass, record.params.type))
                continue;
            status = remove_netdev(pass, &record);
            if (status != YB_STATUS_SUCCESS)
                return status;
            status = net_lib_db_interface_remove(record.sys_ifindex);
        }
    }
    if (status == YB_STATUS_ENTRY_NOT_FOUND) // the table's last slot was free
        return YB_STATUS_SUCCESS;
    return status;
}
