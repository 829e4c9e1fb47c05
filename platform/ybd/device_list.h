// SPDX-License-Identifier: Apache-2.0
//
// Which devices there are: the driver's nodes, the device that YBD_DEVICE
// names, or the software device. ybd.cc lists and opens these and no others.
#ifndef YBNET_PLATFORM_YBD_DEVICE_LIST_H
#define YBNET_PLATFORM_YBD_DEVICE_LIST_H

#include "ybnet/platform/ybd.h"

namespace ybd {

constexpr uint32_t max_devices = 16;
inline constexpr char soft_device_name[YBD_DEV_NAME_SIZE] = "yb_soft0";

struct device_list {
    uint32_t count;
    char names[max_devices][YBD_DEV_NAME_SIZE];
};

// Fills list; 0, or the errno value that says why there is no device.
int find_devices(device_list &list);

bool is_listed(const device_list &list, const char *name);
bool is_soft_device(const char *name);

} // namespace ybd

#endif
