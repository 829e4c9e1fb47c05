// SPDX-License-Identifier: Apache-2.0
//
// One start of libybnet for the whole run, however many commands that has: started by the first command that needs it,
// only the half that it needs, stopped at the end, so that no registration stays behind. What the library and the
// host's tools say while a call fails becomes the failure's reason.
#ifndef YBNET_YBNETCTL_CHANGE_LIBRARY_H
#define YBNET_YBNETCTL_CHANGE_LIBRARY_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/ybnetctl/change/rehearsal.h"
#include "tools/ybnetctl/session.h"
#include "ybnet/yb_status.h"

namespace ybnetctl {

// How a call ended, and in which words.
struct call_answer {
    yb_status_t status = YB_STATUS_SUCCESS;
    std::vector<std::string> words; // the library's ERROR and WARN lines, then what came on standard error

    [[nodiscard]] bool done() const {
        return status == YB_STATUS_SUCCESS;
    }
    // The words in one line, or this when there are none.
    [[nodiscard]] std::string reason(const std::string &otherwise) const;
};

class library {
  public:
    explicit library(session &run);
    ~library();
    library(const library &) = delete;
    library &operator=(const library &) = delete;

    // Starts a half unless it is started. Throw failure. The driver device is opened with the interfaces half; none
    // of ybnetctl's commands needs it, so that a missing one is a notice on standard error.
    void need_interfaces();
    void need_ports();

    // Stops what was started; throws failure when the library could not.
    void stop();

    // Calls the library. What comes on the two standard streams meanwhile, from it and from the commands that it runs,
    // is caught; the plain form leaves them alone, for calls that run no command and send no request.
    call_answer call(const std::function<yb_status_t()> &function);
    call_answer call_plainly(const std::function<yb_status_t()> &function);

    // Says on standard error, before it stops, when records were made that end with this process.
    void note_change() {
        changed_ = true;
    }

    // Requests go to the namespace in which the library opened its one request socket: throws failure when that was
    // another one than the thread is in now. Called in front of every call that may send.
    void claim_request_namespace(const std::string &thing);

    // NULL when this is no dry run.
    [[nodiscard]] rehearsal *rehearsed() {
        return rehearsed_.get();
    }
    // A netdev as the library would find it, in a rehearsal too.
    [[nodiscard]] uint32_t netdev_index(const std::string &ns, const std::string &name) const;

  private:
    void warn_of_last_user();
    call_answer finish(yb_status_t status, std::vector<std::string> caught);

    session &run_;
    std::unique_ptr<rehearsal> rehearsed_;
    bool interfaces_started_ = false;
    bool ports_started_ = false;
    bool device_missing_ = false;
    bool changed_ = false;
    uint64_t request_namespace_ = 0;
};

// The run's library, made on first use.
library &library_of(session &run);

// At the end of the run: stops the library if it was started. Throws failure.
void stop_library(session &run);

// A failure of the library as one of a command. not_found for YB_STATUS_ENTRY_NOT_FOUND.
failure failure_of(const std::string &thing, const call_answer &answer, const std::string &otherwise,
                   const std::string &advice);

} // namespace ybnetctl

#endif
