// SPDX-License-Identifier: Apache-2.0
//
// lag bind and lag unbind.
#include "tools/ybnetctl/command_line.h"

#include <ostream>

#include "tools/ybnetctl/change/changing.h"
#include "tools/ybnetctl/change/port_record.h"
#include "tools/ybnetctl/segments/decode.h"
#include "ybnet/net_lib.h"

namespace ybnetctl {

namespace {

struct lag_options {
    uint32_t sys_ifindex = 0;
    uint32_t lag = 0;
};

change_result bound(session &run, library &lib, uint32_t sys_ifindex) {
    change_result result;
    if (run.json_wanted)
        result.document["port"] = port_json(sys_ifindex, port_record_of(run, lib, sys_ifindex));
    return result;
}

void bind(session &run, const lag_options &options) {
    change(run, [&](library &lib) {
        const std::string lag = hexadecimal(options.lag);
        if (!YB_NET_LOG_PORT_IS_LAG(options.lag))
            throw failure{exit_code::usage,
                          "lag " + lag,
                          "is not a LAG's logical port: those begin with 1",
                          "0x10000500",
                          {}};
        lib.need_ports();
        (void)port_record_of(run, lib, options.sys_ifindex);
        uint32_t lag_sys_ifindex = 0;
        if (!lib.call_plainly([&] { return yb_net_log_port_get(options.lag, &lag_sys_ifindex); }).done())
            note(run, "LAG " + lag + " is not recorded itself (ybnetctl port set)");
        const call_answer answer = lib.call_plainly(
            [&] { return yb_net_port_lag_set(YB_ACCESS_CMD_SET, options.sys_ifindex, options.lag); });
        if (!answer.done())
            throw failure_of(port_thing(options.sys_ifindex), answer, "could not be bound",
                             "ybnetctl status");
        return bound(run, lib, options.sys_ifindex);
    });
}

void unbind(session &run, const lag_options &options) {
    change(run, [&](library &lib) {
        lib.need_ports();
        (void)port_record_of(run, lib, options.sys_ifindex);
        const call_answer answer = lib.call_plainly(
            [&] { return yb_net_port_lag_set(YB_ACCESS_CMD_UNSET, options.sys_ifindex, 0); });
        if (!answer.done())
            throw failure_of(port_thing(options.sys_ifindex), answer, "could not be unbound",
                             "ybnetctl status");
        return bound(run, lib, options.sys_ifindex);
    });
}

} // namespace

void add_lag_changes(command_line &line, CLI::App *lag) {
    CLI::App *command = add_command<lag_options>(
        lag, line, "bind", "Make a port a member of a LAG",
        [](CLI::App &app, lag_options &options) {
            app.add_option("PORT_SYSIF", options.sys_ifindex, "the port's system ifindex")->required();
            app.add_option("--lag", options.lag, "the LAG's logical port")->required();
        },
        bind,
        {{"ybnetctl --dry-run lag bind 0x10002 --lag 0x10000500", "what it would record, and do nothing"},
         {"ybnetctl lag bind 0x10002 --lag 0x10000500", "port 65538 is a member"}});
    line.add_notes(command, std::string("JSON: port (afterwards; ") + port_json_keys + "), " + change_keys);
    command = add_command<lag_options>(
        lag, line, "unbind", "Make a port a member of no LAG",
        [](CLI::App &app, lag_options &options) {
            app.add_option("PORT_SYSIF", options.sys_ifindex, "the port's system ifindex")->required();
        },
        unbind, {{"ybnetctl lag unbind 0x10002", "port 65538 is a member no more"}});
    line.add_notes(command, std::string("JSON: port (afterwards; ") + port_json_keys + "), " + change_keys);
}

} // namespace ybnetctl
