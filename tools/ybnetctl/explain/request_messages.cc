// SPDX-License-Identifier: Apache-2.0
//
// Messages of address aliases and of the rtnetlink request layer; the latter
// writes its own to standard error.
#include "tools/ybnetctl/explain/catalogue.h"

namespace ybnetctl {

namespace {

constexpr message_entry entries[] = {
    {"yb_net_virtual_net_if_alias_set: Cannot find device \"%s\"",
     {"The record's netdev is not in the network namespace of the calling thread.",
      "It is in another namespace, or was removed or renamed.", "ybnetctl audit tells where it is."}},
    {"yb_net_virtual_net_if_alias_set: rtnl_talk: ip addr alias of virtual interface, op[%u]",
     {"The kernel refused to add (op 1) or delete (op 3) the address; its reason is on standard error.",
      "It is there already (File exists), is not there (Cannot assign requested address), or the process "
      "has sent "
      "no other request yet: this call does not open the request socket.",
      "ip addr show dev NAME; mind the byte order of addresses (yb_ip_addr.h)."}},
    {"addattr_l ERROR: message exceeded bound of %d",
     {"An attribute does not fit the request; nothing was sent.",
      "The label of an address is too long: the kernel takes 15 characters.", ""}},
    {"Cannot open netlink socket"
     "\n"
     "SO_SNDBUF"
     "\n"
     "SO_RCVBUF"
     "\n"
     "Cannot bind netlink socket"
     "\n"
     "Cannot getsockname",
     {"The request socket could not be opened; behind the colon stands the system's reason. The call "
      "fails and the "
      "next one tries again.",
      "Too many open files, or a sandbox forbids netlink.", "ulimit -n; ls /proc/PID/fd | wc -l"}},
    {"Wrong address length %d"
     "\n"
     "Wrong address family %d",
     {"The request socket got an address that is no netlink address.", "The kernel or a sandbox misbehaves.",
      "strace -e trace=network of the process."}},
    {"Cannot talk to rtnetlink",
     {"The request could not be sent; behind the colon stands the system's reason.",
      "Somebody closed the request socket's descriptor (Bad file descriptor).",
      "Look for a close(2) of a descriptor that is not the caller's."}},
    {"netlink receive error %s (%d)"
     "\n"
     "EOF on netlink"
     "\n"
     "sender address length == %d",
     {"The kernel's answer could not be received, so whether the request was carried out is not known.",
      "The answers of others filled the socket (No buffer space available), or its descriptor was "
      "closed.",
      "ybnetctl audit tells whether the request took effect."}},
    {"ERROR truncated"
     "\n"
     "Truncated message"
     "\n"
     "!!!malformed message: len=%d"
     "\n"
     "Message truncated"
     "\n"
     "!!!Remnant of size %d"
     "\n"
     "Unexpected reply!!!",
     {"The answer on the request socket was not what rtnetlink sends.",
      "Another thread used the same socket, or a process sent to its port.",
      "Send requests from one thread at a time."}},
    {"RTNETLINK answers [%d]: %s",
     {"The kernel refused the request; the number is an errno, the text says it in words.",
      "Operation not permitted: not root. No such device: the netdev is gone or in another namespace. "
      "File exists: "
      "the name or the address is taken. Operation not supported: the link kind's driver is not loaded.",
      "ybnetctl audit compares the records with the kernel."}},
    {"Invalid address length %d",
     {"A hardware address has 6 or 20 bytes; another length counts as Ethernet.", "A mistake in the caller.",
      ""}},
};

} // namespace

std::span<const message_entry> request_messages() {
    return entries;
}

} // namespace ybnetctl
