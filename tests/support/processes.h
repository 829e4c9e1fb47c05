// SPDX-License-Identifier: Apache-2.0
//
// Several processes in one test: children that run a function, and gates that
// hold them until the test opens them.
#ifndef YBNET_TESTS_PROCESSES_H
#define YBNET_TESTS_PROCESSES_H

#include <atomic>
#include <chrono>
#include <functional>
#include <sys/types.h>

// A child process that runs body and exits with what it returns. Killed when it is not waited for.
class child_process {
  public:
    explicit child_process(const std::function<int()> &body);
    ~child_process();
    child_process(child_process &&other) noexcept;
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    pid_t pid() const {
        return pid_;
    }
    void signal(int number) const;
    // The exit status; 128 + number when a signal ended it; -1 when it ran longer than limit (it is killed).
    int wait(std::chrono::milliseconds limit = std::chrono::seconds(60));

  private:
    pid_t pid_;
};

// A counter in memory that this process shares with its children.
class shared_counter {
  public:
    shared_counter();
    ~shared_counter();
    shared_counter(const shared_counter &) = delete;
    shared_counter &operator=(const shared_counter &) = delete;

    void add(int amount = 1) {
        value_->fetch_add(amount);
    }
    int value() const {
        return value_->load();
    }
    // Waits until the counter is at least target; false when that takes longer than limit.
    bool wait_for(int target, std::chrono::milliseconds limit = std::chrono::seconds(60)) const;

  private:
    std::atomic<int> *value_;
};

#endif
