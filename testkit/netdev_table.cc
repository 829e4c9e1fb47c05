// SPDX-License-Identifier: Apache-2.0
//
// See netdev_table.h. A directory is made whole under a name that nobody looks
// for, and renamed: programs that read its files without the lock find all or
// nothing.
#include "testkit/netdev_table.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <linux/if.h>
#include <linux/rtnetlink.h>

#include "testkit/directory.h"
#include "testkit/event_queue.h"
#include "testkit/link_message.h"

namespace fs = std::filesystem;

namespace testkit {

namespace {

constexpr const char *own_namespace = "@";
constexpr const char *unfinished = ".new";
constexpr uint32_t loopback_index = 1;

std::string namespace_path(const std::string &ns) {
    return path_of("net/") + (ns.empty() ? own_namespace : ns);
}

std::string netdev_path(const std::string &ns, const std::string &name) {
    return namespace_path(ns) + "/" + name;
}

bool is_file_name(const std::string &name) {
    return !name.empty() && name[0] != '.' && name.find_first_of("/ \n\t") == std::string::npos;
}

// What the kernel accepts, but for a leading dot.
bool is_netdev_name(const std::string &name) {
    return is_file_name(name) && name.size() < IFNAMSIZ;
}

uint32_t number_in(const std::string &path) {
    return static_cast<uint32_t>(strtoul(read_text(path).c_str(), nullptr, 10));
}

bool write_number(const std::string &path, uint32_t number) {
    return write_text(path, std::to_string(number) + "\n");
}

// Never given out twice in a test.
uint32_t next_ifindex() {
    const uint32_t last = std::max(number_in(path_of("last_ifindex")), loopback_index);
    (void)write_number(path_of("last_ifindex"), last + 1);
    return last + 1;
}

int store(const netdev &device) {
    const std::string made = netdev_path(device.ns, unfinished);
    std::error_code failed;
    fs::remove_all(made, failed);
    if (!fs::create_directory(made, failed))
        return failed ? failed.value() : EEXIST;
    if (!write_number(made + "/ifindex", device.ifindex) || !write_number(made + "/flags", device.flags) ||
        !write_number(made + "/carrier", device.carrier ? 1 : 0) ||
        !write_number(made + "/parent", device.parent) || !write_text(made + "/kind", device.kind))
        return errno;
    fs::rename(made, netdev_path(device.ns, device.name), failed);
    return failed.value();
}

void announce(uint16_t type, const netdev &device, uint32_t change) {
    if (device.ns.empty())
        event_publish(link_message(type, device, change));
}

int make_namespace(const std::string &ns) {
    std::error_code failed;
    if (!fs::create_directory(namespace_path(ns), failed))
        return failed ? failed.value() : EEXIST;
    netdev loopback;
    loopback.ns = ns;
    loopback.name = "lo";
    loopback.ifindex = loopback_index;
    loopback.flags = IFF_LOOPBACK;
    return store(loopback);
}

// The own namespace is made when it is first looked at.
bool is_there(const std::string &ns) {
    return exists(namespace_path(ns)) || (ns.empty() && make_namespace(ns) == 0);
}

} // namespace

uint32_t netdev::shown_flags() const {
    return (flags & IFF_UP) != 0 && carrier ? flags | IFF_RUNNING | IFF_LOWER_UP : flags;
}

std::optional<netdev> netdev_named(const std::string &ns, const std::string &name) {
    const std::string path = netdev_path(ns, name);
    if (!is_netdev_name(name) || !is_there(ns) || !exists(path))
        return {};
    netdev device;
    device.ns = ns;
    device.name = name;
    device.ifindex = number_in(path + "/ifindex");
    device.flags = number_in(path + "/flags");
    device.carrier = number_in(path + "/carrier") != 0;
    device.parent = number_in(path + "/parent");
    device.kind = read_text(path + "/kind");
    return device;
}

std::vector<netdev> netdevs_in(const std::string &ns) {
    std::vector<netdev> found;
    if (!is_there(ns))
        return found;
    for (const std::string &name : names_in(namespace_path(ns))) {
        if (auto device = netdev_named(ns, name))
            found.push_back(*device);
    }
    return found;
}

std::optional<netdev> netdev_numbered(const std::string &ns, uint32_t ifindex) {
    for (const netdev &device : netdevs_in(ns)) {
        if (device.ifindex == ifindex)
            return device;
    }
    return {};
}

int netdev_add(netdev device, uint32_t *out_ifindex) {
    if (!is_netdev_name(device.name))
        return device.name.size() < IFNAMSIZ ? EINVAL : ENAMETOOLONG;
    if (!is_there(device.ns))
        return ENOENT;
    if (exists(netdev_path(device.ns, device.name)))
        return EEXIST;
    device.ifindex = next_ifindex();
    if (const int failed = store(device); failed != 0)
        return failed;
    announce(RTM_NEWLINK, device, ~0u);
    *out_ifindex = device.ifindex;
    return 0;
}

int netdev_remove(const std::string &ns, const std::string &name) {
    const auto device = netdev_named(ns, name);
    if (!device)
        return ENODEV;
    if (device->ifindex == loopback_index)
        return EOPNOTSUPP;
    std::vector<std::string> everywhere = namespaces();
    everywhere.emplace_back();
    for (const std::string &where : everywhere) {
        for (const netdev &other : netdevs_in(where)) {
            if (other.parent == device->ifindex)
                (void)netdev_remove(where, other.name);
        }
    }
    std::error_code failed;
    fs::rename(netdev_path(ns, name), netdev_path(ns, unfinished), failed);
    if (!failed)
        fs::remove_all(netdev_path(ns, unfinished), failed);
    if (failed)
        return failed.value();
    announce(RTM_DELLINK, *device, ~0u);
    return 0;
}

int netdev_rename(const std::string &ns, const std::string &name, const std::string &new_name) {
    auto device = netdev_named(ns, name);
    if (!device)
        return ENODEV;
    if (!is_netdev_name(new_name))
        return EINVAL;
    if (exists(netdev_path(ns, new_name)))
        return EEXIST;
    std::error_code failed;
    fs::rename(netdev_path(ns, name), netdev_path(ns, new_name), failed);
    if (failed)
        return failed.value();
    device->name = new_name;
    announce(RTM_NEWLINK, *device, 0);
    return 0;
}

int netdev_move(const std::string &ns, const std::string &name, const std::string &target) {
    auto device = netdev_named(ns, name);
    if (!device)
        return ENODEV;
    if (!is_there(target))
        return ENOENT;
    if (exists(netdev_path(target, name)))
        return EEXIST;
    std::error_code failed;
    fs::rename(netdev_path(ns, name), netdev_path(target, name), failed);
    if (failed)
        return failed.value();
    announce(RTM_DELLINK, *device, ~0u);
    // The kernel takes a netdev down that moves.
    (void)write_number(netdev_path(target, name) + "/flags", device->flags & ~uint32_t{IFF_UP});
    device->ns = target;
    device->flags &= ~uint32_t{IFF_UP};
    announce(RTM_NEWLINK, *device, ~0u);
    return 0;
}

int netdev_set_flags(const std::string &ns, const std::string &name, uint32_t flags, uint32_t mask) {
    auto device = netdev_named(ns, name);
    if (!device)
        return ENODEV;
    const uint32_t before = device->flags;
    device->flags = (before & ~mask) | (flags & mask);
    if (device->flags == before)
        return 0; // the kernel announces no change either
    if (!write_number(netdev_path(ns, name) + "/flags", device->flags))
        return errno;
    announce(RTM_NEWLINK, *device, before ^ device->flags);
    return 0;
}

int netdev_set_carrier(const std::string &ns, const std::string &name, bool carrier) {
    auto device = netdev_named(ns, name);
    if (!device)
        return ENODEV;
    if (device->carrier == carrier)
        return 0;
    device->carrier = carrier;
    if (!write_number(netdev_path(ns, name) + "/carrier", carrier ? 1 : 0))
        return errno;
    announce(RTM_NEWLINK, *device, 0); // not marked as changed: so does the kernel
    return 0;
}

bool namespace_exists(const std::string &ns) {
    return (ns.empty() || (is_file_name(ns) && ns != own_namespace)) && is_there(ns);
}

std::vector<std::string> namespaces() {
    std::vector<std::string> names;
    for (const std::string &name : names_in(path_of("net"))) {
        if (name != own_namespace)
            names.push_back(name);
    }
    return names;
}

int namespace_add(const std::string &ns) {
    if (!is_file_name(ns) || ns == own_namespace)
        return EINVAL;
    return make_namespace(ns);
}

int namespace_remove(const std::string &ns) {
    if (ns.empty() || !namespace_exists(ns))
        return ENOENT;
    std::error_code failed;
    fs::remove_all(namespace_path(ns), failed);
    return failed.value();
}

} // namespace testkit
