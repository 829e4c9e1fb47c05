// SPDX-License-Identifier: Apache-2.0
//
// See device_list.h.
#include "platform/ybd/device_list.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

namespace ybd {

namespace {

bool is_character_device(const char *path) {
    struct stat status = {};
    return stat(path, &status) == 0 && S_ISCHR(status.st_mode);
}

void append(device_list &list, const char *name) {
    (void)snprintf(list.names[list.count], YBD_DEV_NAME_SIZE, "%s", name);
    ++list.count;
}

void append_nodes(device_list &list) {
    for (uint32_t number = 0; number < max_devices; ++number) {
        char path[YBD_DEV_NAME_SIZE];
        (void)snprintf(path, sizeof(path), "/dev/yb_core%u", number);
        if (is_character_device(path))
            append(list, path);
    }
}

} // namespace

int find_devices(device_list &list) {
    list.count = 0;
    // A program with more rights than its user does not let the user choose the device.
    const char *const choice = secure_getenv("YBD_DEVICE");
    if (choice == nullptr || *choice == '\0') {
        append_nodes(list);
        if (list.count == 0)
            append(list, soft_device_name);
        return 0;
    }
    if (strcmp(choice, "none") == 0)
        return ENODEV;
    if (strcmp(choice, "soft") == 0) {
        append(list, soft_device_name);
        return 0;
    }
    if (*choice != '/')
        return EINVAL;
    if (strlen(choice) >= YBD_DEV_NAME_SIZE)
        return ENAMETOOLONG;
    append(list, choice);
    return 0;
}

bool is_listed(const device_list &list, const char *name) {
    for (uint32_t i = 0; i < list.count; ++i) {
        if (strcmp(list.names[i], name) == 0)
            return true;
    }
    return false;
}

bool is_soft_device(const char *name) {
    return strcmp(name, soft_device_name) == 0;
}

} // namespace ybd
