// SPDX-License-Identifier: Apache-2.0
//
// Passing a VLAN-to-IP setting to the switch's kernel driver, over the device
// handle of driver_handle.h.
#include "ybnet/net_lib.h"

#include <cstddef>

#include "net_lib/driver_handle.h"
#include "net_lib/net_lib_log.h"
#include "ybnet/platform/ybd.h"

namespace {

// What the control's argument points to. The words' meaning is the driver's.
struct yb_net_vid2ip_data_t {
    int32_t word0;
    uint32_t word1;
    int32_t word2;
};
static_assert(sizeof(yb_net_vid2ip_data_t) == 12);
static_assert(offsetof(yb_net_vid2ip_data_t, word2) == 8);

} // namespace

YB_EXPORT yb_status_t yb_net_vid2ip_set(int32_t word0, uint32_t word1, int32_t word2) {
    NET_LIB_TRACE_FUNCTION();
    const yb_net_vid2ip_data_t data = {word0, word1, word2};
    ybd_ioctl_cmd_t control = {};
    control.ctrl_cmd = YBD_CTRL_CMD_VID2IP_SET;
    control.argument = reinterpret_cast<uintptr_t>(&data);
    if (ybd_ioctl(ybd_handle, &control) != 0)
        return YB_STATUS_DEVICE_ERROR; // unlogged, unlike at start-up
    return YB_STATUS_SUCCESS;
}
