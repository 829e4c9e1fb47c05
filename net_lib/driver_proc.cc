// SPDX-License-Identifier: Apache-2.0
//
// See driver_proc.h. Rests on stdio(3): the command stays in the stream's buffer
// until fclose(3) flushes it.
#include "net_lib/driver_proc.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

#include "net_lib/net_lib_log.h"

yb_status_t __qrn_proc_write(const char *cmd, const char *file_path) {
    if (cmd == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: cmd is NULL\n", __func__);
        return YB_STATUS_PARAM_NULL;
    }
    if (file_path == nullptr) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: file_path is NULL\n", __func__);
        return YB_STATUS_PARAM_NULL;
    }
    FILE *const file = fopen(file_path, "a+");
    if (file == nullptr) {
        const int reason = errno;
        const char *const text = strerror(reason);
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: failed to open file %s, err [%d]: %s\n", __func__, file_path, reason,
                    text);
        return YB_STATUS_ERROR;
    }
    (void)fcntl(fileno(file), F_SETFD, FD_CLOEXEC); // cannot fail on a descriptor just made

    yb_status_t status = YB_STATUS_SUCCESS;
    const size_t length = strlen(cmd);
    const int written = fprintf(file, "%s", cmd);
    if (written < 0) {
        const int reason = errno;
        const char *const text = strerror(reason);
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: appending \"%s\" to %s failed, err[%d]: %s\n", __func__, cmd,
                    file_path, reason, text);
        status = YB_STATUS_ERROR;
    } else if (static_cast<size_t>(written) != length) {
        // The wording is kept: consumers match it.
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: appending \"%s\" to %s is lack, wrote %d out of %zu characters\n",
                    __func__, cmd, file_path, written, length);
        status = YB_STATUS_ERROR;
    }
    if (fclose(file) != 0) {
        const int reason = errno;
        const char *const text = strerror(reason);
        NET_LIB_LOG(YB_LEVEL_ERROR, "%s: failed to close file %s, err [%d]: %s\n", __func__, file_path,
                    reason, text);
        return YB_STATUS_ERROR;
    }
    return status;
}
