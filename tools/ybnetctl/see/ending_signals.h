// SPDX-License-Identifier: Apache-2.0
//
// The signals that end a command which otherwise runs on, as something to wait for
// beside its other descriptors (signalfd(2)).
#ifndef YBNET_YBNETCTL_SEE_ENDING_SIGNALS_H
#define YBNET_YBNETCTL_SEE_ENDING_SIGNALS_H

#include <cerrno>
#include <csignal>
#include <cstring>

#include <sys/signalfd.h>
#include <unistd.h>

#include "tools/ybnetctl/kernel/namespaces.h"
#include "tools/ybnetctl/outcome.h"

namespace ybnetctl {

// SIGINT and SIGTERM as something to read, and no SIGPIPE, while it lives.
class ending_signals {
  public:
    ending_signals() {
        sigset_t ending;
        (void)sigemptyset(&ending);
        (void)sigaddset(&ending, SIGINT);
        (void)sigaddset(&ending, SIGTERM);
        (void)sigprocmask(SIG_BLOCK, &ending, &mask_before_);
        descriptor_ = unique_descriptor(signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
        if (descriptor_.number() < 0)
            throw failure{exit_code::failed, "signals", std::strerror(errno), "", {}};
        pipe_before_ = std::signal(SIGPIPE, SIG_IGN);
    }
    ~ending_signals() {
        // Who was told to end is about to, and may be told twice (timeout(1) does): that must not kill it meanwhile.
        signalfd_siginfo taken{};
        if (read(descriptor_.number(), &taken, sizeof(taken)) < 0)
            (void)sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
        (void)std::signal(SIGPIPE, pipe_before_);
    }
    ending_signals(const ending_signals &) = delete;
    ending_signals &operator=(const ending_signals &) = delete;

    [[nodiscard]] int descriptor() const {
        return descriptor_.number();
    }

  private:
    sigset_t mask_before_{};
    unique_descriptor descriptor_;
    void (*pipe_before_)(int) = SIG_DFL;
};

} // namespace ybnetctl

#endif
