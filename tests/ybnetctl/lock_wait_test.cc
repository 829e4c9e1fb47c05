// SPDX-License-Identifier: Apache-2.0
//
// Changing commands, hold among them, behind a thread that holds a lock and sleeps: they say for whom they wait, hear
// signals and leave no registration behind.
#include "tests/ybnetctl/changes_fixture.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <pthread.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

#include "tests/support/processes.h"

using testing::HasSubstr;

namespace {

class lock_wait : public changes_test {
  protected:
    static tool_result told_to_end_after_two_seconds(const std::string &command) {
        return run_command({"env", "--default-signal", "timeout", "--foreground", "--preserve-status", "-k",
                            "20", "-s", "TERM", "2", "sh", "-c", "exec '" YBNETCTL "' " + command});
    }
};

// A segment's lock, taken by this thread: for the ports' there is no function.
class taken_lock {
  public:
    explicit taken_lock(const segment_format &format) : size_(format.size) {
        const int file = open(format.path, O_RDWR | O_CLOEXEC);
        memory_ = static_cast<char *>(mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
        close(file);
        lock_ = reinterpret_cast<pthread_rwlock_t *>(memory_ + format.lock);
        EXPECT_EQ(pthread_rwlock_wrlock(lock_), 0);
    }
    ~taken_lock() {
        EXPECT_EQ(pthread_rwlock_unlock(lock_), 0);
        (void)munmap(memory_, size_);
    }
    taken_lock(const taken_lock &) = delete;
    taken_lock &operator=(const taken_lock &) = delete;

  private:
    size_t size_;
    char *memory_;
    pthread_rwlock_t *lock_;
};

} // namespace

// The ports' lock is the second one: it is registered with the interfaces by then.
TEST_F(lock_wait, hold_ends_by_a_signal_and_leaves_no_registration) {
    for (const segment_format &format : {interfaces_format, ports_format}) {
        tool_result result;
        {
            const taken_lock held(format);
            result = told_to_end_after_two_seconds("hold");
        }
        EXPECT_EQ(result.code, 128 + SIGTERM);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr("ybnetctl: note: waits for the lock of " +
                                          std::string(format.path).substr(8) + ": held in each of 5 looks "));
        EXPECT_EQ(segment_view(interfaces_format).user_count(), 1U);
        EXPECT_EQ(segment_view(ports_format).user_count(), 1U);
    }
}

TEST_F(lock_wait, changing_command_ends_by_a_signal_and_leaves_no_registration) {
    tool_result result;
    {
        const taken_lock held(ports_format);
        result = told_to_end_after_two_seconds("port set 5 --name x");
    }
    EXPECT_EQ(result.code, 128 + SIGTERM);
    EXPECT_THAT(result.err, HasSubstr("lock of /net_lib_port: interrupted while waiting for it"));
    EXPECT_EQ(segment_view(ports_format).user_count(), 1U);
}

TEST_F(lock_wait, is_said_once_with_the_holder_and_ends_when_the_lock_is_free) {
    std::optional<taken_lock> held(std::in_place, ports_format);
    child_process setter([] {
        const tool_result result = run_tool({"port", "set", "5", "--name", "x"});
        std::ofstream("/run/said") << result.err;
        return result.code;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(2000));
    held.reset();
    EXPECT_EQ(setter.wait(), 0);
    const std::string said = contents_of("/run/said");
    EXPECT_THAT(said, HasSubstr(" of process " + std::to_string(getpid()) + " ("));
    EXPECT_EQ(lines_of(said).size(), 1u) << said;
    EXPECT_STREQ(stored_port(5).name, "x");
}
