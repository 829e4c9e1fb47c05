// SPDX-License-Identifier: Apache-2.0
//
// The C view of the netdev table, the event queues, the netlink peer's script and
// the tools. See ybnet/testkit/netdevs.h, rtnetlink.h and tools.h.
#include "ybnet/testkit/netdevs.h"

#include <algorithm>
#include <cstring>
#include <linux/if.h>

#include "testkit/directory.h"
#include "testkit/event_queue.h"
#include "testkit/export.h"
#include "testkit/link_message.h"
#include "testkit/netdev_table.h"
#include "testkit/netlink_peer.h"
#include "testkit/tool_answers.h"
#include "ybnet/testkit/rtnetlink.h"
#include "ybnet/testkit/tools.h"

using namespace testkit;

int ybtk_netdev_add(const char *ns, const char *name, uint32_t *out_ifindex) {
    netdev device;
    device.ns = text_or_empty(ns);
    device.name = text_or_empty(name);
    device.flags = IFF_BROADCAST | IFF_MULTICAST;
    device.kind = "scripted";
    uint32_t ifindex = 0;
    const directory_lock lock;
    const int error = netdev_add(device, &ifindex);
    if (error == 0 && out_ifindex != nullptr)
        *out_ifindex = ifindex;
    return result_of(error);
}

int ybtk_netdev_remove(const char *ns, const char *name) {
    const directory_lock lock;
    return result_of(netdev_remove(text_or_empty(ns), text_or_empty(name)));
}

int ybtk_netdev_set_up(const char *ns, const char *name, int up) {
    const directory_lock lock;
    return result_of(
        netdev_set_flags(text_or_empty(ns), text_or_empty(name), up != 0 ? uint32_t{IFF_UP} : 0, IFF_UP));
}

int ybtk_netdev_set_carrier(const char *ns, const char *name, int carrier) {
    const directory_lock lock;
    return result_of(netdev_set_carrier(text_or_empty(ns), text_or_empty(name), carrier != 0));
}

uint32_t ybtk_netdev_ifindex(const char *ns, const char *name) {
    const directory_lock lock;
    const auto device = netdev_named(text_or_empty(ns), text_or_empty(name));
    return device ? device->ifindex : 0;
}

uint32_t ybtk_netdev_flags(const char *ns, const char *name) {
    const directory_lock lock;
    const auto device = netdev_named(text_or_empty(ns), text_or_empty(name));
    return device ? device->shown_flags() : 0;
}

int ybtk_namespace_add(const char *ns) {
    const directory_lock lock;
    return result_of(namespace_add(text_or_empty(ns)));
}

int ybtk_namespace_remove(const char *ns) {
    const directory_lock lock;
    return result_of(namespace_remove(text_or_empty(ns)));
}

int ybtk_wait_for_subscribers(unsigned count, unsigned limit_ms) {
    const auto are_there = [count]() {
        const directory_lock lock;
        return subscribers() == count;
    };
    return wait_until(are_there, limit_ms);
}

int ybtk_link_event(uint16_t type, uint32_t ifindex, uint32_t flags, uint32_t change) {
    const directory_lock lock;
    event_publish(bare_link_message(type, ifindex, flags, change));
    return 0;
}

int ybtk_event_datagram(const void *datagram, size_t size) {
    const directory_lock lock;
    event_publish(std::string(static_cast<const char *>(datagram), size));
    return 0;
}

int ybtk_events_lost(void) {
    const directory_lock lock;
    event_lose();
    return 0;
}

int ybtk_event_queue_limit(unsigned messages) {
    const directory_lock lock;
    return result_of_write(write_text(path_of("queue_limit"), std::to_string(messages)));
}

namespace {

int script(const scripted_answer &answer) {
    if (answer.times == 0)
        return result_of(EINVAL);
    const directory_lock lock;
    return result_of_write(peer_script(answer));
}

} // namespace

int ybtk_rtnetlink_answer_error(uint16_t type, int reason, unsigned times) {
    return script({scripted_answer::with_error, type, reason, times, {}});
}

int ybtk_rtnetlink_answer_datagram(uint16_t type, const void *datagram, size_t size, unsigned times) {
    return script({scripted_answer::with_bytes, type, 0, times,
                   std::string(static_cast<const char *>(datagram), size)});
}

int ybtk_rtnetlink_answer_silence(uint16_t type, unsigned times) {
    return script({scripted_answer::with_silence, type, 0, times, {}});
}

size_t ybtk_rtnetlink_request_count(void) {
    const directory_lock lock;
    return peer_requests().size();
}

size_t ybtk_rtnetlink_request_get(size_t index, void *request, size_t size) {
    const directory_lock lock;
    const std::vector<std::string> all = peer_requests();
    if (index >= all.size())
        return 0;
    memcpy(request, all[index].data(), std::min(size, all[index].size()));
    return all[index].size();
}

size_t ybtk_tool_run_count(void) {
    return tool_runs().size();
}

const char *ybtk_tool_run_get(size_t index) {
    thread_local std::string line;
    const std::vector<std::string> all = tool_runs();
    if (index >= all.size())
        return nullptr;
    line = all[index];
    return line.c_str();
}

int ybtk_tool_answer(const char *pattern, int exit_status, const char *output, unsigned times) {
    const directory_lock lock;
    return result_of_write(tool_answer_add({exit_status, times, pattern, text_or_empty(output)}));
}

int ybtk_tool_script(const char *tool, const char *shell_text) {
    const std::string name = text_or_empty(tool);
    if (name != "ip" && name != "vconfig")
        return result_of(EINVAL);
    return result_of_write(tool_script_set(name, text_or_empty(shell_text)));
}
