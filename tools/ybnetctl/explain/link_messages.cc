// SPDX-License-Identifier: Apache-2.0
//
// Messages of link events and link state.
#include "tools/ybnetctl/explain/catalogue.h"

namespace ybnetctl {

namespace {

constexpr message_entry entries[] = {
    {"Received an event from an unknown interface (linux ifindex = %d)",
     {"A link without a record had an event; the caller got system ifindex 0. Not a failure.",
      "A netdev that is not the stack's, or one that is being made and has no record yet.",
      "ybnetctl monitor shows which netdev it is."}},
    {"__yb_net_if_state_event_receive: buffer is empty, didn't receive any message",
     {"The event socket gave an empty datagram.", "The socket was shut down.", "Register a new one."}},
    {"__yb_net_if_state_event_receive: netlink message is not truncated",
     {"Nothing could be received (the wording is kept because programs match it): events were lost, "
      "there was "
      "nothing to read, a signal came, or what came is no link message.",
      "On a descriptor that poll(2) found readable: events came faster than they were read, and the "
      "kernel dropped "
      "some. A link with very many alternative names does it too.",
      "Read until the descriptor is no longer readable, then read the state of each interface anew. A "
      "larger "
      "buffer (yb_net_set_buffer_size) makes it rarer. /proc/net/netlink counts losses in its column "
      "Drops."}},
    {"yb_net_if_event_receive: in_net_sk is NULL"
     "\n"
     "yb_net_if_event_receive: received_event is NULL"
     "\n"
     "yb_net_get_fd: in_net_sk is NULL"
     "\n"
     "yb_net_get_fd: out_fd is NULL"
     "\n"
     "yb_net_get_fd: in_net_sk->sk is NULL",
     {"The function needs this pointer and it is NULL. yb_net_set_buffer_size() reports under the name "
      "of "
      "yb_net_get_fd() too.",
      "A mistake in the caller.", ""}},
    {"yb_net_register_net_if_event_group: cannot open NETLINK_ROUTE socket",
     {"No netlink socket could be opened.", "Too many open files, or a sandbox forbids netlink.",
      "ulimit -n; ls /proc/PID/fd | wc -l"}},
    {"yb_net_register_net_if_event_group: cannot bind NETLINK_ROUTE socket, please check you are root",
     {"The event socket's address is taken: it uses the process id as its port, which only one socket of "
      "a "
      "namespace can have. Rights are rarely the reason.",
      "The process sent a request first, registered twice, or a process with the same id in another PID "
      "namespace "
      "shares the network namespace.",
      "Register the event socket before anything else in the process. /proc/net/netlink shows who has "
      "the port."}},
    {"yb_net_set_buffer_size: setsockopt for SO_SNDBUF returned error (%s)"
     "\n"
     "yb_net_set_buffer_size: setsockopt for SO_RCVBUF returned error (%s)"
     "\n"
     "yb_net_set_buffer_size: nl_socket_set_buffer_size returned error (%d)",
     {"The socket's buffer could not be set.", "The descriptor was closed, or is not a socket.", ""}},
    {"yb_net_interface_state_set: Cannot find device with system ifindex %u"
     "\n"
     "yb_net_interface_oper_state_set: Cannot find interface with system ifindex %u"
     "\n"
     "yb_net_interface_state_get: Failed retrieving interface with system ifindex %u from the Netlib "
     "DB",
     {"The database gave no record for this system ifindex: there is none, or this process has not "
      "loaded it.",
      "The interface was not made yet, or was destroyed.", "ybnetctl interface list"}},
    {"yb_net_interface_state_set: rtnl_talk: set interface state %s.",
     {"The kernel refused to set the link up or down; its reason is on standard error (\"RTNETLINK "
      "answers\").",
      "The netdev is gone or in another namespace (No such device): requests go to the namespace in "
      "which the "
      "process sent its first one. Or the process is not root.",
      "ybnetctl audit compares the record with the kernel."}},
    {"__if_state_get: cannot open NETLINK_ROUTE socket"
     "\n"
     "__if_state_get: sendmsg has failed"
     "\n"
     "__if_state_get: recvmsg has failed"
     "\n"
     "__if_state_get: link dump was answered with error [%d]: %s",
     {"The kernel's links could not be asked for, so the state is not known.",
      "Too many open files, no memory in the kernel, or the dump was interrupted or too large.",
      "ip link show tells whether the kernel answers at all; then ask again."}},
    {"__get_ib_if_carrier_state: couldn't scan carrier state for if %s",
     {"The carrier file of a partition key's netdev holds no number; the link counts as down.",
      "Its driver writes something else there.", "cat /sys/class/net/NAME/carrier"}},
};

} // namespace

std::span<const message_entry> link_messages() {
    return entries;
}

} // namespace ybnetctl
