// SPDX-License-Identifier: Apache-2.0
//
// See interrupts.h. Rests on sigaction(2) with SA_RESETHAND.
#include "tools/ybnetctl/change/interrupts.h"

#include <atomic>
#include <csignal>

namespace ybnetctl {

namespace {

constexpr int ending[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> signal_number = 0;
static_assert(std::atomic<int>::is_always_lock_free);

void note(int number) {
    signal_number = number;
}

void ignore(int) {}

} // namespace

void watch_interrupts() {
    struct sigaction action = {};
    action.sa_handler = note;
    action.sa_flags = static_cast<int>(SA_RESETHAND); // no SA_RESTART: a read of the batch ends
    for (const int number : ending) {
        struct sigaction old = {};
        if (sigaction(number, nullptr, &old) == 0 && old.sa_handler != SIG_IGN) // nohup(1) stays in force
            (void)sigaction(number, &action, nullptr);                          // cannot fail for these
    }
    // A reader that went away is met when writing. Not SIG_IGN, which children would inherit.
    action.sa_handler = ignore;
    action.sa_flags = 0;
    (void)sigaction(SIGPIPE, &action, nullptr);
}

int interrupted() {
    return signal_number;
}

void note_interrupt(int number) {
    note(number);
}

void end_if_interrupted() {
    if (const int number = interrupted(); number != 0) {
        (void)std::signal(number, SIG_DFL);
        (void)std::raise(number);
    }
}

} // namespace ybnetctl
