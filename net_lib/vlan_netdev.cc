// SPDX-License-Identifier: Apache-2.0
//
// See vlan_netdev.h. Commands are ip-link(8)'s and vconfig(8)'s, run by
// command.h. Nothing is rolled back.
#include "net_lib/vlan_netdev.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "net_lib/command.h"
#include "net_lib/net_lib_log.h"
#include "net_lib_db/text_field.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/platform/yb_util.h"

namespace {

constexpr size_t name_size = 50;
constexpr size_t create_command_size = 200;
constexpr size_t short_command_size = 50;

constexpr uint16_t vlan_ids = 4096;
constexpr uint8_t swids = 8;
constexpr uint8_t swid_special = 254;

// The three names of a request, with what belongs to them.
struct if_names {
    char base[name_size];
    char alternative[name_size];
    char full[name_size];
    uint16_t vlan;
    uint32_t name_format;
};

yb_status_t build_names(yb_access_cmd_t cmd, const yb_net_interface_params_t *params, if_names *names) {
    *names = {};
    return __yb_net_build_if_names(cmd, params, names->base, sizeof(names->base), names->alternative,
                                   sizeof(names->alternative), names->full, sizeof(names->full), &names->vlan,
                                   &names->name_format);
}

// Id 0 passes: the kernel takes it as a priority tag.
bool vlan_in_range(uint16_t vlan) {
    return vlan < vlan_ids;
}

#define LOG_VLAN_OUT_OF_RANGE(vlan)                                                                          \
    NET_LIB_LOG(YB_LEVEL_ERROR, "RM_VLAN_NUMS_CHECK_RANGE(%d) failed, rc = %d \n", vlan,                     \
                static_cast<int>(YB_STATUS_PARAM_ERROR))

#define LOG_NOT_PORT_VLAN(type)                                                                              \
    NET_LIB_LOG(YB_LEVEL_ERROR,                                                                              \
                "ERROR : The interface type is %s, only PORT_VLAN type is supported , rc = %d \n",           \
                yb_router_interface_type_str(type), static_cast<int>(YB_STATUS_PARAM_ERROR))

// function: not always the caller's own name.
#define LOG_COMMAND_FAILED(function, command, result)                                                        \
    do {                                                                                                     \
        const char *const reason = strerror(errno);                                                          \
        NET_LIB_LOG(YB_LEVEL_ERROR, function ": Command \"%s\" failed. System_error: [%d] errno: %s\n",      \
                    command, result, reason);                                                                \
    } while (0)

// Runs a command that COMMAND_FORMAT has made; refused ones count as commands that failed.
int run_if(bool complete, const char *ns, const char *command) {
    return complete ? __yb_net_cmd_exec_in_ns(ns, command) : 1;
}

// The netdev's name goes back to the caller, cut to the field.
void write_back_name(yb_net_interface_params_t *params, const char *name) {
    // The precision says to the compiler that the cut is meant.
    (void)snprintf(params->name, sizeof(params->name), "%.*s", static_cast<int>(sizeof(params->name) - 1),
                   name);
}

} // namespace

yb_status_t yb_net_vlan_if_set(yb_access_cmd_t cmd, uint32_t sys_ifindex, yb_net_interface_params_t *params) {
    NET_LIB_TRACE_FUNCTION();
    switch (cmd) {
    case YB_ACCESS_CMD_CREATE:
        return yb_net_vlan_if_add(params);
    case YB_ACCESS_CMD_DESTROY:
        return yb_net_vlan_if_remove(params);
    case YB_ACCESS_CMD_EDIT:
        return yb_net_port_vlan_if_change(sys_ifindex, params);
    default:
        return YB_STATUS_CMD_UNSUPPORTED;
    }
}

yb_status_t __yb_net_build_if_names(yb_access_cmd_t cmd, const yb_net_interface_params_t *params,
                                    char *out_base, size_t base_size, char *out_alternative,
                                    size_t alternative_size, char *out_full, size_t full_size,
                                    uint16_t *out_vlan, uint32_t *out_name_format) {
    NET_LIB_TRACE_FUNCTION();
    if (params->type == YB_L2_INTERFACE_TYPE_VLAN) {
        const yb_net_vlan_params_t &vlan = params->by_type.vlan;
        if (vlan.swid != swid_special && vlan.swid >= swids)
            return YB_STATUS_PARAM_ERROR;
        *out_vlan = vlan.vlan_id;
        *out_name_format = vlan.name_format;
        (void)snprintf(out_base, base_size, "swid%d_eth", vlan.swid);
        (void)snprintf(out_alternative, alternative_size, "vlan%d", vlan.vlan_id);
        (void)snprintf(out_full, full_size, "swid%d_eth.%d", vlan.swid, vlan.vlan_id);
        return YB_STATUS_SUCCESS;
    }
    if (params->type == YB_L2_INTERFACE_TYPE_PORT_VLAN) {
        const yb_net_port_vlan_params_t &port_vlan = params->by_type.port_vlan;
        const auto port_name = text_of_field(port_vlan.port_name);
        const auto recorded_name = text_of_field(params->name);
        *out_vlan = port_vlan.vlan_id;
        *out_name_format = YB_NET_NAME_FORMAT_SWID;
        (void)snprintf(out_base, std::min<size_t>(base_size, YB_NET_IF_NAME_SIZE), "%s", port_name.text);
        if (cmd == YB_ACCESS_CMD_CREATE)
            (void)snprintf(out_full, full_size, "%s.%d", out_base, port_vlan.vlan_id);
        else
            (void)snprintf(out_full, full_size, "%s", recorded_name.text);
        return YB_STATUS_SUCCESS;
    }
    return YB_STATUS_PARAM_ERROR;
}

yb_status_t yb_net_vlan_if_add(yb_net_interface_params_t *params) {
    NET_LIB_TRACE_FUNCTION();
    if_names names;
    if (build_names(YB_ACCESS_CMD_CREATE, params, &names) != YB_STATUS_SUCCESS) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "__yb_net_build_if_names failed, rc = %d \n",
                    static_cast<int>(YB_STATUS_PARAM_ERROR));
        return YB_STATUS_PARAM_ERROR;
    }
    if (!vlan_in_range(names.vlan)) {
        LOG_VLAN_OUT_OF_RANGE(names.vlan);
        return YB_STATUS_PARAM_ERROR;
    }
    if (names.name_format > YB_NET_NAME_FORMAT_VLAN) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "YB_NET_NAME_FORMAT_CHECK_RANGE(%d) failed, rc = %d \n",
                    static_cast<int>(names.name_format), static_cast<int>(YB_STATUS_PARAM_ERROR));
        return YB_STATUS_PARAM_ERROR;
    }
    if (!__yb_net_if_exists(names.base)) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s doesn't exist\n", names.base);
        return YB_STATUS_PARAM_ERROR;
    }
    // The alternative name blocks whatever the name format: two VLAN netdevs of one id would clash later.
    for (const char *const taken : {names.alternative, names.full}) {
        if (__yb_net_if_exists(taken)) {
            NET_LIB_LOG(YB_LEVEL_ERROR, "%s already exists\n", taken);
            return YB_STATUS_PARAM_ERROR;
        }
    }

    char command[create_command_size] = {};
    bool complete;
    if (params->type == YB_L2_INTERFACE_TYPE_VLAN && params->by_type.vlan.parent_given != 0) {
        const auto parent = text_of_field(params->by_type.vlan.parent_name);
        complete = COMMAND_FORMAT(command, "ip link add link %s %s type vlan protocol 802.1Q id %d",
                                  parent.text, names.full, names.vlan);
    } else {
        complete = COMMAND_FORMAT(command, "vconfig add %s %d", names.base, names.vlan);
    }
    // In the caller's namespace, whatever the interface's: the dispatcher moves the netdev afterwards.
    int result = run_if(complete, "", command);
    if (result != 0) {
        LOG_COMMAND_FAILED("yb_net_vlan_if_add", command, result);
        return YB_STATUS_ERROR;
    }
    if (!__yb_net_if_exists(names.full)) {
        NET_LIB_LOG(YB_LEVEL_DEBUG, "couldn't create %s\n", names.full);
        return YB_STATUS_ERROR;
    }
    if (names.name_format == YB_NET_NAME_FORMAT_SWID) {
        write_back_name(params, names.full);
        return YB_STATUS_SUCCESS;
    }

    char rename[short_command_size] = {};
    complete = COMMAND_FORMAT(rename, "ip link set %s name %s", names.full, names.alternative);
    result = run_if(complete, "", rename);
    if (result != 0) {
        LOG_COMMAND_FAILED("yb_net_vlan_if_add", rename, result);
        return YB_STATUS_ERROR; // the netdev keeps its first name
    }
    if (!__yb_net_if_exists(names.alternative)) {
        NET_LIB_LOG(YB_LEVEL_DEBUG, "couldn't create %s\n", rename); // the command, not the name
        return YB_STATUS_ERROR;
    }
    write_back_name(params, names.alternative);
    return YB_STATUS_SUCCESS;
}

yb_status_t yb_net_vlan_if_remove(yb_net_interface_params_t *params) {
    NET_LIB_TRACE_FUNCTION();
    if_names names;
    if (build_names(YB_ACCESS_CMD_DESTROY, params, &names) != YB_STATUS_SUCCESS) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_vlan_if_remove: __yb_net_build_if_names failed. rc = %d\n",
                    static_cast<int>(YB_STATUS_PARAM_ERROR));
        return YB_STATUS_PARAM_ERROR;
    }
    const auto ns = text_of_field(params->ns_name);
    const char *target = names.alternative;
    if (!__yb_net_if_exists_in_ns(ns.text, target)) {
        target = names.full;
        if (!__yb_net_if_exists_in_ns(ns.text, target)) {
            NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_vlan_if_remove: Vlan interface %s/%s doesn't exist\n",
                        names.alternative, names.full);
            return YB_STATUS_PARAM_ERROR;
        }
    }

    char command[short_command_size] = {};
    const int result = run_if(COMMAND_FORMAT(command, "vconfig rem %s", target), ns.text, command);
    if (result != 0) {
        LOG_COMMAND_FAILED("yb_net_vlan_if_remove", command, result);
        return YB_STATUS_ERROR;
    }
    if (__yb_net_if_exists_in_ns(ns.text, target)) {
        NET_LIB_LOG(YB_LEVEL_DEBUG, "couldn't remove %s\n", target);
        return YB_STATUS_ERROR;
    }
    write_back_name(params, target);
    return YB_STATUS_SUCCESS;
}

yb_status_t yb_net_port_vlan_if_change(uint32_t sys_ifindex, const yb_net_interface_params_t *params) {
    NET_LIB_TRACE_FUNCTION();
    if (params->type != YB_L2_INTERFACE_TYPE_PORT_VLAN) {
        LOG_NOT_PORT_VLAN(params->type);
        return YB_STATUS_PARAM_ERROR;
    }
    const uint16_t vlan = params->by_type.port_vlan.vlan_id;

    yb_net_interface_record_t stored;
    const yb_status_t status = net_lib_db_interface_get(sys_ifindex, &stored);
    if (status != YB_STATUS_SUCCESS)
        return status;
    if (stored.params.type != YB_L2_INTERFACE_TYPE_PORT_VLAN) {
        LOG_NOT_PORT_VLAN(stored.params.type);
        return YB_STATUS_PARAM_ERROR;
    }
    if (!vlan_in_range(vlan)) {
        LOG_VLAN_OUT_OF_RANGE(vlan);
        return YB_STATUS_PARAM_ERROR;
    }
    if (stored.params.by_type.port_vlan.vlan_id == vlan) {
        NET_LIB_LOG(YB_LEVEL_INFO, "Modify to the same vlan %d. Do nothing.\n", vlan);
        return YB_STATUS_SUCCESS;
    }
    const auto name = text_of_field(stored.params.name);
    const auto ns = text_of_field(stored.params.ns_name);
    if (!__yb_net_if_exists_in_ns(ns.text, name.text)) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s doesn't exists\n", name.text);
        return YB_STATUS_PARAM_ERROR;
    }
    char command[short_command_size] = {};
    const bool complete = COMMAND_FORMAT(command, "ip link set dev %s type vlan id %d", name.text, vlan);
    const int result = run_if(complete, ns.text, command);
    if (result != 0) {
        LOG_COMMAND_FAILED("yb_net_vlan_if_add", command, result); // the maker's name, kept
        return YB_STATUS_ERROR;
    }
    return YB_STATUS_SUCCESS;
}
