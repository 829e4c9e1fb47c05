// SPDX-License-Identifier: Apache-2.0
//
// The verbosity of the API module, the function that sets both modules'
// verbosity, and the function trace.
#include "net_lib/net_lib_log.h"

#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/platform/yb_util.h"

yb_verbosity_t net_lib_verbosity{YB_VERBOSITY_DEFAULT};

void net_lib_trace_entered(const char *function, int32_t line) {
    if (g_yb_log_module_func_enable != 0)
        YB_MESSAGE_WRITE(net_lib_verbosity, "net_lib", YB_LEVEL_DEBUG, function, line, "%s - entered \n",
                         function);
}

void net_lib_trace_left(const char *function, int32_t line) {
    if (g_yb_log_module_func_enable != 0)
        YB_MESSAGE_WRITE(net_lib_verbosity, "net_lib", YB_LEVEL_DEBUG, function, line, "%s - left \n",
                         function);
}

YB_EXPORT yb_status_t yb_net_log_verbosity_level(yb_access_cmd_t cmd, uint32_t *level) {
    NET_LIB_TRACE_FUNCTION();
    switch (cmd) {
    case YB_ACCESS_CMD_SET:
        net_lib_verbosity.store(*level, std::memory_order_relaxed);
        (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, level); // cannot fail with this command
        return YB_STATUS_SUCCESS;
    case YB_ACCESS_CMD_GET:
        *level = net_lib_verbosity.load(std::memory_order_relaxed);
        return YB_STATUS_SUCCESS;
    default:
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_log_verbosity_level: Reached default access command : [%s]\n",
                    yb_access_cmd_str(cmd));
        return YB_STATUS_CMD_UNSUPPORTED;
    }
}
