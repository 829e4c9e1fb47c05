// SPDX-License-Identifier: Apache-2.0
//
// See netlink_peer.h. Scripted answers are files answers/NUMBER, taken in the
// order in which they were given; requests are one file of lengths and bytes.
#include "testkit/netlink_peer.h"

#include <cerrno>
#include <cstring>
#include <linux/if.h>
#include <linux/rtnetlink.h>
#include <sstream>
#include <string_view>
#include <unistd.h>

#include "testkit/directory.h"
#include "testkit/event_queue.h"
#include "testkit/link_message.h"
#include "testkit/netdev_table.h"

namespace testkit {

namespace {

constexpr size_t dump_datagram_size = 4096; // what every receiver has room for

std::string answer_path(const std::string &name) {
    return path_of("answers/") + name;
}

bool load(const std::string &name, scripted_answer *answer) {
    const std::string text = read_text(answer_path(name));
    std::istringstream fields(text);
    int kind = 0;
    size_t size = 0;
    if (!(fields >> kind >> answer->type >> answer->error >> answer->times >> size) || size > text.size())
        return false;
    answer->kind = kind == 1   ? scripted_answer::with_bytes
                   : kind == 2 ? scripted_answer::with_silence
                               : scripted_answer::with_error;
    answer->bytes = text.substr(text.size() - size);
    return true;
}

bool save(const std::string &name, const scripted_answer &answer) {
    std::ostringstream text;
    text << static_cast<int>(answer.kind) << ' ' << answer.type << ' ' << answer.error << ' ' << answer.times
         << ' ' << answer.bytes.size() << '\n'
         << answer.bytes;
    return write_text(answer_path(name), text.str());
}

bool take_scripted(uint16_t type, scripted_answer *answer) {
    for (const std::string &name : names_in(path_of("answers"))) {
        if (!load(name, answer) || (answer->type != 0 && answer->type != type))
            continue;
        scripted_answer left = *answer;
        left.times--;
        if (left.times == 0)
            (void)unlink(answer_path(name).c_str());
        else
            (void)save(name, left);
        return true;
    }
    return false;
}

// Bytes written without knowing the request get its sequence number and port id.
std::string addressed(std::string datagram, uint32_t sequence, uint32_t port_id) {
    struct nlmsghdr header = header_of(datagram);
    if (datagram.size() < sizeof(header) || header.nlmsg_seq != 0 || header.nlmsg_pid != 0)
        return datagram;
    header.nlmsg_seq = sequence;
    header.nlmsg_pid = port_id;
    memcpy(datagram.data(), &header, sizeof(header));
    return datagram;
}

struct link_request {
    struct ifinfomsg link = {};
    std::string_view attributes;
    std::string name; // IFLA_IFNAME
};

bool parse(std::string_view request, link_request *parsed) {
    if (request.size() < NLMSG_LENGTH(sizeof(parsed->link)))
        return false;
    memcpy(&parsed->link, request.data() + NLMSG_HDRLEN, sizeof(parsed->link));
    parsed->attributes = request.substr(NLMSG_LENGTH(sizeof(parsed->link)));
    parsed->name = attribute_text(parsed->attributes, IFLA_IFNAME);
    return true;
}

std::optional<netdev> find(const link_request &request) {
    if (request.link.ifi_index > 0)
        return netdev_numbered("", static_cast<uint32_t>(request.link.ifi_index));
    return netdev_named("", request.name);
}

int new_link(const struct nlmsghdr &header, const link_request &request) {
    if (const auto device = find(request)) {
        if ((header.nlmsg_flags & NLM_F_EXCL) != 0)
            return EEXIST;
        uint32_t mask = request.link.ifi_change;
        if (mask == 0 && request.link.ifi_flags != 0)
            mask = ~0u; // as the kernel reads it
        constexpr uint32_t settable = IFF_UP | IFF_PROMISC | IFF_ALLMULTI | IFF_NOARP | IFF_DEBUG;
        return netdev_set_flags("", device->name, request.link.ifi_flags, mask & settable);
    }
    if ((header.nlmsg_flags & NLM_F_CREATE) == 0)
        return ENODEV;
    netdev device;
    device.name = request.name;
    device.flags = IFF_BROADCAST | IFF_MULTICAST;
    device.kind = attribute_text(attribute_in(request.attributes, IFLA_LINKINFO), IFLA_INFO_KIND);
    uint32_t ifindex = 0;
    return netdev_add(device, &ifindex);
}

void dump_links(uint32_t sequence, uint32_t port_id) {
    std::string datagram;
    for (const netdev &device : netdevs_in("")) {
        const std::string message = link_message(RTM_NEWLINK, device, 0, NLM_F_MULTI, sequence, port_id);
        if (datagram.size() + message.size() > dump_datagram_size) {
            answer_deliver(port_id, datagram);
            datagram.clear();
        }
        datagram += message;
    }
    if (!datagram.empty())
        answer_deliver(port_id, datagram);
    answer_deliver(port_id, done_message(sequence, port_id));
}

// 0 or an errno; *answered: no acknowledgement is due any more.
int act(const struct nlmsghdr &header, std::string_view request, uint32_t port_id, bool *answered) {
    link_request parsed;
    const bool whole = parse(request, &parsed);
    switch (header.nlmsg_type) {
    case RTM_GETLINK:
        if ((header.nlmsg_flags & NLM_F_DUMP) != 0) {
            dump_links(header.nlmsg_seq, port_id);
            *answered = true;
            return 0;
        }
        if (const auto device = whole ? find(parsed) : std::nullopt) {
            answer_deliver(port_id, link_message(RTM_NEWLINK, *device, 0, 0, header.nlmsg_seq, port_id));
            return 0;
        }
        return whole ? ENODEV : EINVAL;
    case RTM_NEWLINK:
        return whole ? new_link(header, parsed) : EINVAL;
    case RTM_DELLINK:
        if (const auto device = whole ? find(parsed) : std::nullopt)
            return netdev_remove("", device->name);
        return whole ? ENODEV : EINVAL;
    case RTM_NEWADDR:
    case RTM_DELADDR: {
        struct ifaddrmsg address = {};
        if (request.size() < NLMSG_LENGTH(sizeof(address)))
            return EINVAL;
        memcpy(&address, request.data() + NLMSG_HDRLEN, sizeof(address));
        return netdev_numbered("", address.ifa_index) ? 0 : ENODEV; // addresses are recorded, not kept
    }
    default:
        return EOPNOTSUPP;
    }
}

} // namespace

bool peer_take_request(uint32_t port_id, const std::string &request) {
    const directory_lock lock;
    if (!endpoint_exists(port_id))
        return false;
    const auto size = static_cast<uint32_t>(request.size());
    (void)append_text(path_of("requests"),
                      std::string(reinterpret_cast<const char *>(&size), sizeof(size)) + request);
    const struct nlmsghdr header = header_of(request);
    if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > request.size() ||
        (header.nlmsg_flags & NLM_F_REQUEST) == 0)
        return true; // the kernel is silent too
    const std::string_view message = std::string_view(request).substr(0, header.nlmsg_len);

    scripted_answer answer;
    if (take_scripted(header.nlmsg_type, &answer)) {
        if (answer.kind == scripted_answer::with_bytes)
            answer_deliver(port_id, addressed(answer.bytes, header.nlmsg_seq, port_id));
        else if (answer.kind == scripted_answer::with_error)
            answer_deliver(port_id, answer_message(message, answer.error, port_id));
        return true;
    }
    bool answered = false;
    const int error = act(header, message, port_id, &answered);
    if (!answered && (error != 0 || (header.nlmsg_flags & NLM_F_ACK) != 0))
        answer_deliver(port_id, answer_message(message, error, port_id));
    return true;
}

bool peer_script(const scripted_answer &answer) {
    // Names sort in the order given.
    const std::string last = read_text(path_of("last_answer"));
    const unsigned long number = last.empty() ? 1 : std::stoul(last) + 1;
    std::string name = std::to_string(number);
    name.insert(0, 10 - std::min<size_t>(name.size(), 10), '0');
    return write_text(path_of("last_answer"), std::to_string(number)) && save(name, answer);
}

std::vector<std::string> peer_requests() {
    const std::string text = read_text(path_of("requests"));
    std::vector<std::string> found;
    for (size_t at = 0; at + sizeof(uint32_t) <= text.size();) {
        uint32_t size = 0;
        memcpy(&size, text.data() + at, sizeof(size));
        found.push_back(text.substr(at + sizeof(size), size));
        at += sizeof(size) + size;
    }
    return found;
}

} // namespace testkit
