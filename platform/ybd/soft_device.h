// SPDX-License-Identifier: Apache-2.0
//
// The device of a host without the driver: takes the control commands that
// libybnet sends and refuses what the simulated driver (driver_sim) refuses,
// without any effect. Lets libybnet start where there is no switch.
#ifndef YBNET_PLATFORM_YBD_SOFT_DEVICE_H
#define YBNET_PLATFORM_YBD_SOFT_DEVICE_H

#include "ybnet/platform/ybd.h"

namespace ybd {

// 0, or the errno value of the refusal.
int soft_device_control(const ybd_ioctl_cmd_t &control);

} // namespace ybd

#endif
