// SPDX-License-Identifier: Apache-2.0
//
// Whether a thread that a lock records is dead: each thing that can be known of
// one, put there by real processes and real byte locks.
#include "net_lib_db/complib/cl_plock_owner.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "tests/support/processes.h"

namespace {

constexpr const char *name = "/lock_owner_test";

class lock_owner : public testing::Test {
  protected:
    void SetUp() override {
        descriptor_ = shm_open(name, O_RDWR | O_CREAT | O_EXCL, 0666);
        ASSERT_LE(0, descriptor_);
    }
    void TearDown() override {
        (void)close(descriptor_);
        (void)shm_unlink(name);
    }

    int another_description() const {
        return shm_open(name, O_RDWR, 0666);
    }
    bool is_dead(uint32_t id, bool announced = true, bool id_is_own = false) const {
        cl_plock_inquest inquest;
        if (!cl_plock_inquest_open(&inquest, descriptor_)) {
            ADD_FAILURE() << "no inquest";
            return false;
        }
        const bool dead = cl_plock_owner_is_dead(inquest, id, announced, id_is_own);
        cl_plock_inquest_close(&inquest);
        return dead;
    }
    // A process that has announced itself, through a description of its own, and lives until it is killed.
    child_process announced_process() {
        child_process child([this] {
            const int own = another_description();
            const bool done = cl_plock_announce(own, static_cast<uint32_t>(getpid()));
            ready_.add(done ? 1 : 100);
            for (;;)
                pause();
            return 0;
        });
        EXPECT_TRUE(ready_.wait_for(std::exchange(expected_, expected_ + 1)));
        return child;
    }
    static uint32_t id_of(const child_process &child) {
        return static_cast<uint32_t>(child.pid());
    }
    // The byte of a thread of another namespace, as that locks it.
    static void lock_byte_of(int descriptor, uint32_t id, uint32_t other_namespace) {
        struct flock range = {};
        range.l_type = F_RDLCK;
        range.l_whence = SEEK_SET;
        range.l_start = (off_t{1} << 60) + (static_cast<off_t>(id) << 32) + other_namespace;
        range.l_len = 1;
        ASSERT_EQ(0, fcntl(descriptor, F_OFD_SETLK, &range));
    }
    // An id that nobody has: of a process that has ended.
    static uint32_t unused_id() {
        child_process child([] { return 0; });
        const uint32_t id = id_of(child);
        (void)child.wait();
        return id;
    }
    static void wait_for_state(pid_t pid, char wanted) {
        for (;;) {
            char path[64];
            (void)snprintf(path, sizeof(path), "/proc/%d/stat", pid);
            FILE *const file = fopen(path, "re");
            char state = 0;
            (void)fscanf(file, "%*d %*s %c", &state);
            (void)fclose(file);
            if (state == wanted)
                return;
            usleep(1000);
        }
    }

    int descriptor_ = -1;
    shared_counter ready_;
    int expected_ = 1;
};

TEST_F(lock_owner, that_lives_is_not_dead) {
    const child_process child = announced_process();
    EXPECT_FALSE(is_dead(id_of(child)));
    EXPECT_FALSE(is_dead(id_of(child), false));
}

TEST_F(lock_owner, that_is_stopped_is_not_dead) {
    const child_process child = announced_process();
    child.signal(SIGSTOP);
    wait_for_state(child.pid(), 'T');
    EXPECT_FALSE(is_dead(id_of(child)));
    EXPECT_FALSE(is_dead(id_of(child), false));
}

TEST_F(lock_owner, that_is_a_zombie_is_dead) {
    const child_process child = announced_process();
    child.signal(SIGKILL);
    wait_for_state(child.pid(), 'Z');
    EXPECT_TRUE(is_dead(id_of(child)));
    EXPECT_TRUE(is_dead(id_of(child), false));
}

TEST_F(lock_owner, that_is_gone_is_dead) {
    child_process child = announced_process();
    const uint32_t id = id_of(child);
    child.signal(SIGKILL);
    (void)child.wait();
    EXPECT_TRUE(is_dead(id));
    EXPECT_TRUE(is_dead(id, false));
}

TEST_F(lock_owner, that_lives_in_another_namespace_under_an_id_unused_here_is_not_dead) {
    const uint32_t id = unused_id();
    const int other = another_description();
    lock_byte_of(other, id, 17);
    EXPECT_FALSE(is_dead(id));
    EXPECT_FALSE(is_dead(id, false));
    (void)close(other);
    EXPECT_TRUE(is_dead(id)) << "its process has ended";
}

TEST_F(lock_owner, of_every_namespace_number_is_found) {
    const uint32_t id = unused_id();
    struct stat own = {};
    ASSERT_EQ(0, stat("/proc/self/ns/pid", &own));
    const auto number = static_cast<uint32_t>(own.st_ino);
    for (const uint32_t space : {0u, 1u, number - 1, number + 1, 0xFFFFFFFFu}) {
        const int other = another_description();
        lock_byte_of(other, id, space);
        EXPECT_FALSE(is_dead(id)) << space;
        EXPECT_TRUE(is_dead(id + 1) || kill(static_cast<pid_t>(id + 1), 0) == 0) << "of this id only";
        (void)close(other);
    }
}

TEST_F(lock_owner, whose_id_a_process_has_that_never_announced_itself_is_dead) {
    const child_process stranger([] {
        pause();
        return 0;
    });
    EXPECT_TRUE(is_dead(id_of(stranger)));
    EXPECT_FALSE(is_dead(id_of(stranger), false)) << "another build's thread announces nothing";
}

TEST_F(lock_owner, with_the_callers_own_id_is_judged_by_the_other_namespaces) {
    const auto id = static_cast<uint32_t>(getpid());
    ASSERT_TRUE(cl_plock_announce(descriptor_, id));
    EXPECT_TRUE(is_dead(id, true, true));
    const int other = another_description();
    lock_byte_of(other, id, 17);
    EXPECT_FALSE(is_dead(id, true, true));
    (void)close(other);
}

TEST_F(lock_owner, in_the_same_process_is_not_dead_while_its_thread_lives) {
    shared_counter leave;
    uint32_t id = 0;
    std::thread holder([&] {
        id = static_cast<uint32_t>(gettid());
        ASSERT_TRUE(cl_plock_announce(descriptor_, id));
        ready_.add();
        (void)leave.wait_for(1);
    });
    ASSERT_TRUE(ready_.wait_for(1));
    EXPECT_FALSE(is_dead(id));
    leave.add();
    holder.join();
    EXPECT_TRUE(is_dead(id)) << "its byte stays locked, but there is no such thread";
}

TEST_F(lock_owner, that_no_thread_can_be_is_never_dead) {
    EXPECT_FALSE(is_dead(0));
    EXPECT_FALSE(is_dead((1u << 22) + 1));
    EXPECT_FALSE(is_dead(0xFFFFFFFFu));
}

TEST_F(lock_owner, has_one_inquest_at_a_time_and_announces_itself_after_it) {
    const uint32_t id = unused_id();
    cl_plock_inquest first;
    ASSERT_TRUE(cl_plock_inquest_open(&first, descriptor_));
    ASSERT_TRUE(cl_plock_owner_is_dead(first, id, true, false));
    EXPECT_FALSE(is_dead(id)) << "another one is not concluded";

    shared_counter announced;
    std::thread newcomer([&] {
        (void)cl_plock_announce(descriptor_, id);
        announced.add();
    });
    EXPECT_FALSE(announced.wait_for(1, std::chrono::milliseconds(100)));
    cl_plock_inquest_close(&first);
    EXPECT_TRUE(announced.wait_for(1));
    newcomer.join();
}

TEST_F(lock_owner, that_withdrew_is_not_found) {
    const uint32_t id = unused_id();
    const int other = another_description();
    lock_byte_of(other, id, 17);
    cl_plock_withdraw_all(other);
    EXPECT_TRUE(is_dead(id));
    (void)close(other);
}

TEST_F(lock_owner, is_not_judged_without_the_file) {
    cl_plock_inquest inquest;
    EXPECT_FALSE(cl_plock_inquest_open(&inquest, -1));
    cl_plock_inquest_close(&inquest);
}

} // namespace
