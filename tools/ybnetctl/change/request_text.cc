// SPDX-License-Identifier: Apache-2.0
//
// See request_text.h. Rests on the message layout of netlink(7) and rtnetlink(7).
#include "tools/ybnetctl/change/request_text.h"

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <cstring>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

namespace ybnetctl {

namespace {

using byte_span = std::span<const std::byte>;

template <class header_t> bool read_head(byte_span bytes, header_t *out) {
    if (bytes.size() < sizeof(header_t))
        return false;
    std::memcpy(out, bytes.data(), sizeof(header_t));
    return true;
}

byte_span behind(byte_span bytes, size_t count) {
    return bytes.subspan(std::min(count, bytes.size()));
}

struct named_value {
    unsigned value;
    const char *name;
};

template <size_t count>
std::string name_of_value(const std::array<named_value, count> &names, unsigned value,
                          const std::string &otherwise) {
    for (const named_value &each : names)
        if (each.value == value)
            return each.name;
    return otherwise + std::to_string(value);
}

constexpr std::array message_types = {
    named_value{RTM_NEWLINK, "RTM_NEWLINK"}, named_value{RTM_DELLINK, "RTM_DELLINK"},
    named_value{RTM_GETLINK, "RTM_GETLINK"}, named_value{RTM_NEWADDR, "RTM_NEWADDR"},
    named_value{RTM_DELADDR, "RTM_DELADDR"},
};
constexpr std::array message_flags = {
    named_value{NLM_F_REQUEST, "REQUEST"},
    named_value{NLM_F_ACK, "ACK"},
    named_value{NLM_F_EXCL, "EXCL"},
    named_value{NLM_F_CREATE, "CREATE"},
};
constexpr std::array link_attributes = {
    named_value{IFLA_IFNAME, "IFLA_IFNAME"},
    named_value{IFLA_LINKINFO, "IFLA_LINKINFO"},
};
constexpr std::array link_info_attributes = {
    named_value{IFLA_INFO_KIND, "IFLA_INFO_KIND"},
    named_value{IFLA_INFO_DATA, "IFLA_INFO_DATA"},
};
constexpr std::array address_attributes = {
    named_value{IFA_ADDRESS, "IFA_ADDRESS"},     named_value{IFA_LOCAL, "IFA_LOCAL"},
    named_value{IFA_LABEL, "IFA_LABEL"},         named_value{IFA_BROADCAST, "IFA_BROADCAST"},
    named_value{IFA_CACHEINFO, "IFA_CACHEINFO"},
};

std::string hex(unsigned value) {
    std::array<char, 11> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%x", value);
    return text.data();
}

// What one attribute holds.
enum class content { bytes, text, word, ipv4, lifetime, link_info, private_words };

content content_of(unsigned message_type, content parent, unsigned type) {
    const bool address = message_type == RTM_NEWADDR || message_type == RTM_DELADDR;
    if (parent == content::link_info)
        return type == IFLA_INFO_KIND   ? content::text
               : type == IFLA_INFO_DATA ? content::private_words
                                        : content::bytes;
    if (parent == content::private_words)
        return content::word;
    if (address)
        return type == IFA_LABEL                                                   ? content::text
               : type == IFA_CACHEINFO                                             ? content::lifetime
               : type == IFA_ADDRESS || type == IFA_LOCAL || type == IFA_BROADCAST ? content::ipv4
                                                                                   : content::bytes;
    return type == IFLA_IFNAME ? content::text : type == IFLA_LINKINFO ? content::link_info : content::bytes;
}

std::string name_of_attribute(unsigned message_type, content parent, unsigned type) {
    if (parent == content::link_info)
        return name_of_value(link_info_attributes, type, "IFLA_INFO ");
    if (parent == content::private_words)
        return "attribute " + std::to_string(type);
    if (message_type == RTM_NEWADDR || message_type == RTM_DELADDR)
        return name_of_value(address_attributes, type, "IFA ");
    return name_of_value(link_attributes, type, "IFLA ");
}

std::string as_hex(byte_span bytes) {
    std::string text;
    for (const std::byte each : bytes) {
        std::array<char, 3> digits{};
        (void)std::snprintf(digits.data(), digits.size(), "%02x", std::to_integer<unsigned>(each));
        text += digits.data();
    }
    return text;
}

void describe_value(content what, byte_span payload, request_words *words) {
    if (what == content::text) {
        const auto *const chars = reinterpret_cast<const char *>(payload.data());
        const std::string value(chars, strnlen(chars, payload.size()));
        words->text = '"' + value + '"';
        words->details["value"] = value;
        return;
    }
    if (uint32_t word = 0; what == content::word && payload.size() == sizeof(word)) {
        (void)read_head(payload, &word);
        words->text = std::to_string(word) + " (" + hex(word) + ')';
        words->details["value"] = word;
        return;
    }
    if (in_addr address = {}; what == content::ipv4 && read_head(payload, &address)) {
        std::array<char, INET_ADDRSTRLEN> text{};
        (void)inet_ntop(AF_INET, &address, text.data(), text.size()); // IPv4 always fits
        words->text = text.data();
        words->details["value"] = text.data();
        return;
    }
    if (ifa_cacheinfo lifetime = {}; what == content::lifetime && read_head(payload, &lifetime)) {
        const bool forever = lifetime.ifa_valid == UINT32_MAX && lifetime.ifa_prefered == UINT32_MAX;
        words->text = forever ? "forever"
                              : "valid " + std::to_string(lifetime.ifa_valid) + " s, preferred " +
                                    std::to_string(lifetime.ifa_prefered) + " s";
        words->details["valid"] = lifetime.ifa_valid;
        words->details["preferred"] = lifetime.ifa_prefered;
        return;
    }
    words->text = as_hex(payload);
    words->details["bytes"] = words->text;
}

// The attributes one behind the other; nests are walked, to a depth that no request of ours has.
request_words describe_attributes(unsigned message_type, content parent, byte_span bytes, int depth) {
    request_words all{"", json::array()};
    while (!bytes.empty()) {
        rtattr header = {};
        if (!read_head(bytes, &header) || header.rta_len < sizeof(header) || header.rta_len > bytes.size()) {
            all.text += " cut short";
            all.details.push_back({{"cut_short", true}});
            break;
        }
        const auto payload = bytes.first(header.rta_len).subspan(sizeof(header));
        const content what = content_of(message_type, parent, header.rta_type);
        const std::string name = name_of_attribute(message_type, parent, header.rta_type);
        request_words one;
        one.details["name"] = name;
        one.details["type"] = header.rta_type;
        if ((what == content::link_info || what == content::private_words) && depth < 4) {
            request_words inner = describe_attributes(message_type, what, payload, depth + 1);
            one.text = '{' + inner.text + " }";
            one.details["attributes"] = std::move(inner.details);
        } else {
            describe_value(what, payload, &one);
        }
        all.text += ' ' + name + ' ' + one.text;
        all.details.push_back(std::move(one.details));
        bytes = behind(bytes, RTA_ALIGN(header.rta_len));
    }
    return all;
}

std::string link_flags(unsigned flags) {
    if (flags == IFF_UP)
        return "UP";
    return flags == ~unsigned{IFF_UP} ? "all but UP" : hex(flags);
}

void add_netdev(unsigned ifindex, const netdev_namer &name_of, request_words *words) {
    const std::string name = name_of(ifindex);
    words->text += " ifindex " + std::to_string(ifindex) + (name.empty() ? "" : " (" + name + ')');
    words->details["ifindex"] = ifindex;
    words->details["netdev"] = name.empty() ? json(nullptr) : json(name);
}

byte_span describe_link(byte_span payload, const netdev_namer &name_of, request_words *words) {
    ifinfomsg link = {};
    if (!read_head(payload, &link)) {
        words->text += " cut short";
        return {};
    }
    if (link.ifi_index != 0)
        add_netdev(static_cast<unsigned>(link.ifi_index), name_of, words);
    words->details["family"] = link.ifi_family;
    words->details["link_flags"] = link.ifi_flags;
    words->details["link_flags_changed"] = link.ifi_change;
    if (link.ifi_change != 0)
        words->text += " link flags " + link_flags(link.ifi_flags) + " change " + link_flags(link.ifi_change);
    return behind(payload, NLMSG_ALIGN(sizeof(link)));
}

byte_span describe_address(byte_span payload, const netdev_namer &name_of, request_words *words) {
    ifaddrmsg address = {};
    if (!read_head(payload, &address)) {
        words->text += " cut short";
        return {};
    }
    add_netdev(address.ifa_index, name_of, words);
    words->details["family"] = address.ifa_family;
    words->details["prefix_length"] = address.ifa_prefixlen;
    words->text += " prefix length " + std::to_string(address.ifa_prefixlen);
    return behind(payload, NLMSG_ALIGN(sizeof(address)));
}

} // namespace

request_words describe_request(byte_span bytes, const netdev_namer &name_of) {
    request_words words{"", json::object()};
    nlmsghdr header = {};
    if (!read_head(bytes, &header)) {
        words.text = "cut short";
        words.details["cut_short"] = true;
        return words;
    }
    words.text = name_of_value(message_types, header.nlmsg_type, "message ");
    words.details["type"] = words.text;
    words.details["length"] = header.nlmsg_len;
    words.details["flags"] = json::array();
    std::string flags;
    for (const named_value &each : message_flags) {
        if ((header.nlmsg_flags & each.value) == 0)
            continue;
        flags += (flags.empty() ? "" : "|") + std::string(each.name);
        words.details["flags"].push_back(each.name);
    }
    words.text += " flags " + (flags.empty() ? "none" : flags);

    const byte_span payload =
        behind(bytes.first(std::min<size_t>(bytes.size(), header.nlmsg_len)), NLMSG_HDRLEN);
    const bool address = header.nlmsg_type == RTM_NEWADDR || header.nlmsg_type == RTM_DELADDR;
    const byte_span rest =
        address ? describe_address(payload, name_of, &words) : describe_link(payload, name_of, &words);
    request_words attributes = describe_attributes(header.nlmsg_type, content::bytes, rest, 0);
    words.text += attributes.text;
    words.details["attributes"] = std::move(attributes.details);
    return words;
}

} // namespace ybnetctl
