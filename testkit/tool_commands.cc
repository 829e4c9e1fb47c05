// SPDX-License-Identifier: Apache-2.0
//
// See tool_commands.h. Follows ip-link(8), ip-netns(8) and vconfig(8).
#include "testkit/tool_commands.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/if.h>

#include "testkit/directory.h"
#include "testkit/netdev_table.h"

namespace testkit {

namespace {

using words_t = std::vector<std::string>;

constexpr int kernel_refused = 2; // ip's exit status for it
constexpr int wrong_usage = 255;

int refused(const std::string &tool, int error) {
    if (error == 0)
        return 0;
    if (tool == "ip")
        (void)fprintf(stderr, "RTNETLINK answers: %s\n", strerror(error));
    else
        (void)fprintf(stderr, "ERROR: %s\n", strerror(error));
    return tool == "ip" ? kernel_refused : 3;
}

int cannot_find(const std::string &name) {
    (void)fprintf(stderr, "Cannot find device \"%s\"\n", name.c_str());
    return 1;
}

int not_modelled(const words_t &words) {
    (void)fputs("ybnet-testkit: not modelled:", stderr);
    for (const std::string &word : words)
        (void)fprintf(stderr, " %s", word.c_str());
    (void)fputc('\n', stderr);
    return wrong_usage;
}

// The words that follow, "?" standing for any one and "*" at the end for all that is left.
bool matches(const words_t &words, std::initializer_list<const char *> pattern) {
    size_t at = 0;
    for (const char *const expected : pattern) {
        if (strcmp(expected, "*") == 0)
            return true;
        if (at == words.size() || (strcmp(expected, "?") != 0 && words[at] != expected))
            return false;
        at++;
    }
    return at == words.size();
}

words_t after(const words_t &words, size_t count) {
    return {words.begin() + static_cast<std::ptrdiff_t>(count), words.end()};
}

int add_vlan(const std::string &tool, const std::string &ns, const std::string &parent,
             const std::string &name) {
    const auto below = netdev_named(ns, parent);
    if (!below)
        return cannot_find(parent);
    netdev device;
    device.ns = ns;
    device.name = name;
    device.parent = below->ifindex;
    device.flags = IFF_BROADCAST | IFF_MULTICAST;
    device.kind = "vlan";
    uint32_t ifindex = 0;
    return refused(tool, netdev_add(device, &ifindex));
}

int add_plain(const std::string &ns, const std::string &name, const std::string &kind) {
    netdev device;
    device.ns = ns;
    device.name = name;
    device.flags = IFF_BROADCAST | IFF_MULTICAST;
    device.kind = kind;
    uint32_t ifindex = 0;
    return refused("ip", netdev_add(device, &ifindex));
}

int vconfig(const std::string &ns, const words_t &words) {
    if (matches(words, {"add", "?", "?"}))
        return add_vlan("vconfig", ns, words[1], words[1] + "." + words[2]);
    if (matches(words, {"rem", "?"}))
        return refused("vconfig", netdev_remove(ns, words[1]));
    return not_modelled(words);
}

// "ip link set": with "dev" before the netdev's name or without it.
int link_set(const std::string &ns, words_t words) {
    if (matches(words, {"netns", "?", "?"}))
        return netdev_named(ns, words[2]) ? refused("ip", netdev_move(ns, words[2], words[1]))
                                          : cannot_find(words[2]);
    if (!words.empty() && words[0] == "dev")
        words.erase(words.begin());
    if (words.empty() || !netdev_named(ns, words[0]))
        return words.empty() ? not_modelled(words) : cannot_find(words[0]);
    const std::string &name = words[0];
    if (matches(words, {"?", "name", "?"}))
        return refused("ip", netdev_rename(ns, name, words[2]));
    if (matches(words, {"?", "netns", "?"}))
        return refused("ip", netdev_move(ns, name, words[2]));
    if (matches(words, {"?", "up"}))
        return refused("ip", netdev_set_flags(ns, name, IFF_UP, IFF_UP));
    if (matches(words, {"?", "down"}))
        return refused("ip", netdev_set_flags(ns, name, 0, IFF_UP));
    if (matches(words, {"?", "carrier", "?"}))
        return refused("ip", netdev_set_carrier(ns, name, words[2] != "off"));
    if (matches(words, {"?", "type", "vlan", "id", "?"}))
        return 0; // accepted, and the tag left as it is, by mainline Linux too
    return not_modelled(words);
}

int link_show(const std::string &ns, const std::string &name) {
    const auto device = netdev_named(ns, name);
    if (!device)
        return cannot_find(name);
    (void)printf("%u: %s: <%s>\n", device->ifindex, name.c_str(), (device->flags & IFF_UP) != 0 ? "UP" : "");
    return 0;
}

int link(const std::string &ns, const words_t &words) {
    if (matches(words, {"add", "link", "?", "?", "type", "vlan", "*"}))
        return add_vlan("ip", ns, words[2], words[3]);
    if (matches(words, {"add", "name", "?", "type", "*"}) && words.size() > 4)
        return add_plain(ns, words[2], words[4]);
    if (matches(words, {"add", "?", "type", "*"}) && words.size() > 3)
        return add_plain(ns, words[1], words[3]);
    if (matches(words, {"set", "*"}))
        return link_set(ns, after(words, 1));
    if (matches(words, {"del", "dev", "?"}) || matches(words, {"del", "?"}))
        return netdev_named(ns, words.back()) ? refused("ip", netdev_remove(ns, words.back()))
                                              : cannot_find(words.back());
    if (matches(words, {"show", "dev", "?"}) || matches(words, {"show", "?"}))
        return link_show(ns, words.back());
    return not_modelled(words);
}

// "cat /sys/devices/virtual/net/NAME/ifindex" inside a namespace.
int show_ifindex(const std::string &ns, const std::string &path) {
    constexpr const char *before = "/sys/devices/virtual/net/";
    constexpr const char *behind = "/ifindex";
    if (!path.starts_with(before) || !path.ends_with(behind))
        return not_modelled({"cat", path});
    const std::string name = path.substr(strlen(before), path.size() - strlen(before) - strlen(behind));
    const auto device = netdev_named(ns, name);
    if (!device) {
        (void)fprintf(stderr, "cat: %s: No such file or directory\n", path.c_str());
        return 1;
    }
    (void)printf("%u\n", device->ifindex);
    return 0;
}

int command_in(const std::string &ns, const words_t &words);

int netns(const words_t &words) {
    if (matches(words, {"add", "?"}) || matches(words, {"del", "?"}) || matches(words, {"delete", "?"})) {
        const int error = words[0] == "add" ? namespace_add(words[1]) : namespace_remove(words[1]);
        if (error != 0)
            (void)fprintf(stderr, "Cannot change namespace \"%s\": %s\n", words[1].c_str(), strerror(error));
        return error == 0 ? 0 : 1;
    }
    if (matches(words, {"list"}) || words.empty()) {
        for (const std::string &name : namespaces())
            (void)puts(name.c_str());
        return 0;
    }
    if (matches(words, {"exec", "?", "*"}) && words.size() > 2) {
        if (!namespace_exists(words[1])) {
            (void)fprintf(stderr, "Cannot open network namespace \"%s\": No such file or directory\n",
                          words[1].c_str());
            return wrong_usage;
        }
        return command_in(words[1], after(words, 2));
    }
    return not_modelled(words);
}

int ip(std::string ns, words_t words) {
    if (words.size() > 2 && words[0] == "-n") {
        ns = words[1];
        words = after(words, 2);
        if (!namespace_exists(ns)) {
            (void)fprintf(stderr, "Cannot open network namespace \"%s\": No such file or directory\n",
                          ns.c_str());
            return wrong_usage;
        }
    }
    if (words.size() > 1 && words[0] == "link")
        return link(ns, after(words, 1));
    if (!words.empty() && words[0] == "netns")
        return netns(after(words, 1));
    return not_modelled(words);
}

int command_in(const std::string &ns, const words_t &words) {
    if (words[0] == "ip")
        return ip(ns, after(words, 1));
    if (words[0] == "vconfig")
        return vconfig(ns, after(words, 1));
    if (matches(words, {"cat", "?"}))
        return show_ifindex(ns, words[1]);
    return not_modelled(words);
}

} // namespace

int tool_command(const std::vector<std::string> &words) {
    return command_in("", words);
}

} // namespace testkit
