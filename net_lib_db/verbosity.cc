// SPDX-License-Identifier: Apache-2.0
//
// The verbosity of the database module, and the level names that both modules
// write into the trace buffer.
#include "net_lib_db/net_lib_db_log.h"

#include "ybnet/net_lib_db.h"
#include "ybnet/platform/yb_util.h"

yb_verbosity_t net_lib_db_verbosity{YB_VERBOSITY_DEFAULT};

const char *yb_level_name(int32_t index) {
    static constexpr const char *names[] = {"NONE   ", "ERROR  ", "WARN   ", "NOTICE ", "INFO   ",
                                            "DEBUG  ", "FUNCS  ", "FRAMES ", "ALL    "};
    constexpr int32_t length = sizeof(names) / sizeof(names[0]);
    return index >= 0 && index < length ? names[index] : "UNKNOWN";
}

YB_EXPORT yb_status_t net_lib_db_log_verbosity_level(yb_access_cmd_t cmd, uint32_t *level) {
    switch (cmd) {
    case YB_ACCESS_CMD_SET:
        net_lib_db_verbosity.store(*level, std::memory_order_relaxed);
        return YB_STATUS_SUCCESS;
    case YB_ACCESS_CMD_GET:
        *level = net_lib_db_verbosity.load(std::memory_order_relaxed);
        return YB_STATUS_SUCCESS;
    default:
        // No newline at the end, unlike the API module's message: consumers match both as they are.
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Reached default access command : [%s]", yb_access_cmd_str(cmd));
        return YB_STATUS_CMD_UNSUPPORTED;
    }
}
