// SPDX-License-Identifier: Apache-2.0
//
// address add and address del.
#include "tools/ybnetctl/command_line.h"

#include "tools/ybnetctl/change/alias_values.h"
#include "tools/ybnetctl/change/changing.h"
#include "tools/ybnetctl/change/interface_record.h"
#include "tools/ybnetctl/change/interface_set.h"
#include "tools/ybnetctl/change/names.h"
#include "tools/ybnetctl/shell_word.h"
#include "ybnet/net_lib.h"

namespace ybnetctl {

namespace {

struct address_options {
    uint32_t sys_ifindex = 0;
    std::string address;
    std::string label;
    bool connected = false;
};

constexpr size_t label_max = 15; // the kernel's

// The library sends address requests on a socket that only other requests open. An EDIT of a port interface is one
// that it answers as unsupported once the socket is open: nothing is sent.
void open_request_socket(library &lib) {
    (void)lib.call([] {
        yb_net_interface_params_t params = {};
        params.type = YB_L2_INTERFACE_TYPE_PORT;
        fill(params.name, "none");
        return yb_net_interface_set(YB_ACCESS_CMD_EDIT, 0, &params);
    });
}

void set_address(session &run, const address_options &options, yb_access_cmd_t cmd) {
    const std::string thing = interface_thing(options.sys_ifindex);
    change(run, [&](library &lib) {
        const auto typed = parse_address(options.address);
        if (!typed) {
            // Without the length, the broadcast address that goes with it could only be guessed.
            const bool alone = parse_address(options.address + "/32").has_value();
            throw failure{exit_code::usage,
                          options.address,
                          alone ? "has no prefix length" : "is not an IPv4 address with a prefix length",
                          alone ? options.address + "/24, or " + options.address + "/32 for the address alone"
                                : "10.0.0.5/24",
                          {}};
        }
        if (options.label.size() > label_max)
            throw failure{exit_code::usage,
                          "label \"" + options.label + '"',
                          "has " + std::to_string(options.label.size()) + " characters, at most " +
                              std::to_string(label_max) + " are possible",
                          "",
                          {}};
        const alias_values values = alias_values_of(*typed, options.connected);
        lib.need_interfaces();
        const yb_net_interface_record_t record = record_of(lib, options.sys_ifindex);
        const std::string label = options.label.empty() ? text_of(record.params.name) : options.label;
        const auto there = enter(lib, text_of(record.params.ns_name));
        lib.claim_request_namespace(thing);
        open_request_socket(lib);
        const call_answer answer = lib.call([&] {
            return yb_net_virtual_net_if_alias_set(cmd, options.sys_ifindex, label.c_str(), &values.address,
                                                   &values.network);
        });
        if (!answer.done())
            throw failure_of(thing, answer, "the address could not be set",
                             ip_in(text_of(record.params.ns_name)) + "address show dev " +
                                 shell_word(text_of(record.params.name)));
        change_result result;
        result.document["address"] = {{"local", values.local},
                                      {"prefix_length", values.prefix_length},
                                      {"broadcast", values.broadcast},
                                      {"label", cmd == YB_ACCESS_CMD_ADD ? json(label) : json(nullptr)}};
        if (cmd == YB_ACCESS_CMD_ADD)
            result.sentence = thing + ": " + values.local + '/' + std::to_string(values.prefix_length) +
                              " broadcast " + values.broadcast + " label " + label;
        return result;
    });
}

void declare_address(CLI::App &app, address_options &options) {
    app.add_option("SYSIF", options.sys_ifindex, "its system ifindex")->required();
    app.add_option("ADDRESS", options.address, "IPv4 address/prefix length, as 10.0.0.5/24")->required();
    app.add_flag(
        "--connected", options.connected,
        "The kernel gets the prefix length as typed, and a route to the subnet; but then not the subnet's "
        "broadcast address: for 10.0.0.5/24 it is 255.0.0.5. Without, 10.0.0.5/24 becomes 10.0.0.5/32 with "
        "broadcast 10.0.0.255 and no route: what the library can express is one or the other");
}

} // namespace

void add_address_commands(command_line &line) {
    CLI::App *const group =
        add_command_group(&line.app(), "address", "IPv4 addresses (aliases) of interfaces' netdevs");
    line.add_examples(
        group, {{"ybnetctl --dry-run address add 110 10.0.0.5/24", "what it would send, and do nothing"}});
    const char *const keys =
        "JSON: address (local, prefix_length, broadcast: what the kernel got; label, null with del), ";
    CLI::App *command = add_command<address_options>(
        group, line, "add", "Add an IPv4 address; of an address/prefix, the kernel gets the address as typed",
        [](CLI::App &app, address_options &options) {
            declare_address(app, options);
            app.add_option("--label", options.label,
                           "label of the address, at most 15 characters; the netdev's name");
        },
        [](session &run, const address_options &options) { set_address(run, options, YB_ACCESS_CMD_ADD); },
        {{"ybnetctl address add 110 10.0.0.5/24 --label vlan10:1", "10.0.0.5/32 broadcast 10.0.0.255", true},
         {"ybnetctl address add 110 10.0.1.5/24 --connected", "10.0.1.5/24, with the route to 10.0.1.0/24",
          true}});
    line.add_notes(command, std::string(keys) + change_keys);
    command = add_command<address_options>(
        group, line, "del", "Delete an IPv4 address; with --connected if it was added with it",
        declare_address,
        [](session &run, const address_options &options) { set_address(run, options, YB_ACCESS_CMD_DELETE); },
        {{"ybnetctl address del 110 10.0.0.5/24", "takes it away again", true}});
    line.add_notes(command, std::string(keys) + change_keys);
}

} // namespace ybnetctl
