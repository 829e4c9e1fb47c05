// SPDX-License-Identifier: Apache-2.0
//
// The process's handle to the switch driver device.
#ifndef YBNET_NET_LIB_DRIVER_HANDLE_H
#define YBNET_NET_LIB_DRIVER_HANDLE_H

#include <cstdint>

#include "ybnet/yb_status.h"

// Zero until opened; keeps its value when closed. Written at start-up only.
extern uint32_t ybd_handle;

// Opens and configures the first device. YB_STATUS_SUCCESS, or YB_STATUS_DEVICE_ERROR (ERROR).
yb_status_t __init_ybd_handle();

// Closes the handle, open or not. YB_STATUS_SUCCESS, or YB_STATUS_DEVICE_ERROR (ERROR).
yb_status_t __deinit_ybd_handle();

#endif
