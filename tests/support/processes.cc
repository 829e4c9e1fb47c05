// SPDX-License-Identifier: Apache-2.0
//
// See processes.h.
#include "tests/support/processes.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using std::chrono::steady_clock;

namespace {

constexpr auto poll_interval = std::chrono::milliseconds(1);

} // namespace

child_process::child_process(const std::function<int()> &body) : pid_(fork()) {
    if (pid_ == 0) {
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int status = body();
        (void)fflush(nullptr);
        quick_exit(status); // _exit(), unless somebody counts what was run (tests/coverage)
    }
    if (pid_ < 0) {
        perror("fork");
        abort();
    }
}

child_process::child_process(child_process &&other) noexcept : pid_(other.pid_) {
    other.pid_ = -1;
}

child_process::~child_process() {
    if (pid_ > 0) {
        (void)kill(pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
    }
}

void child_process::signal(int number) const {
    (void)kill(pid_, number);
}

int child_process::wait(std::chrono::milliseconds limit) {
    const auto deadline = steady_clock::now() + limit;
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
        if (steady_clock::now() > deadline) {
            (void)kill(pid_, SIGKILL);
            (void)waitpid(pid_, nullptr, 0);
            pid_ = -1;
            return -1;
        }
        std::this_thread::sleep_for(poll_interval);
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

shared_counter::shared_counter() {
    void *const memory =
        mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        perror("mmap");
        abort();
    }
    value_ = new (memory) std::atomic<int>(0);
}

shared_counter::~shared_counter() {
    (void)munmap(value_, sizeof(*value_));
}

bool shared_counter::wait_for(int target, std::chrono::milliseconds limit) const {
    const auto deadline = steady_clock::now() + limit;
    while (value() < target) {
        if (steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(poll_interval);
    }
    return true;
}
