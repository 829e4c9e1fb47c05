// SPDX-License-Identifier: Apache-2.0
//
// Names as the kernel, the library and the shared records take them, checked before anything is done: the limit is
// said here, where a command of the host would only fail half-way.
#ifndef YBNET_YBNETCTL_CHANGE_NAMES_H
#define YBNET_YBNETCTL_CHANGE_NAMES_H

#include <cstddef>
#include <string>

#include "ybnet/yb_net_interface.h"

namespace ybnetctl {

// What is wrong with a name, in words; "" when nothing is. what: "netdev name"; "VRF name", for a VRF is a netdev.
std::string netdev_name_problem(const std::string &what, const std::string &name);
std::string namespace_name_problem(const std::string &name);

// The names that a VLAN or PORT_VLAN has while it is made; "" for other types.
std::string made_name(const yb_net_interface_params_t &params);
// The one that it has in the end, of every type.
std::string final_name(const yb_net_interface_params_t &params);

// A name field's text, and text into a field, which it must fit.
std::string text_in_field(const char *field, size_t size);
void put_in_field(char *field, size_t size, const std::string &text);

template <size_t size> std::string text_of(const char (&field)[size]) {
    return text_in_field(field, size);
}
template <size_t size> void fill(char (&field)[size], const std::string &text) {
    put_in_field(field, size, text);
}

} // namespace ybnetctl

#endif
