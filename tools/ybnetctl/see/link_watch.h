// SPDX-License-Identifier: Apache-2.0
//
// The kernel's link messages of one network namespace, received without waiting.
// A socket of the tool's own: the library's event socket takes the process id as
// its port, and monitor is not one of the stack's users.
#ifndef YBNET_YBNETCTL_SEE_LINK_WATCH_H
#define YBNET_YBNETCTL_SEE_LINK_WATCH_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/ybnetctl/kernel/link_message.h"
#include "tools/ybnetctl/kernel/namespaces.h"

namespace ybnetctl {

class link_watch {
  public:
    // Throws failure when the namespace cannot be watched: exit code 3 when there is none of this name.
    // buffer_size: of the socket's receive buffer, in bytes.
    link_watch(const std::string &ns, uint32_t buffer_size);

    [[nodiscard]] const std::string &ns() const {
        return ns_;
    }
    [[nodiscard]] int descriptor() const {
        return descriptor_.number();
    }
    // Bytes that the kernel granted.
    [[nodiscard]] uint32_t buffer_size() const;

    // Whether the namespace still has its name. The socket keeps one that was deleted from going away, so it must not
    // be watched any longer.
    [[nodiscard]] bool is_current() const;

    enum class reception { message, other, nothing_left, lost };

    // Takes the next datagram. lost: the kernel dropped some; what is received from then on until nothing is left is
    // older than the loss.
    reception receive(link_message &message);

    // How many messages the kernel has dropped since this was last asked; none where it does not tell.
    std::optional<uint32_t> take_dropped();

    bool loss_pending = false; // lost, and not yet reported

  private:
    std::string ns_;
    unique_descriptor descriptor_;
    namespace_identity identity_;
    std::vector<std::byte> datagram_;
    uint32_t dropped_before_ = 0;
};

} // namespace ybnetctl

#endif
