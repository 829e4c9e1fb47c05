// SPDX-License-Identifier: Apache-2.0
//
// port set and port del.
#include "tools/ybnetctl/command_line.h"

#include <array>
#include <ostream>

#include "tools/ybnetctl/change/changing.h"
#include "tools/ybnetctl/change/names.h"
#include "tools/ybnetctl/change/numbers.h"
#include "tools/ybnetctl/change/port_record.h"
#include "tools/ybnetctl/option_words.h"
#include "ybnet/net_lib.h"

namespace ybnetctl {

namespace {

// What is not given is 0, which leaves a recorded value alone; attr_b has a value of its own for that.
struct port_options {
    uint32_t sys_ifindex = 0;
    std::string name;
    uint32_t log_port = 0;
    uint32_t protocol = 0;
    std::string mlag;
    uint32_t attr_a = 0;
    uint32_t attr_b = YB_NET_PORT_ATTR_B_NONE;
    uint32_t attr_c = 0;
    std::vector<uint32_t> attr_d;
    uint32_t attr_e = 0;
    uint32_t attr_f = 0;
    std::vector<uint32_t> attr_g;
    uint32_t attr_h = 0;
    uint32_t attr_i = 0;

    bool operator==(const port_options &other) const = default;
};

struct del_options {
    uint32_t sys_ifindex = 0;
};

yb_net_port_info_t info_of(const port_options &options) {
    yb_net_port_info_t info = {};
    info.attr_a = static_cast<uint8_t>(options.attr_a);
    info.attr_b = static_cast<uint8_t>(options.attr_b);
    info.attr_c = options.attr_c;
    info.protocol = options.protocol;
    info.log_port = options.log_port;
    for (size_t i = 0; i < options.attr_d.size(); i++)
        info.attr_d[i] = static_cast<uint8_t>(options.attr_d[i]);
    info.attr_e = static_cast<uint16_t>(options.attr_e);
    info.mlag_id = value_of(mlag_number, options.mlag);
    fill(info.name, options.name);
    info.attr_f = static_cast<uint8_t>(options.attr_f);
    for (size_t i = 0; i < options.attr_g.size(); i++)
        info.attr_g[i] = options.attr_g[i];
    info.attr_h = static_cast<uint8_t>(options.attr_h);
    info.attr_i = options.attr_i;
    return info;
}

void check(const port_options &options) {
    const std::string thing = port_thing(options.sys_ifindex);
    const auto refuse = [&](const std::string &reason) {
        throw failure{exit_code::usage, thing, reason, "ybnetctl port set --help", {}};
    };
    if (options.sys_ifindex == 0)
        refuse("a port's system ifindex is never 0");
    port_options nothing;
    nothing.sys_ifindex = options.sys_ifindex;
    if (options == nothing)
        refuse("nothing to set: 0 leaves a value as it is");
    if (options.name.size() > YB_NET_PORT_NAME_SIZE)
        refuse("name \"" + options.name + "\" has " + std::to_string(options.name.size()) +
               " characters, at most " + std::to_string(YB_NET_PORT_NAME_SIZE) + " are possible");
    if (!options.mlag.empty() && !YB_NET_LOG_PORT_IS_LAG(options.log_port))
        refuse("--mlag counts only together with --log-port of a LAG (0x1.......)");
}

void set_port(session &run, const port_options &options) {
    change(run, [&](library &lib) {
        check(options);
        lib.need_ports();
        yb_net_port_info_t info = info_of(options);
        // Recording a LAG records its MLAG id, 0 too: one that is not given shall stay.
        if (YB_NET_LOG_PORT_IS_LAG(info.log_port) && options.mlag.empty())
            (void)lib.call_plainly([&] { return yb_net_mlag_get(info.log_port, &info.mlag_id); });
        const call_answer answer =
            lib.call_plainly([&] { return yb_net_port_set(YB_ACCESS_CMD_SET, options.sys_ifindex, &info); });
        if (!answer.done())
            throw failure_of(port_thing(options.sys_ifindex), answer, "could not be recorded",
                             "ybnetctl status");
        change_result result;
        if (run.json_wanted && lib.rehearsed() == nullptr) {
            yb_net_port_info_t now = {};
            (void)lib.call_plainly([&] { return yb_net_port_get(options.sys_ifindex, &now); });
            result.document["port"] = port_json(options.sys_ifindex, now);
        }
        return result;
    });
}

void delete_port(session &run, const del_options &options) {
    change(run, [&](library &lib) {
        lib.need_ports();
        const yb_net_port_info_t before = port_record_of(run, lib, options.sys_ifindex);
        const call_answer answer = lib.call_plainly(
            [&] { return yb_net_port_set(YB_ACCESS_CMD_DESTROY, options.sys_ifindex, nullptr); });
        if (!answer.done())
            throw failure_of(port_thing(options.sys_ifindex), answer, "could not be removed",
                             "ybnetctl status");
        change_result result;
        if (run.json_wanted)
            result.document["port"] = port_json(options.sys_ifindex, before);
        return result;
    });
}

void declare_port_set(CLI::App &app, port_options &options) {
    const auto byte = CLI::Range(1, 255);
    app.add_option("SYSIF", options.sys_ifindex, "its system ifindex, not 0")->required();
    app.add_option("--name", options.name, "its name, at most 16 characters");
    app.add_option("--log-port", options.log_port,
                   "its logical port, as 0x10100; a LAG's begins with 1: 0x10000500");
    app.add_option("--protocol", options.protocol, "1 or 2")->check(CLI::Range(1, YB_NET_PORT_PROTOCOL_MAX));
    app.add_option("--mlag", options.mlag, "MLAG id of a LAG, 1 to 1000; not given: as it is")
        ->check(check(mlag_number));
    app.add_option("--attr-a", options.attr_a, "the owner's, 1 to 255")->check(byte);
    app.add_option("--attr-b", options.attr_b, "the owner's, 0 to 254")->check(CLI::Range(0, 254));
    app.add_option("--attr-c", options.attr_c, "the owner's, 32 bits");
    app.add_option("--attr-d", options.attr_d, "the owner's, three of 0 to 255: 1,2,3")
        ->expected(3)
        ->delimiter(',')
        ->type_name("N,N,N")
        ->check(CLI::Range(0, 255));
    app.add_option("--attr-e", options.attr_e, "the owner's, 1 to 65535")->check(CLI::Range(1, 65535));
    app.add_option("--attr-f", options.attr_f, "the owner's, 1 to 255")->check(byte);
    app.add_option("--attr-g", options.attr_g, "the owner's, four of 32 bits: 1,2,3,4")
        ->expected(4)
        ->delimiter(',')
        ->type_name("N,N,N,N")
        ->check(whole_number());
    app.add_option("--attr-h", options.attr_h, "the owner's, 1 to 255")->check(byte);
    app.add_option("--attr-i", options.attr_i, "the owner's, 32 bits");
}

} // namespace

void add_port_changes(command_line &line, CLI::App *port) {
    CLI::App *command = add_command<port_options>(
        port, line, "set",
        "Record a port, or change what is given of its record. 0 leaves a recorded value as it is: only port "
        "del "
        "takes it away",
        declare_port_set, set_port,
        {{"ybnetctl --dry-run port set 0x10003 --name swp3 --log-port 0x10300 --protocol 1",
          "what it would record, and do nothing"},
         {"ybnetctl port set 0x10003 --name swp3 --log-port 0x10300 --protocol 1", "port 65539"},
         {"ybnetctl port set 0x20001 --log-port 0x10000500 --mlag 7", "the MLAG id of a LAG"}});
    line.add_notes(command, std::string("JSON: port (afterwards; ") + port_json_keys + "), " + change_keys);
    command = add_command<del_options>(
        port, line, "del", "Remove a port's record; members of a LAG keep their binding to it",
        [](CLI::App &app, del_options &options) {
            app.add_option("SYSIF", options.sys_ifindex, "its system ifindex")->required();
        },
        delete_port, {{"ybnetctl port del 0x10003", "port 65539 is no longer recorded"}});
    line.add_notes(command, std::string("JSON: port (as it was; ") + port_json_keys + "), " + change_keys);
}

} // namespace ybnetctl
