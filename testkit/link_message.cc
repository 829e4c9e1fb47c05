// SPDX-License-Identifier: Apache-2.0
//
// See link_message.h.
#include "testkit/link_message.h"

#include <cstring>
#include <linux/if_arp.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace testkit {

namespace {

template <typename part_t> void append(std::string *message, const part_t &part) {
    message->append(reinterpret_cast<const char *>(&part), sizeof(part));
}

void append_attribute(std::string *message, uint16_t type, std::string_view data) {
    struct rtattr header = {};
    header.rta_len = static_cast<uint16_t>(RTA_LENGTH(data.size()));
    header.rta_type = type;
    append(message, header);
    message->append(data);
    message->resize(NLMSG_ALIGN(message->size()));
}

std::string finished(std::string message) {
    const auto length = static_cast<uint32_t>(message.size());
    memcpy(message.data() + offsetof(struct nlmsghdr, nlmsg_len), &length, sizeof(length));
    return message;
}

std::string begun(uint16_t type, uint16_t flags, uint32_t sequence, uint32_t port_id) {
    std::string message;
    struct nlmsghdr header = {};
    header.nlmsg_type = type;
    header.nlmsg_flags = flags;
    header.nlmsg_seq = sequence;
    header.nlmsg_pid = port_id;
    append(&message, header);
    return message;
}

void append_link(std::string *message, uint32_t ifindex, uint32_t flags, uint32_t change) {
    struct ifinfomsg link = {};
    link.ifi_family = AF_UNSPEC;
    link.ifi_type = ARPHRD_ETHER;
    link.ifi_index = static_cast<int>(ifindex);
    link.ifi_flags = flags;
    link.ifi_change = change;
    append(message, link);
}

} // namespace

std::string link_message(uint16_t type, const netdev &device, uint32_t change, uint16_t flags,
                         uint32_t sequence, uint32_t port_id) {
    std::string message = begun(type, flags, sequence, port_id);
    append_link(&message, device.ifindex, device.shown_flags(), change);
    append_attribute(&message, IFLA_IFNAME, device.name + '\0');
    if (device.parent != 0)
        append_attribute(&message, IFLA_LINK, {reinterpret_cast<const char *>(&device.parent), 4});
    const char carrier = device.carrier ? 1 : 0;
    append_attribute(&message, IFLA_CARRIER, {&carrier, 1});
    return finished(std::move(message));
}

std::string bare_link_message(uint16_t type, uint32_t ifindex, uint32_t flags, uint32_t change) {
    std::string message = begun(type, 0, 0, 0);
    append_link(&message, ifindex, flags, change);
    return finished(std::move(message));
}

std::string answer_message(std::string_view request, int error, uint32_t port_id) {
    const struct nlmsghdr header = header_of(request);
    std::string message = begun(NLMSG_ERROR, 0, header.nlmsg_seq, port_id);
    append(&message, -error);
    message += error == 0 ? request.substr(0, sizeof(header)) : request; // a refusal quotes all of it
    return finished(std::move(message));
}

std::string done_message(uint32_t sequence, uint32_t port_id) {
    std::string message = begun(NLMSG_DONE, NLM_F_MULTI, sequence, port_id);
    append(&message, 0);
    return finished(std::move(message));
}

struct nlmsghdr header_of(std::string_view message) {
    struct nlmsghdr header = {};
    if (message.size() >= sizeof(header))
        memcpy(&header, message.data(), sizeof(header));
    return header;
}

std::string_view attribute_in(std::string_view attributes, uint16_t type) {
    while (attributes.size() >= sizeof(struct rtattr)) {
        struct rtattr header;
        memcpy(&header, attributes.data(), sizeof(header));
        if (header.rta_len < sizeof(header) || header.rta_len > attributes.size())
            break;
        if ((header.rta_type & NLA_TYPE_MASK) == type)
            return attributes.substr(sizeof(header), header.rta_len - sizeof(header));
        attributes.remove_prefix(std::min<size_t>(RTA_ALIGN(header.rta_len), attributes.size()));
    }
    return {};
}

std::string attribute_text(std::string_view attributes, uint16_t type) {
    const std::string_view data = attribute_in(attributes, type);
    return std::string(data.substr(0, data.find('\0')));
}

} // namespace testkit
