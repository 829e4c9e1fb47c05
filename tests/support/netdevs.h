// SPDX-License-Identifier: Apache-2.0
//
// Netdevs and namespaces around a test: made, looked at and cleared away with
// the real ip, past every shim and every recorded system call; and parameter
// blocks as callers fill them.
#ifndef YBNET_TESTS_NETDEVS_H
#define YBNET_TESTS_NETDEVS_H

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/tool_shims.h"
#include "ybnet/yb_net_interface.h"

struct run_result {
    int status;         // exit status; 128 + number after a signal, 127 when it could not be started
    std::string output; // of both streams
};

// Runs a program without a shell. Neither system(3) nor popen(3) is called for it.
run_result run_program(const std::vector<std::string> &words);

// The real ip with these arguments, whatever PATH says.
run_result run_ip(const std::vector<std::string> &arguments);

// A netdev that can be moved between namespaces (one end of a veth pair). ns "": the caller's own.
void make_netdev(const std::string &name, const std::string &ns = "");
void remove_netdev(const std::string &name, const std::string &ns = "");
void make_namespace(const std::string &name);
bool netdev_exists(const std::string &name, const std::string &ns = "");
// As ip says; 0 when there is none.
uint32_t ifindex_of(const std::string &name, const std::string &ns = "");

// Removes all named namespaces and all netdevs of the caller's own but lo and those given.
void clear_netdevs(const std::vector<std::string> &kept = {});

// For a kernel without 802.1Q: vconfig and the "type vlan" commands of ip make and remove plain netdevs of
// the same names; all else goes to the real ip. What was run is recorded as ever.
void stand_in_for_vlans(tool_shims &shims);

// Copies text into a field, without NUL when it fills it.
template <size_t size> void fill_field(char (&field)[size], const std::string &text) {
    text.copy(field, size);
}

yb_net_interface_params_t vlan_params(uint8_t swid, uint16_t vlan_id, const std::string &ns = "",
                                      uint32_t name_format = YB_NET_NAME_FORMAT_SWID);
yb_net_interface_params_t vlan_params_on(const std::string &parent, uint8_t swid, uint16_t vlan_id,
                                         const std::string &ns = "");
yb_net_interface_params_t port_vlan_params(const std::string &port_name, uint16_t vlan_id,
                                           const std::string &ns = "", const std::string &name = "");
yb_net_interface_params_t port_params(const std::string &name, const std::string &ns = "",
                                      uint32_t value1 = 0, uint32_t value2 = 0);
yb_net_interface_params_t loopback_params(const std::string &name, const std::string &ns = "");

// A name field's text.
template <size_t size> std::string text_in(const char (&field)[size]) {
    const std::string whole(field, size);
    return whole.substr(0, whole.find('\0'));
}

#endif
