// SPDX-License-Identifier: Apache-2.0
//
// Whether a text that was given to a shell is one of the library's commands, with nothing in its names that a
// shell could take for anything but part of a word.
#ifndef YBNET_TESTS_FUZZ_COMMAND_TEXT_H
#define YBNET_TESTS_FUZZ_COMMAND_TEXT_H

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace fuzz {

namespace command_text_parts {

inline size_t length_of(std::string_view text, std::string_view allowed) {
    return std::min(text.find_first_not_of(allowed), text.size());
}

// %s is a name, %d a number; anything else stands for itself.
inline bool matches(std::string_view text, std::string_view format) {
    constexpr std::string_view digits = "0123456789";
    constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-@:+=";
    while (!format.empty()) {
        if (!format.starts_with('%')) {
            if (text.empty() || text.front() != format.front())
                return false;
            text.remove_prefix(1);
            format.remove_prefix(1);
            continue;
        }
        const bool name = format.starts_with("%s");
        const size_t length = length_of(text, name ? plain : digits);
        if (length == 0 || (name && text.front() == '-'))
            return false;
        text.remove_prefix(length);
        format.remove_prefix(2);
    }
    return text.empty();
}

} // namespace command_text_parts

// What system() may be given: in the caller's namespace or, with a prefix, in a named one.
inline bool is_a_command(std::string_view text) {
    constexpr std::array<std::string_view, 8> formats = {
        "vconfig add %s %d",
        "vconfig rem %s",
        "ip link add link %s %s type vlan protocol 802.1Q id %d",
        "ip link set %s name %s",
        "ip link set netns %s %s",
        "ip link set dev %s type vlan id %d",
        "ip link add name %s type bridge",
        "ip link del dev %s",
    };
    return std::any_of(formats.begin(), formats.end(), [text](std::string_view format) {
        return command_text_parts::matches(text, format) ||
               command_text_parts::matches(text, std::string("ip netns exec %s ") + std::string(format));
    });
}

// What popen() may be given.
inline bool is_a_query(std::string_view text) {
    return command_text_parts::matches(text, "ip netns exec %s cat /sys/devices/virtual/net/%s/ifindex 2>&1");
}

} // namespace fuzz

#endif
