// SPDX-License-Identifier: Apache-2.0
//
// The exported port functions: thin gates over the ports database that check
// pointers and commands and pass the database's statuses on.
#include "ybnet/net_lib.h"

#include "net_lib/net_lib_log.h"
#include "ybnet/net_lib_db.h"

// No newline at the end: consumers match it as it is.
#define LOG_DATABASE_FAILED(status)                                                                          \
    NET_LIB_LOG(YB_LEVEL_ERROR, "%s: error %d returned from netlib DB", __func__,                            \
                static_cast<int32_t>(status))

YB_EXPORT yb_status_t yb_net_port_set(yb_access_cmd_t cmd, uint32_t sys_ifindex,
                                      const yb_net_port_info_t *port_params) {
    NET_LIB_TRACE_FUNCTION();
    switch (cmd) {
    case YB_ACCESS_CMD_DESTROY:
        return net_lib_db_port_remove(sys_ifindex);
    case YB_ACCESS_CMD_SET:
        if (port_params == nullptr) {
            NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_port_set: port_params is NULL\n");
            return YB_STATUS_PARAM_NULL;
        }
        return net_lib_db_port_set(sys_ifindex, port_params);
    default:
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_port_set: unsupported command\n");
        return YB_STATUS_CMD_UNSUPPORTED;
    }
}

YB_EXPORT yb_status_t yb_net_port_get(uint32_t sys_ifindex, yb_net_port_info_t *port_params) {
    NET_LIB_TRACE_FUNCTION();
    if (port_params == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_port_get: port_params is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    return net_lib_db_port_get(sys_ifindex, port_params);
}

YB_EXPORT yb_status_t yb_net_ports_get_all(uint32_t protocol, yb_net_port_info_t *ports, uint32_t *size) {
    NET_LIB_TRACE_FUNCTION();
    if (size == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: size parameter is NULL\n", __func__);
        return YB_STATUS_ERROR;
    }
    const yb_status_t status = net_lib_db_ports_get_all(protocol, ports, size);
    if (status != YB_STATUS_SUCCESS)
        LOG_DATABASE_FAILED(status);
    return status;
}

YB_EXPORT yb_status_t yb_net_port_lag_set(yb_access_cmd_t cmd, uint32_t sys_ifindex, uint32_t log_port) {
    NET_LIB_TRACE_FUNCTION();
    yb_status_t status;
    switch (cmd) {
    case YB_ACCESS_CMD_SET:
        status = net_lib_db_port_lag_set(sys_ifindex, log_port);
        break;
    case YB_ACCESS_CMD_UNSET:
        status = net_lib_db_port_lag_set(sys_ifindex, 0);
        break;
    default:
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: received invalid command %d", __func__, static_cast<int32_t>(cmd));
        return YB_STATUS_CMD_INVALID; // not "unsupported", as in yb_net_port_set()
    }
    if (status != YB_STATUS_SUCCESS)
        LOG_DATABASE_FAILED(status);
    return status;
}

YB_EXPORT yb_status_t yb_net_log_port_get(uint32_t log_port, uint32_t *sys_ifindex) {
    NET_LIB_TRACE_FUNCTION();
    if (sys_ifindex == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_log_port_get: sys_ifindex is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    return net_lib_db_log_port_get(log_port, sys_ifindex);
}

YB_EXPORT yb_status_t yb_net_lag_get(uint32_t mlag_id, uint32_t *lag_id) {
    NET_LIB_TRACE_FUNCTION();
    if (lag_id == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_lag_get: lag_id is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    return net_lib_db_lag_get(static_cast<uint16_t>(mlag_id), lag_id); // its low 16 bits
}

YB_EXPORT yb_status_t yb_net_mlag_get(uint32_t log_port, uint16_t *mlag_id) {
    NET_LIB_TRACE_FUNCTION();
    if (mlag_id == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_mlag_get: mlag_id is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    return net_lib_db_mlag_get(log_port, mlag_id);
}
