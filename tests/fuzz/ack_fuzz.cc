// SPDX-License-Identifier: Apache-2.0
//
// Any bytes as the kernel's answer to a request (net_lib/rtnl/ack.h), held against libnl's walk over the same
// ones.
#include "net_lib/rtnl/ack.h"

#include <cerrno>
#include <netlink/msg.h>
#include <optional>

#include "tests/fuzz/support/check.h"
#include "tests/fuzz/support/input.h"
#include "tests/fuzz/support/silent_stderr.h"

namespace {

constexpr uint32_t port_id = 7;
constexpr uint32_t sequence = 9;

struct answer {
    bool whole;
    int error;
};

std::optional<answer> answer_by_libnl(const uint8_t *data, size_t size) {
    const auto *message = reinterpret_cast<const nlmsghdr *>(data);
    int remaining = static_cast<int>(size);
    for (; nlmsg_ok(message, remaining); message = nlmsg_next(const_cast<nlmsghdr *>(message), &remaining)) {
        if (message->nlmsg_type != NLMSG_ERROR || message->nlmsg_pid != port_id ||
            message->nlmsg_seq != sequence)
            continue;
        if (nlmsg_datalen(message) < static_cast<int>(sizeof(nlmsgerr)))
            return answer{false, 0};
        return answer{true, static_cast<const nlmsgerr *>(nlmsg_data(message))->error};
    }
    return std::nullopt;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::silence_stderr();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::optional<answer> expected = answer_by_libnl(data, size);
    const fuzz::misaligned_copy datagram(data, size);
    for (const bool truncated : {false, true}) {
        errno = 0;
        const rtnl_ack found = rtnl_ack_find(datagram.data(), size, truncated, port_id, sequence);
        FUZZ_CHECK((found == rtnl_ack::acknowledged) ==
                   (expected && expected->whole && expected->error == 0));
        if (!expected)
            continue;
        FUZZ_CHECK(found != rtnl_ack::receive_further);
        if (expected->whole && expected->error != 0)
            FUZZ_CHECK(static_cast<uint32_t>(errno) == -static_cast<uint32_t>(expected->error));
    }
    return 0;
}
