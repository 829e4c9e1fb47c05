// SPDX-License-Identifier: Apache-2.0
//
// Any bytes as a datagram of an event socket (net_lib/event_parse.h).
#include "net_lib/event_parse.h"

#include <net/if.h>
#include <netlink/msg.h>

#include "tests/fuzz/support/check.h"
#include "tests/fuzz/support/input.h"
#include "ybnet/yb_net_event.h"

namespace {

constexpr link_event untouched = {0xA5A5A5A5, 0x5A5A5A5A};

// What the event of a whole message has to be.
link_event expected_event(const nlmsghdr *message) {
    struct ifinfomsg link = {};
    memcpy(&link, nlmsg_data(message), std::min(static_cast<size_t>(nlmsg_datalen(message)), sizeof(link)));
    const auto index = static_cast<uint32_t>(link.ifi_index);
    if (message->nlmsg_type == RTM_DELLINK)
        return {YB_NET_IF_EVENT_LINK_DELETED, index};
    if (message->nlmsg_type != RTM_NEWLINK)
        return {YB_NET_IF_EVENT_NONE, 0};
    const bool changed = (link.ifi_change & IFF_UP) != 0 || (link.ifi_change & IFF_RUNNING) != 0;
    const bool up = (link.ifi_flags & IFF_UP) != 0;
    const uint32_t moved = up ? YB_NET_IF_EVENT_LINK_UP : YB_NET_IF_EVENT_LINK_DOWN;
    return {changed ? moved : static_cast<uint32_t>(YB_NET_IF_EVENT_LINK_CHANGE), index};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto *const message = reinterpret_cast<const nlmsghdr *>(data);
    const bool whole = nlmsg_ok(message, static_cast<int>(size)) != 0;
    const link_event expected = whole ? expected_event(message) : untouched;

    const fuzz::misaligned_copy datagram(data, size);
    link_event event = untouched;
    FUZZ_CHECK(link_event_parse(datagram.data(), size, &event) == whole);
    FUZZ_CHECK(event.event_type == expected.event_type);
    FUZZ_CHECK(event.linux_ifindex == expected.linux_ifindex);
    return 0;
}
