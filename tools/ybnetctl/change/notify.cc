// SPDX-License-Identifier: Apache-2.0
//
// See notify.h. The protocol is one datagram of text, stable and documented in sd_notify(3), which itself advises
// programs to speak it rather than to depend on a library for it.
#include "tools/ybnetctl/change/notify.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ybnetctl {

std::string notify_service_manager(const std::string &state) {
    const char *const path = std::getenv("NOTIFY_SOCKET");
    if (path == nullptr)
        return "";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(path);
    if ((path[0] != '/' && path[0] != '@') || length >= sizeof(address.sun_path))
        return "NOTIFY_SOCKET is neither a path nor an abstract name";
    std::memcpy(address.sun_path, path, length);
    if (path[0] == '@')
        address.sun_path[0] = '\0';
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return std::string("NOTIFY_SOCKET: ") + std::strerror(errno);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    const ssize_t sent = sendto(descriptor, state.data(), state.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr *>(&address), size);
    const std::string problem = sent < 0 ? std::string("NOTIFY_SOCKET: ") + std::strerror(errno) : "";
    close(descriptor);
    return problem;
}

} // namespace ybnetctl
