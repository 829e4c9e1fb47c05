// SPDX-License-Identifier: Apache-2.0
//
// See library.h.
#include "tools/ybnetctl/change/library.h"

#include <cerrno>
#include <fcntl.h>
#include <ostream>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/ybnetctl/change/inside_namespace.h"
#include "tools/ybnetctl/change/interrupts.h"
#include "tools/ybnetctl/change/lock_wait.h"
#include "tools/ybnetctl/change/said.h"
#include "tools/ybnetctl/see/procfs.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"
#include "ybnet/yb_net_rtnl.h"

namespace ybnetctl {

namespace {

constexpr uint32_t everything = 5; // keep_message() chooses

// Of the live segment, read from its file; 0 when it cannot be read.
uint32_t user_count_of(segment_kind kind) {
    const segment_format &format = format_of(kind);
    const int descriptor =
        open((std::string("/dev/shm") + format.name).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
    net_lib_db_trailer_t trailer = {};
    if (descriptor < 0)
        return 0;
    const ssize_t got =
        pread(descriptor, &trailer, sizeof(trailer), static_cast<off_t>(format.trailer_offset));
    close(descriptor);
    return got == sizeof(trailer) ? trailer.user_count : 0;
}

// The library has one status for every segment that it cannot have. What the system says is asked for once more, without
// opening anything: "" when it is not a matter of rights.
std::string refused_access(const std::string &path, std::string *advice) {
    constexpr const char *directory = "/dev/shm";
    const bool exists = access(path.c_str(), F_OK) == 0;
    const int rights = exists ? R_OK | W_OK : W_OK | X_OK;
    if (faccessat(AT_FDCWD, exists ? path.c_str() : directory, rights, AT_EACCESS) == 0 ||
        (errno != EACCES && errno != EPERM && errno != EROFS))
        return "";
    const std::string why = errno == EROFS ? "read-only file system" : "permission denied";
    struct stat status = {};
    *advice = "run it as root";
    if (exists && stat(path.c_str(), &status) == 0) {
        constexpr mode_t group_writes = S_IRGRP | S_IWGRP;
        if ((status.st_mode & group_writes) == group_writes && status.st_gid != 0)
            *advice += " or as the group " + group_name(status.st_gid) + ", which the file belongs to";
        else if (status.st_uid != 0)
            *advice += " or as " + user_name(status.st_uid) + ", who owns the file";
    }
    return why + (exists ? " opening " : " making ") + path;
}

failure load_failure(segment_kind kind, const call_answer &answer) {
    const std::string thing =
        std::string(kind == segment_kind::interfaces ? "interfaces" : "ports") + " database";
    std::string advice;
    if (answer.status == YB_STATUS_NO_MEMORY)
        if (const std::string reason =
                refused_access(std::string("/dev/shm") + format_of(kind).name, &advice);
            !reason.empty())
            return {exit_code::failed, thing, reason, advice, answer.status};
    return failure_of(thing, answer, "could not be loaded", "ybnetctl status");
}

// Nothing is registered yet while this waits, so that the command may just end.
void wait_for_lock(session &run, segment_kind kind) {
    sigset_t none;
    (void)sigemptyset(&none); // cannot fail
    if (wait_behind_sleeper(run, kind, none) != 0)
        throw failure{exit_code::failed,
                      std::string("lock of ") + format_of(kind).name,
                      "interrupted while waiting for it",
                      "ybnetctl status",
                      {}};
}

} // namespace

std::string call_answer::reason(const std::string &otherwise) const {
    std::string text;
    for (const std::string &each : words)
        text += (text.empty() ? "" : "; ") + each;
    return text.empty() ? otherwise : text;
}

failure failure_of(const std::string &thing, const call_answer &answer, const std::string &otherwise,
                   const std::string &advice) {
    const bool not_found = answer.status == YB_STATUS_ENTRY_NOT_FOUND;
    return {not_found ? exit_code::not_found : exit_code::failed, thing, answer.reason(otherwise), advice,
            answer.status};
}

library::library(session &run) : run_(run) {
    if (run.dry_run)
        rehearsed_ = std::make_unique<rehearsal>(run);
    else if (!run.files.empty())
        throw failure{exit_code::usage,
                      "--file",
                      "a copy cannot be changed, only looked at",
                      "--dry-run, to rehearse a change against the copy",
                      {}};
    keep_for_showing(run.verbosity);
    watch_interrupts();
}

library::~library() {
    try {
        stop();
    } catch (const failure &) {
        // stop_library() says it; this is for runs that end by another failure.
    }
}

call_answer library::finish(yb_status_t status, std::vector<std::string> caught) {
    call_answer answer{status, take_messages()};
    answer.words.insert(answer.words.end(), caught.begin(), caught.end());
    run_.err << take_shown();
    if (rehearsed_ != nullptr)
        rehearsed_->note_record_changes();
    return answer;
}

call_answer library::call(const std::function<yb_status_t()> &function) {
    std::optional<caught_streams> caught(std::in_place);
    yb_status_t status = YB_STATUS_SUCCESS;
    {
        const rehearsal::closed_doors closed(rehearsed_.get());
        status = function();
    }
    std::vector<std::string> lines = caught->lines();
    caught.reset();
    if (status == YB_STATUS_SUCCESS && run_.verbosity != 0)
        for (const std::string &line : lines)
            run_.err << line << '\n';
    return finish(status, std::move(lines));
}

call_answer library::call_plainly(const std::function<yb_status_t()> &function) {
    yb_status_t status = YB_STATUS_SUCCESS;
    {
        const rehearsal::closed_doors closed(rehearsed_.get());
        status = function();
    }
    return finish(status, {});
}

void library::need_interfaces() {
    if (interfaces_started_)
        return;
    if (rehearsed_ != nullptr)
        rehearsed_->prepare(segment_kind::interfaces);
    else
        wait_for_lock(run_, segment_kind::interfaces);
    const call_answer answer =
        call_plainly([] { return yb_net_interfaces_init(keep_message, everything, 0); });
    interfaces_started_ = true; // a stop is due whatever the answer
    uint32_t level = everything;
    (void)call_plainly([&level] { return yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &level); });
    if (answer.status == YB_STATUS_DEVICE_ERROR) {
        device_missing_ = true;
        note(run_, answer.reason("no driver device") +
                       " Nothing that ybnetctl does needs the driver's device: going on without.");
    } else if (!answer.done()) {
        const failure what = load_failure(segment_kind::interfaces, answer);
        interfaces_started_ = false;
        (void)call_plainly([] { return yb_net_interfaces_deinit(0); }); // the failure above is what counts
        throw what;
    }
}

void library::need_ports() {
    if (ports_started_)
        return;
    if (rehearsed_ != nullptr)
        rehearsed_->prepare(segment_kind::ports);
    else
        wait_for_lock(run_, segment_kind::ports);
    const call_answer answer = call_plainly([] { return yb_net_ports_init(keep_message, everything, 0); });
    ports_started_ = true;
    uint32_t level = everything;
    (void)call_plainly([&level] { return yb_net_log_verbosity_level(YB_ACCESS_CMD_SET, &level); });
    if (!answer.done()) {
        const failure what = load_failure(segment_kind::ports, answer);
        ports_started_ = false;
        (void)call_plainly([] { return yb_net_ports_deinit(0); });
        throw what;
    }
}

void library::warn_of_last_user() {
    struct half {
        segment_kind kind;
        bool started;
        const char *words;
        uint32_t records;
    };
    half halves[] = {{segment_kind::interfaces, interfaces_started_, "interfaces", 0},
                     {segment_kind::ports, ports_started_, "ports", 0}};
    for (half &each : halves) {
        if (!each.started || user_count_of(each.kind) != 1)
            continue;
        (void)call_plainly([&each] {
            if (each.kind == segment_kind::ports)
                return yb_net_ports_get_all(YB_NET_PORT_PROTOCOL_ANY, nullptr, &each.records);
            yb_net_interface_record_t record;
            for (uint32_t i = 0; i < YB_NET_INTERFACES_MAX; i++)
                each.records += net_lib_db_interface_get_by_db_index(i, &record) == YB_STATUS_SUCCESS ? 1 : 0;
            return yb_status_t{YB_STATUS_SUCCESS};
        });
        if (each.records != 0)
            note(run_, std::string("no other process uses the ") + each.words +
                           " database, so it ends with this one, and its records (" +
                           std::to_string(each.records) + ") with it; netdevs stay. ybnetctl hold keeps it");
    }
}

void library::stop() {
    if (changed_ && rehearsed_ == nullptr)
        warn_of_last_user();
    changed_ = false;
    call_answer worst;
    const auto stop_half = [&](bool *started, yb_status_t (*deinit)(uint32_t)) {
        if (!*started)
            return;
        *started = false;
        const call_answer answer = call_plainly([deinit] { return deinit(0); });
        if (!answer.done())
            worst = answer;
    };
    stop_half(&interfaces_started_, yb_net_interfaces_deinit);
    stop_half(&ports_started_, yb_net_ports_deinit);
    if (!worst.done())
        throw failure_of("libybnet", worst, "could not be stopped",
                         "ybnetctl status, to see who is registered");
}

void library::claim_request_namespace(const std::string &thing) {
    const uint64_t here = namespace_number();
    if (request_namespace_ == 0)
        request_namespace_ = here;
    if (rth.opened == 1 && request_namespace_ != here)
        throw failure{
            exit_code::failed,
            thing,
            "it is in another network namespace than what this run of ybnetctl has sent requests for, "
            "and a process has one request socket",
            "a run of its own for each namespace",
            {}};
    request_namespace_ = here;
}

uint32_t library::netdev_index(const std::string &ns, const std::string &name) const {
    return rehearsed_ != nullptr ? rehearsed_->netdevs().index_of(ns, name)
                                 : ybnetctl::netdev_index(ns, name);
}

library &library_of(session &run) {
    if (run.started_library == nullptr)
        run.started_library = std::make_shared<library>(run);
    return *run.started_library;
}

void stop_library(session &run) {
    if (run.started_library != nullptr)
        run.started_library->stop();
}

} // namespace ybnetctl
