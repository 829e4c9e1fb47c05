// SPDX-License-Identifier: Apache-2.0
//
// See carrier.h. Rests on the kernel's /sys/class/net/NAME/carrier.
#include "net_lib/carrier.h"

#include <cstdio>
#include <fcntl.h>

#include "net_lib/net_lib_log.h"
#include "net_lib/netdev_name.h"

namespace {

constexpr size_t path_size = 50;
constexpr size_t text_size = 10;

} // namespace

int32_t __get_ib_if_carrier_state(const char *if_name) {
    if (!is_netdev_name(if_name))
        return 0; // as of a netdev that does not exist
    char path[path_size];
    (void)snprintf(path, sizeof(path), "/sys/class/net/%s/carrier", if_name); // a longer path is cut
    FILE *const file = fopen(path, "r");
    if (file == nullptr)
        return 0;
    (void)fcntl(fileno(file), F_SETFD, FD_CLOEXEC); // cannot fail on a descriptor just made
    char text[text_size] = {};
    const size_t length = fread(text, 1, 1, file);
    (void)fclose(file); // nothing was written
    if (length != 1)
        return 0;
    int32_t carrier = 0;
    if (sscanf(text, "%d", &carrier) != 1) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "__get_ib_if_carrier_state: couldn't scan carrier state for if %s\n",
                    if_name);
        return 0;
    }
    return carrier;
}
