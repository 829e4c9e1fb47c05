// SPDX-License-Identifier: Apache-2.0
//
// The driver access library's functions. device_list.cc says which devices
// there are, handle_table.cc which are open; controls go to the driver's node
// with one ioctl or to the software device.
#include "ybnet/platform/ybd.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/driver_sim/yb_core_ioctl.h"
#include "platform/export.h"
#include "platform/ybd/device_list.h"
#include "platform/ybd/handle_table.h"
#include "platform/ybd/soft_device.h"

// The caller's record goes to the driver as it is.
static_assert(sizeof(ybd_ioctl_cmd_t) == sizeof(yb_core_control));
static_assert(offsetof(ybd_ioctl_cmd_t, ctrl_cmd) == offsetof(yb_core_control, command));
static_assert(offsetof(ybd_ioctl_cmd_t, reserved) == offsetof(yb_core_control, reserved));
static_assert(offsetof(ybd_ioctl_cmd_t, argument) == offsetof(yb_core_control, argument));

namespace {

int answer(int reason) {
    if (reason == 0)
        return 0;
    errno = reason;
    return -1;
}

int open_node(const char *path, int &descriptor) {
    descriptor = open(path, O_RDWR | O_CLOEXEC);
    if (descriptor < 0)
        return errno;
    struct stat status = {};
    int reason = 0;
    if (fstat(descriptor, &status) != 0)
        reason = errno;
    else if (!S_ISCHR(status.st_mode))
        reason = ENODEV;
    if (reason != 0)
        (void)close(descriptor);
    return reason;
}

} // namespace

YB_PLATFORM_EXPORT int ybd_get_dev_list(char **names, uint32_t *count) {
    if (count == nullptr || (names == nullptr && *count != 0))
        return answer(EINVAL);
    ybd::device_list list;
    if (const int reason = ybd::find_devices(list); reason != 0)
        return answer(reason);

    const uint32_t listed = *count < list.count ? *count : list.count;
    for (uint32_t i = 0; i < listed; ++i) {
        if (names[i] == nullptr)
            return answer(EINVAL);
    }
    for (uint32_t i = 0; i < listed; ++i)
        memcpy(names[i], list.names[i], strlen(list.names[i]) + 1);
    *count = listed;
    return 0;
}

YB_PLATFORM_EXPORT int ybd_open_device(const char *name, uint32_t *handle) {
    if (name == nullptr || handle == nullptr)
        return answer(EINVAL);
    ybd::device_list list;
    if (const int reason = ybd::find_devices(list); reason != 0)
        return answer(reason);
    if (!ybd::is_listed(list, name))
        return answer(ENODEV);

    int descriptor = ybd::soft_device_descriptor;
    if (!ybd::is_soft_device(name)) {
        if (const int reason = open_node(name, descriptor); reason != 0)
            return answer(reason);
    }
    const uint32_t added = ybd::table_add(descriptor);
    if (added == 0) {
        if (descriptor != ybd::soft_device_descriptor)
            (void)close(descriptor);
        return answer(EMFILE);
    }
    *handle = added;
    return 0;
}

YB_PLATFORM_EXPORT int ybd_ioctl(uint32_t handle, void *control_record) {
    const ybd::device_use device(handle);
    if (!device.valid())
        return answer(EBADF);
    if (control_record == nullptr)
        return answer(EINVAL);
    if (device.descriptor() == ybd::soft_device_descriptor)
        return answer(ybd::soft_device_control(*static_cast<const ybd_ioctl_cmd_t *>(control_record)));
    // The reason is taken now: ending the use may close the descriptor, which may set errno.
    return answer(ioctl(device.descriptor(), YB_CORE_IOC_CONTROL, control_record) < 0 ? errno : 0);
}

YB_PLATFORM_EXPORT int ybd_close_device(uint32_t handle) {
    return answer(ybd::table_remove(handle));
}
