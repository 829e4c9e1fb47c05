// SPDX-License-Identifier: Apache-2.0
//
// Network namespaces by name, as ip-netns(8) keeps them, and route sockets opened
// inside them. A socket stays in the namespace in which it was made, so only a
// thread that lives for that one call ever enters another namespace.
#ifndef YBNET_YBNETCTL_KERNEL_NAMESPACES_H
#define YBNET_YBNETCTL_KERNEL_NAMESPACES_H

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ybnetctl {

// What tells namespaces apart, whatever names they have.
struct namespace_identity {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const namespace_identity &other) const {
        return device == other.device && inode == other.inode;
    }
};

// A descriptor that closes itself.
class unique_descriptor {
  public:
    explicit unique_descriptor(int number = -1) : number_(number) {}
    unique_descriptor(unique_descriptor &&other) noexcept : number_(other.release()) {}
    unique_descriptor &operator=(unique_descriptor &&other) noexcept;
    ~unique_descriptor();

    [[nodiscard]] int number() const {
        return number_;
    }
    int release() {
        const int number = number_;
        number_ = -1;
        return number;
    }

  private:
    int number_;
};

// A name out of a record may be anything: only one that is a file's name is looked up.
bool is_file_name(const std::string &name);

// The names under /run/netns, sorted.
std::vector<std::string> named_namespaces();

// Of the namespace with this name, "" being the caller's own; all zero when there is none.
namespace_identity identity_of_namespace(const std::string &name);

// Of the one that a process is in; all zero when it may not be looked into.
namespace_identity identity_of_process(pid_t process);

// Whether the name stands for the namespace that the caller is in.
bool is_callers_namespace(const std::string &name);

struct route_socket {
    unique_descriptor descriptor; // -1 when it could not be made
    int error = 0;                // then, why: an errno value; ENOENT: there is no such namespace
    std::string step;             // and what failed
    namespace_identity of;        // the namespace that it is in
};

// A NETLINK_ROUTE socket (rtnetlink(7)) inside the namespace, subscribed to groups (RTMGRP_*).
route_socket open_route_socket(const std::string &name, uint32_t groups);

// How a namespace is called in sentences: its name, or "the default namespace".
std::string namespace_in_words(const std::string &name);

} // namespace ybnetctl

#endif
