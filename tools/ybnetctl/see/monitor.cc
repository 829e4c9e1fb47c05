// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl monitor: link events as they come, with the records' system ifindexes.
// Registers nowhere and holds nothing of the stack's; ends on SIGINT, SIGTERM, a
// closed pipe or a count.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <ostream>
#include <set>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/kernel/netdevs.h"
#include "tools/ybnetctl/option_words.h"
#include "tools/ybnetctl/see/ending_signals.h"
#include "tools/ybnetctl/see/link_watch.h"
#include "tools/ybnetctl/see/monitor_line.h"
#include "tools/ybnetctl/see/own_namespace.h"
#include "tools/ybnetctl/see/record_lookup.h"
#include "tools/ybnetctl/table.h"
#include "ybnet/yb_net_event.h"

namespace ybnetctl {

namespace {

constexpr uint32_t default_buffer_size = 4 << 20;
constexpr int look_for_namespaces_ms = 500;
constexpr int datagrams_in_a_row = 256; // of one namespace, before signals and others are looked at

struct monitor_options {
    std::vector<std::string> namespaces;
    bool all_namespaces = false;
    std::vector<uint32_t> interfaces;
    uint64_t count = 0; // 0: no limit
    uint32_t buffer_size = default_buffer_size;
};

monitor_event event_of(uint32_t event_type) {
    switch (event_type) {
    case YB_NET_IF_EVENT_LINK_DOWN:
        return monitor_event::down;
    case YB_NET_IF_EVENT_LINK_UP:
        return monitor_event::up;
    case YB_NET_IF_EVENT_LINK_DELETED:
        return monitor_event::deleted;
    default:
        return monitor_event::change;
    }
}

timespec now() {
    timespec time{};
    (void)clock_gettime(CLOCK_REALTIME, &time); // this clock always exists
    return time;
}

class monitor {
  public:
    monitor(session &run, const monitor_options &options) : run_(run), options_(options), records_(run) {}

    void watch_until_the_end();

  private:
    // Namespaces to watch that are not known yet come from the records.
    [[nodiscard]] bool follows_records() const {
        return options_.all_namespaces || (options_.namespaces.empty() && !options_.interfaces.empty());
    }
    [[nodiscard]] bool is_wanted(const recorded_interface *record) const {
        return options_.interfaces.empty() ||
               (record != nullptr && std::find(options_.interfaces.begin(), options_.interfaces.end(),
                                               record->sys_ifindex) != options_.interfaces.end());
    }
    void start_watching(const std::string &ns);
    void start_watching_own();
    void follow_namespaces();
    void wait();
    void receive_from(link_watch &watch);
    void show(const link_message &message, const std::string &ns);
    void report_loss(link_watch &watch);
    void report_deletion(const std::string &ns);
    void show_states(const std::string &ns, const namespace_view &view);
    void print(const monitor_line &line);

    session &run_;
    const monitor_options &options_;
    record_lookup records_;
    std::list<link_watch> watches_;
    std::set<std::string> refused_; // namespaces of records that cannot be watched, said once each
    ending_signals signals_;
    uint64_t shown_ = 0;
    bool began_ = false; // events may have been missed in what is found from now on
    bool ended_ = false;
};

void monitor::start_watching(const std::string &ns) {
    const link_watch &watch = watches_.emplace_back(ns, options_.buffer_size);
    if (watch.buffer_size() < options_.buffer_size && options_.buffer_size != default_buffer_size)
        run_.err << "ybnetctl: " << namespace_in_words(ns) << ": the receive buffer has "
                 << watch.buffer_size() << " bytes: root, or net.core.rmem_max, allows more\n"
                 << std::flush;
}

// By its name where that is not what records mean by none: the default namespace cannot be watched from there.
void monitor::start_watching_own() {
    const std::string here = named_instead_of_default();
    if (!here.empty()) {
        refused_.insert("");
        note(run_, not_the_default_one(here) + ", whose events are not shown");
    }
    start_watching(here);
}

// Ends the watch of namespaces that were deleted and begins that of new ones which records name.
void monitor::follow_namespaces() {
    std::vector<std::string> deleted;
    watches_.remove_if([&](const link_watch &watch) {
        if (watch.is_current())
            return false;
        deleted.push_back(watch.ns());
        return true;
    });
    for (const std::string &ns : deleted)
        report_deletion(ns);
    if (!follows_records())
        return;
    records_.refresh();
    std::vector<std::string> begun;
    for (const recorded_interface &record : records_.records()) {
        const auto is_its = [&](const link_watch &watch) { return watch.ns() == record.ns; };
        if ((!options_.all_namespaces && !is_wanted(&record)) || refused_.contains(record.ns) ||
            std::any_of(watches_.begin(), watches_.end(), is_its))
            continue;
        try {
            start_watching(record.ns);
            begun.push_back(record.ns);
        } catch (const failure &what) {
            if (what.code == exit_code::not_found)
                continue; // it may be made later
            refused_.insert(record.ns);
            run_.err << "ybnetctl: " << what.thing << ": " << what.reason << ": not watched\n" << std::flush;
        }
    }
    // What happened there before, since the record named it, nobody has heard.
    if (began_)
        for (const std::string &ns : begun)
            show_states(ns, view_namespace(ns));
}

void monitor::print(const monitor_line &line) {
    errno = 0;
    if (run_.json_wanted)
        run_.out << to_json(line).dump(-1, ' ', false, json::error_handler_t::replace) << '\n';
    else
        run_.out << to_text(line, run_.colourful()) << '\n';
    run_.out.flush();
    if (run_.out)
        return;
    if (errno != EPIPE)
        throw failure{exit_code::failed, "standard output", std::strerror(errno), "", {}};
    ended_ = true;
}

void monitor::show(const link_message &message, const std::string &ns) {
    monitor_line line{.time = now(),
                      .event = event_of(message.event_type),
                      .linux_ifindex = message.ifindex,
                      .name = message.name,
                      .ns = ns,
                      .bridge_port = message.bridge_port};
    records_.refresh();
    const bool deleted = line.event == monitor_event::deleted;
    const recorded_interface *const record =
        deleted ? records_.find_last(ns, message.ifindex) : records_.find(ns, message.ifindex);
    if (!is_wanted(record))
        return;
    if (record != nullptr)
        line.sys_ifindex = record->sys_ifindex;
    if (!deleted) {
        line.up = message.up;
        line.carrier = message.carrier;
        // As the library does: up and change tell nothing about a partition key's link, its carrier does.
        if (record != nullptr && record->type == YB_L2_INTERFACE_TYPE_PKEY &&
            line.event != monitor_event::down)
            line.event = message.carrier ? monitor_event::up : monitor_event::down;
    }
    print(line);
    shown_++;
    ended_ = ended_ || shown_ == options_.count;
}

void monitor::report_loss(link_watch &watch) {
    watch.loss_pending = false;
    print({.time = now(), .event = monitor_event::lost, .ns = watch.ns(), .dropped = watch.take_dropped()});
    const namespace_view view = view_namespace(watch.ns());
    if (view.seen == sight::seen) // else deleted meanwhile: found out and said in a moment
        show_states(watch.ns(), view);
}

// Its netdevs went with it; a namespace that has its name by now has others, and is watched on its own.
void monitor::report_deletion(const std::string &ns) {
    print({.time = now(), .event = monitor_event::namespace_deleted, .ns = ns});
    show_states(ns, view_namespace(ns));
}

// Every recorded interface of a namespace, as the kernel has it now.
void monitor::show_states(const std::string &ns, const namespace_view &view) {
    records_.refresh();
    for (const recorded_interface &record : records_.records()) {
        if (record.ns != ns || !is_wanted(&record) || ended_)
            continue;
        monitor_line line{.time = now(),
                          .event = monitor_event::state,
                          .sys_ifindex = record.sys_ifindex,
                          .linux_ifindex = record.linux_ifindex,
                          .name = record.name,
                          .ns = record.ns};
        if (const netdev *const device = view.by_ifindex(record.linux_ifindex)) {
            line.name = device->name;
            line.up = device->up;
            line.carrier = device->up && device->carrier;
        }
        print(line);
    }
}

void monitor::receive_from(link_watch &watch) {
    for (int i = 0; i < datagrams_in_a_row && !ended_; i++) {
        link_message message;
        switch (watch.receive(message)) {
        case link_watch::reception::message:
            show(message, watch.ns());
            break;
        case link_watch::reception::other:
            break;
        case link_watch::reception::lost:
            watch.loss_pending = true; // reported behind what had been queued before
            break;
        case link_watch::reception::nothing_left:
            if (watch.loss_pending)
                report_loss(watch);
            return;
        }
    }
}

void monitor::wait() {
    std::vector<pollfd> waiting = {{signals_.descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    for (const link_watch &watch : watches_)
        waiting.push_back({watch.descriptor(), POLLIN, 0});
    const bool looks_around = follows_records() || !options_.namespaces.empty();
    if (poll(waiting.data(), waiting.size(), looks_around ? look_for_namespaces_ms : -1) < 0 &&
        errno != EINTR)
        throw failure{exit_code::failed, "waiting for events", std::strerror(errno), "", {}};
    if (waiting[0].revents != 0 || waiting[1].revents != 0) { // a signal; nobody reads the output any more
        ended_ = true;
        return;
    }
    auto at = waiting.begin() + 2;
    for (link_watch &watch : watches_) {
        if (at->revents != 0 && !ended_)
            receive_from(watch);
        at++;
    }
    if (looks_around)
        follow_namespaces();
}

void monitor::watch_until_the_end() {
    if (options_.namespaces.empty())
        start_watching_own();
    for (const std::string &ns : options_.namespaces)
        start_watching(ns);
    records_.refresh();
    if (follows_records())
        follow_namespaces();
    began_ = true;
    for (const uint32_t wanted : options_.interfaces) {
        const auto &all = records_.records();
        if (std::none_of(all.begin(), all.end(),
                         [&](const recorded_interface &each) { return each.sys_ifindex == wanted; }))
            run_.err << "ybnetctl: interface " << wanted
                     << ": no record has this system ifindex yet; waiting for one\n"
                     << std::flush;
    }
    if (run_.out_is_terminal && !run_.json_wanted)
        run_.out << monitor_heading(run_.colourful()) << '\n' << std::flush;
    while (!ended_)
        wait();
    if (run_.out)
        return;
    // The reader has left. What it did not read goes nowhere, and is nothing to complain of.
    const unique_descriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (nowhere.number() >= 0 && dup2(nowhere.number(), STDOUT_FILENO) >= 0)
        run_.out.clear();
}

void declare(CLI::App &app, monitor_options &options) {
    auto *const named =
        app.add_option("--netns", options.namespaces,
                       "Watch this namespace instead of the caller's; may be given more than once")
            ->type_name("NAME")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_flag("--all-netns", options.all_namespaces,
                 "Watch the caller's namespace and every one that a record names, also later")
        ->excludes(named);
    app.add_option(
           "--interface", options.interfaces,
           "Show events of this system ifindex only, wherever its record says it is; may be given more "
           "than once")
        ->type_name("SYSIF")
        ->check(whole_number())
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--count", options.count, "End after this many events")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000'000));
    app.add_option("--buffer", options.buffer_size, "Size of the sockets' receive buffers, in bytes")
        ->type_name("BYTES")
        ->check(CLI::Range(1U, 1U << 30))
        ->capture_default_str();
}

constexpr const char *notes =
    "Each line is one event: up, down, change or deleted, by the same rules as yb_net_if_event_receive(); "
    "lost, when the kernel dropped events because they were not read in time; namespace_deleted, when a "
    "namespace that was watched has lost its name and is no longer watched; or state. Behind a line of lost "
    "or namespace_deleted comes one of state for each recorded interface of that namespace, read anew: one "
    "whose netdev is gone is neither up nor down. So it does when a namespace is taken up later, which is up "
    "to "
    "half a second after a record has named it: what its netdevs did before is in their states. Events of "
    "netdevs without a record have no system ifindex. "
    "A deleted netdev is shown with the record it had, even when that is gone too.\n\n"
    "In a namespace that has a name (ip netns exec NAME ybnetctl monitor) events go by the records of NAME, "
    "and the default namespace is not watched, which is said once; audit tells when such a namespace is the "
    "default one all the same.\n\n"
    "It registers nowhere, so it neither keeps the databases alive nor needs them: without a database it "
    "says so once, and picks one up as soon as there is one. It ends with exit code 0 on Ctrl-C, SIGTERM, "
    "after --count events (lost, namespace_deleted and state are not counted), and when the reader of its "
    "output ends.\n\n"
    "JSON: one object a line, flushed, each with time (seconds since 1970, to the microsecond), time_iso, "
    "event, sys_ifindex, linux_ifindex, name, namespace, up, carrier, bridge_port (the message is a "
    "bridge's: a deleted netdev then left it), and of lost: dropped (how many, or null). Of "
    "namespace_deleted and lost, namespace is the one, and what tells of a netdev is null; up and carrier "
    "are "
    "null of deleted too, and of a state whose netdev is gone.";

} // namespace

void add_monitor_command(command_line &line) {
    CLI::App *const command = add_command<monitor_options>(
        &line.app(), line, "monitor", "Show link events as they come, with their system ifindexes", declare,
        [](session &run, const monitor_options &options) { monitor(run, options).watch_until_the_end(); },
        {{"timeout --preserve-status 3 ybnetctl monitor",
          "the events of three seconds in the caller's namespace"},
         {"timeout --preserve-status 3 ybnetctl --json monitor --all-netns",
          "as JSON, in every namespace that records name"},
         {"timeout --preserve-status 3 ybnetctl monitor --interface 110", "what happens to one interface"}});
    line.add_notes(command, notes);
}

} // namespace ybnetctl
