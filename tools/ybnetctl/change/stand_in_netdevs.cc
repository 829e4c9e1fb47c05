// SPDX-License-Identifier: Apache-2.0
//
// See stand_in_netdevs.h. Knows the commands of libybnet and no others.
#include "tools/ybnetctl/change/stand_in_netdevs.h"

#include <array>
#include <cerrno>
#include <net/if.h>
#include <sstream>

#include "tools/ybnetctl/change/inside_namespace.h"
#include "tools/ybnetctl/change/link_kinds.h"

namespace ybnetctl {

namespace {

constexpr int exit_status_1 = 0x100; // as wait(2) has it

command_answer refused(const std::string &reason) {
    return {exit_status_1, reason};
}

command_answer no_namespace(const std::string &ns) {
    return refused("there is no namespace \"" + ns + '"');
}

command_answer no_netdev(const std::string &name) {
    return refused("there is no netdev \"" + name + '"');
}

bool matches(const std::vector<std::string> &words, const std::vector<std::string> &pattern) {
    if (words.size() != pattern.size())
        return false;
    for (size_t i = 0; i < words.size(); i++)
        if (!pattern[i].empty() && pattern[i] != words[i])
            return false;
    return true;
}

} // namespace

std::vector<std::string> words_of(const std::string &command) {
    std::istringstream stream(command);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

stand_in_netdevs::place stand_in_netdevs::place_of(const std::string &ns, const std::string &name) {
    return {namespace_number(ns), name};
}

uint32_t stand_in_netdevs::index_of(const std::string &ns, const std::string &name) const {
    const auto found = changed_.find(place_of(ns, name));
    return found != changed_.end() ? found->second : netdev_index(ns, name);
}

std::string stand_in_netdevs::name_of(uint32_t index) const {
    for (const auto &[where, number] : changed_)
        if (number == index && index != 0)
            return where.second;
    std::array<char, IF_NAMESIZE> name{};
    return if_indextoname(index, name.data()) == nullptr ? "" : name.data();
}

command_answer stand_in_netdevs::add(const std::string &ns, const std::string &name) {
    if (index_of(ns, name) != 0)
        return refused("there is a netdev \"" + name + "\" already");
    changed_[place_of(ns, name)] = next_--;
    return {};
}

// In the kernel's order: a name that is taken is refused first.
command_answer stand_in_netdevs::add_vlan(const std::string &ns, const std::string &lower,
                                          const std::string &name) {
    static const bool possible = vlans_are_possible(); // asked once: a batch may add thousands
    if (index_of(ns, lower) == 0)
        return no_netdev(lower);
    if (index_of(ns, name) == 0 && !possible)
        return refused("the kernel has no 802.1Q: its module 8021q is neither loaded nor there to be loaded");
    return add(ns, name);
}

command_answer stand_in_netdevs::take_away(const std::string &ns, const std::string &name) {
    if (index_of(ns, name) == 0)
        return no_netdev(name);
    changed_[place_of(ns, name)] = 0;
    return {};
}

command_answer stand_in_netdevs::put_elsewhere(const std::string &ns, const std::string &name,
                                               const std::string &new_ns, const std::string &new_name) {
    const uint32_t index = index_of(ns, name);
    if (index == 0)
        return no_netdev(name);
    if (place_of(ns, name) == place_of(new_ns, new_name))
        return {};
    if (index_of(new_ns, new_name) != 0)
        return refused("there is a netdev \"" + new_name + "\" already");
    changed_[place_of(ns, name)] = 0;
    changed_[place_of(new_ns, new_name)] = index;
    return {};
}

command_answer stand_in_netdevs::run_ip(const std::string &ns, const std::vector<std::string> &words) {
    if (matches(words, {"ip", "link", "add", "link", "", "", "type", "vlan", "protocol", "802.1Q", "id", ""}))
        return add_vlan(ns, words[4], words[5]);
    if (matches(words, {"ip", "link", "add", "name", "", "type", "bridge"}))
        return add(ns, words[4]);
    if (matches(words, {"ip", "link", "del", "dev", ""}))
        return take_away(ns, words[4]);
    if (matches(words, {"ip", "link", "set", "", "name", ""}))
        return put_elsewhere(ns, words[3], ns, words[5]);
    if (matches(words, {"ip", "link", "set", "netns", "", ""})) {
        if (!namespace_exists(words[4]))
            return no_namespace(words[4]);
        return put_elsewhere(ns, words[5], words[4], words[5]);
    }
    if (matches(words, {"ip", "link", "set", "dev", "", "type", "vlan", "id", ""}))
        return index_of(ns, words[4]) == 0 ? no_netdev(words[4]) : command_answer{};
    return {};
}

command_answer stand_in_netdevs::run_vconfig(const std::string &ns, const std::vector<std::string> &words) {
    if (matches(words, {"vconfig", "add", "", ""}))
        return add_vlan(ns, words[2], words[2] + '.' + words[3]);
    if (matches(words, {"vconfig", "rem", ""}))
        return take_away(ns, words[2]);
    return {};
}

command_answer stand_in_netdevs::run(const std::string &command) {
    std::vector<std::string> words = words_of(command);
    std::string ns;
    if (words.size() > 4 && words[0] == "ip" && words[1] == "netns" && words[2] == "exec") {
        ns = words[3];
        if (!namespace_exists(ns))
            return no_namespace(ns);
        words.erase(words.begin(), words.begin() + 4);
    }
    if (words.empty())
        return {};
    if (words[0] == "ip")
        return run_ip(ns, words);
    return words[0] == "vconfig" ? run_vconfig(ns, words) : command_answer{};
}

int stand_in_netdevs::make(const std::string &name) {
    return add("", name).status == 0 ? 0 : EEXIST;
}

int stand_in_netdevs::remove(uint32_t index) {
    const std::string name = name_of(index);
    return !name.empty() && take_away("", name).status == 0 ? 0 : ENODEV;
}

} // namespace ybnetctl
