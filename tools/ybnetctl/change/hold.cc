// SPDX-License-Identifier: Apache-2.0
//
// hold: a user of the databases that does nothing but be one. They end with their last user; while this one is there,
// those of short-lived processes outlive them.
#include "tools/ybnetctl/command_line.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

#include "tools/ybnetctl/change/changing.h"
#include "tools/ybnetctl/change/interrupts.h"
#include "tools/ybnetctl/change/lock_wait.h"
#include "tools/ybnetctl/change/notify.h"
#include "tools/ybnetctl/change/rehearsal.h"
#include "ybnet/net_lib_db_layout.h"

namespace ybnetctl {

namespace {

struct hold_options {
    bool interfaces_only = false;
    bool ports_only = false;
};

struct ending_set {
    sigset_t set = {};
    std::string names; // "SIGTERM or SIGINT"
};

// Those that whoever started this does not have ignored: nohup(1) does SIGHUP, a shell's & SIGINT. Blocked and waited
// for, an ignored signal would come nevertheless.
ending_set signals_to_wait_for() {
    struct candidate {
        int number;
        const char *name;
    };
    ending_set ending;
    (void)sigemptyset(&ending.set); // this and what follows cannot fail for these
    std::vector<std::string> names;
    for (const candidate &each :
         {candidate{SIGTERM, "SIGTERM"}, candidate{SIGINT, "SIGINT"}, candidate{SIGHUP, "SIGHUP"}}) {
        struct sigaction now = {};
        (void)sigaction(each.number, nullptr, &now);
        if (now.sa_handler == SIG_IGN)
            continue;
        (void)sigaddset(&ending.set, each.number);
        names.emplace_back(each.name);
    }
    for (size_t i = 0; i < names.size(); i++)
        ending.names += (i == 0 ? "" : i + 1 == names.size() ? " or " : ", ") + names[i];
    if (names.empty())
        ending.names = "SIGKILL"; // all others are ignored
    return ending;
}

int wait_for_end(const sigset_t &signals) {
    int number = 0;
    while (sigwait(&signals, &number) != 0)
        continue; // EINTR alone
    return number;
}

// What --dry-run says of a segment whose private copy has been loaded.
void rehearse_registration(library &lib, segment_kind kind) {
    const std::vector<std::byte> bytes = lib.rehearsed()->bytes_of(kind);
    net_lib_db_trailer_t trailer = {};
    if (!bytes.empty()) // else the load has failed
        std::memcpy(&trailer, bytes.data() + format_of(kind).trailer_offset, sizeof(trailer));
    lib.rehearsed()->add_step({"record",
                               std::string("this process as user ") + std::to_string(trailer.user_count) +
                                   " of " + format_of(kind).name,
                               {{"segment", format_of(kind).name}, {"user_count", trailer.user_count}},
                               ""});
}

void rehearse_holding(session &run, const hold_options &options) {
    change(run, [&options](library &lib) {
        if (!options.ports_only) {
            lib.need_interfaces();
            rehearse_registration(lib, segment_kind::interfaces);
        }
        if (!options.interfaces_only) {
            lib.need_ports();
            rehearse_registration(lib, segment_kind::ports);
        }
        return change_result();
    });
}

void hold(session &run, const hold_options &options) {
    if (run.dry_run) {
        rehearse_holding(run, options);
        return;
    }
    // Blocked before the load: a signal that comes meanwhile is waited for below, and the unload is never missed.
    const ending_set ending = signals_to_wait_for();
    (void)sigprocmask(SIG_BLOCK, &ending.set, nullptr); // cannot fail

    library &lib = library_of(run);
    for (const segment_kind kind : {segment_kind::interfaces, segment_kind::ports}) {
        if (kind == segment_kind::interfaces ? options.ports_only : options.interfaces_only)
            continue;
        if (const int number = wait_behind_sleeper(run, kind, ending.set); number != 0) {
            note_interrupt(number); // main() ends the process by it, with nothing registered any more
            (void)sigprocmask(SIG_UNBLOCK, &ending.set, nullptr);
            return;
        }
        if (kind == segment_kind::interfaces)
            lib.need_interfaces();
        else
            lib.need_ports();
    }
    const char *const what = options.ports_only        ? "the ports database"
                             : options.interfaces_only ? "the interfaces database"
                                                       : "both databases";
    if (run.json_wanted)
        print(run,
              json{{"holding", {{"interfaces", !options.ports_only}, {"ports", !options.interfaces_only}}},
                   {"pid", getpid()}});
    else
        run.out << "holding " << what << " until " << ending.names << '\n';
    run.out.flush();
    if (const std::string problem = notify_service_manager("READY=1\nSTATUS=holding " + std::string(what));
        !problem.empty())
        note(run, problem);
    (void)wait_for_end(ending.set);
    (void)notify_service_manager("STOPPING=1"); // nothing to be done without it
    lib.stop();
}

} // namespace

void add_hold_command(command_line &line) {
    CLI::App *const command = add_command<hold_options>(
        &line.app(), line, "hold",
        "Stay a user of the databases until SIGTERM, SIGINT or SIGHUP; they outlive others",
        [](CLI::App &app, hold_options &options) {
            CLI::Option *const interfaces =
                app.add_flag("--interfaces-only", options.interfaces_only, "Only the interfaces database");
            app.add_flag("--ports-only", options.ports_only, "Only the ports database")->excludes(interfaces);
        },
        hold,
        {{"timeout --preserve-status 2 ybnetctl hold",
          "for two seconds; as a service: ybnetctl-hold.service"}});
    line.add_notes(
        command,
        "A signal that is ignored when it starts stays ignored: so nohup(1) keeps it past the end of its "
        "terminal, and Ctrl-C does not reach what a script started with &. Where it waits for a lock that a "
        "thread holds and does nothing, it says so after a second, as every changing command does; a signal "
        "ends it there as signals do, for it holds nothing yet.\n\n"
        "JSON: holding (object: interfaces, ports), pid; printed once both are held.");
}

} // namespace ybnetctl
