// SPDX-License-Identifier: Apache-2.0
//
// See names.h.
#include "tools/ybnetctl/change/names.h"

#include <algorithm>
#include <cstring>

namespace ybnetctl {

namespace {

constexpr size_t netdev_name_max = YB_NET_IF_NAME_SIZE - 1;
constexpr size_t namespace_name_max = YB_NET_NS_NAME_SIZE - 1;
static_assert(YB_NET_VRF_NAME_SIZE == YB_NET_IF_NAME_SIZE);

std::string length_problem(const std::string &what, const std::string &name, size_t most) {
    if (name.empty())
        return what + " is empty";
    if (name.size() > most)
        return what + " \"" + name + "\" has " + std::to_string(name.size()) + " characters, at most " +
               std::to_string(most) + " are possible";
    return "";
}

// The library passes nothing else to a shell.
std::string letter_problem(const std::string &what, const std::string &name, const char *also) {
    if (name.front() == '-')
        return what + " \"" + name + "\" begins with '-'";
    const auto wrong = std::find_if_not(name.begin(), name.end(), [also](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               (c != '\0' && std::strchr(also, c) != nullptr);
    });
    if (wrong == name.end())
        return "";
    return what + " \"" + name + "\" has a '" + *wrong + "'; letters, digits and " + also + " are possible";
}

} // namespace

std::string netdev_name_problem(const std::string &what, const std::string &name) {
    std::string problem = length_problem(what, name, netdev_name_max);
    if (problem.empty())
        problem = letter_problem(what, name, "._-@+="); // no ':', which the kernel refuses
    if (problem.empty() && (name == "." || name == ".."))
        problem = what + " \"" + name + "\" is not possible";
    return problem;
}

std::string namespace_name_problem(const std::string &name) {
    const std::string what = "namespace name";
    std::string problem = length_problem(what, name, namespace_name_max);
    if (problem.empty())
        problem = letter_problem(what, name, "._-@:+=");
    if (problem.empty() && (name == "." || name == ".."))
        problem = what + " \"" + name + "\" is not possible";
    return problem;
}

std::string made_name(const yb_net_interface_params_t &params) {
    switch (params.type) {
    case YB_L2_INTERFACE_TYPE_VLAN:
        return "swid" + std::to_string(params.by_type.vlan.swid) + "_eth." +
               std::to_string(params.by_type.vlan.vlan_id);
    case YB_L2_INTERFACE_TYPE_PORT_VLAN:
        return text_of(params.by_type.port_vlan.port_name) + '.' +
               std::to_string(params.by_type.port_vlan.vlan_id);
    default:
        return "";
    }
}

std::string final_name(const yb_net_interface_params_t &params) {
    if (params.type == YB_L2_INTERFACE_TYPE_VLAN &&
        params.by_type.vlan.name_format == YB_NET_NAME_FORMAT_VLAN)
        return "vlan" + std::to_string(params.by_type.vlan.vlan_id);
    const std::string made = made_name(params);
    return made.empty() ? text_of(params.name) : made;
}

std::string text_in_field(const char *field, size_t size) {
    return {field, strnlen(field, size)};
}

void put_in_field(char *field, size_t size, const std::string &text) {
    std::memset(field, 0, size);
    std::memcpy(field, text.data(), std::min(size, text.size()));
}

} // namespace ybnetctl
