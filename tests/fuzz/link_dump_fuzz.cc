// SPDX-License-Identifier: Apache-2.0
//
// Any bytes as one datagram of a link dump (net_lib/link_dump.h), held against libnl's walk over the same
// ones.
#include "net_lib/link_dump.h"

#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include "tests/fuzz/support/check.h"
#include "tests/fuzz/support/input.h"

namespace {

constexpr uint32_t wanted = 3;

bool has_name(const nlmsghdr *message) {
    int remaining = nlmsg_attrlen(message, sizeof(ifinfomsg));
    for (const nlattr *at = nlmsg_attrdata(message, sizeof(ifinfomsg)); nla_ok(at, remaining);
         at = nla_next(at, &remaining)) {
        if (at->nla_type == IFLA_IFNAME)
            return true;
    }
    return false;
}

void take_in_by_libnl(const nlmsghdr *message, link_dump *dump) {
    const int length = nlmsg_datalen(message);
    const void *const payload = nlmsg_data(message);
    const bool has_number = length >= static_cast<int>(sizeof(int));
    const int number = has_number ? *static_cast<const int *>(payload) : 0;
    if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) {
        const bool is_error = message->nlmsg_type == NLMSG_ERROR;
        if (is_error ? !has_number || number != 0 : number < 0 && !dump->found) {
            dump->failed = true;
            dump->reason = has_number ? static_cast<int>(-static_cast<uint32_t>(number)) : EPROTO;
        }
        dump->done = dump->done || !is_error || dump->failed;
    } else if (message->nlmsg_type == RTM_NEWLINK && length >= static_cast<int>(sizeof(ifinfomsg))) {
        const auto *const link = static_cast<const ifinfomsg *>(payload);
        if (link->ifi_index != static_cast<int>(wanted) || !has_name(message))
            return;
        dump->done = dump->found = true;
        dump->state = (link->ifi_flags & IFF_UP) != 0 ? 1 : 0;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    link_dump expected = {};
    const auto *message = reinterpret_cast<const nlmsghdr *>(data);
    int remaining = static_cast<int>(size);
    for (; nlmsg_ok(message, remaining); message = nlmsg_next(const_cast<nlmsghdr *>(message), &remaining))
        take_in_by_libnl(message, &expected);

    const fuzz::misaligned_copy datagram(data, size);
    link_dump dump = {};
    link_dump_walk(datagram.data(), size, wanted, &dump);
    FUZZ_CHECK(dump.done == expected.done);
    FUZZ_CHECK(dump.found == expected.found);
    FUZZ_CHECK(dump.state == expected.state);
    FUZZ_CHECK(dump.failed == expected.failed);
    FUZZ_CHECK(dump.reason == expected.reason);
    return 0;
}
