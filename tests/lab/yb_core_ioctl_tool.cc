// SPDX-License-Identifier: Apache-2.0
// Sends one ioctl to the control device and prints "ok" or the error's name, so
// that driver_sim_test.sh can ask for what no well-behaved library would:
//   yb_core_ioctl_tool control COMMAND RESERVED ARGUMENT
//   yb_core_ioctl_tool words COMMAND WORD0 WORD1 WORD2   (ARGUMENT: their address)
//   yb_core_ioctl_tool raw NUMBER                        (ARGUMENT: a valid control)
//   yb_core_ioctl_tool badpointer                        (the control itself unreadable)
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/driver_sim/yb_core_ioctl.h"

namespace {

constexpr int usage_status = 2;

std::uint64_t number(const char *text) {
    return std::strtoull(text, nullptr, 0);
}

int send(unsigned long request, void *argument) {
    const int fd = open("/dev/yb_core0", O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        std::printf("open: %s\n", strerrorname_np(errno));
        return EXIT_FAILURE;
    }
    const int result = ioctl(fd, request, argument);
    std::puts(result == 0 ? "ok" : strerrorname_np(errno));
    close(fd);
    return result == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char **argv) {
    const std::string_view verb = argc > 1 ? argv[1] : "";
    yb_core_control control{};
    control.command = 7;

    if (verb == "control" && argc == 5) {
        control.command = static_cast<std::uint32_t>(number(argv[2]));
        control.reserved = static_cast<std::uint32_t>(number(argv[3]));
        control.argument = number(argv[4]);
        return send(YB_CORE_IOC_CONTROL, &control);
    }
    if (verb == "words" && argc == 6) {
        std::uint32_t words[3];
        for (int i = 0; i < 3; ++i)
            words[i] = static_cast<std::uint32_t>(number(argv[3 + i]));
        control.command = static_cast<std::uint32_t>(number(argv[2]));
        control.argument = reinterpret_cast<std::uintptr_t>(words);
        return send(YB_CORE_IOC_CONTROL, &control);
    }
    if (verb == "raw" && argc == 3)
        return send(number(argv[2]), &control);
    if (verb == "badpointer" && argc == 2)
        return send(YB_CORE_IOC_CONTROL, reinterpret_cast<void *>(8));
    std::fputs("usage: yb_core_ioctl_tool control|words|raw|badpointer ARGUMENT...\n", stderr);
    return usage_status;
}
