// SPDX-License-Identifier: Apache-2.0
//
// Text commands to the switch's kernel driver, through its files under /proc.
#ifndef YBNET_NET_LIB_DRIVER_PROC_H
#define YBNET_NET_LIB_DRIVER_PROC_H

#include "ybnet/yb_status.h"

// The driver's command file.
constexpr const char *driver_command_file = "/proc/qrn_yb/yb_core";

// Appends cmd to the file, without a newline, in one write(2) if it is shorter than a stdio buffer.
// YB_STATUS_SUCCESS; YB_STATUS_PARAM_NULL for a NULL argument (ERROR); YB_STATUS_ERROR when the file cannot
// be opened, written or closed (ERROR, a line per step that failed). The driver's refusal shows in the close.
yb_status_t __qrn_proc_write(const char *cmd, const char *file_path);

#endif
