// SPDX-License-Identifier: Apache-2.0
//
// See soft_device.h.
#include "platform/ybd/soft_device.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace ybd {

namespace {

// Reads the three words the way a driver does: the kernel copies them, so an
// address where there is nothing is EFAULT and not the end of the process.
int read_words(uint64_t address, uint32_t (&words)[3]) {
    int ends[2];
    if (address > UINTPTR_MAX)
        return EFAULT;
    if (pipe2(ends, O_CLOEXEC) != 0)
        return errno;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the control record carries the address as a number
    const void *const from = reinterpret_cast<const void *>(static_cast<uintptr_t>(address));
    int reason = 0;
    if (write(ends[1], from, sizeof(words)) != static_cast<ssize_t>(sizeof(words)))
        reason = EFAULT;
    else if (read(ends[0], words, sizeof(words)) != static_cast<ssize_t>(sizeof(words)))
        reason = EIO;
    (void)close(ends[0]);
    (void)close(ends[1]);
    return reason;
}

} // namespace

int soft_device_control(const ybd_ioctl_cmd_t &control) {
    if (control.reserved != 0)
        return EINVAL;
    switch (control.ctrl_cmd) {
    case YBD_CTRL_CMD_SET_MULTI_PACKET_ENABLE:
    case YBD_CTRL_CMD_SET_BLOCKING_ENABLE:
        return control.argument <= 1 ? 0 : EINVAL;
    case YBD_CTRL_CMD_VID2IP_SET: {
        uint32_t words[3];
        return read_words(control.argument, words);
    }
    default:
        return EINVAL;
    }
}

} // namespace ybd
