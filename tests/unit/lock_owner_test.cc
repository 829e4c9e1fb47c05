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
        struct stat file = {};
        ASSERT_EQ(0, fstat(descriptor_, &file));
        place_ = {name, descriptor_, file.st_dev, file.st_ino, &spare_};
    }
    void TearDown() override {
        (void)close(spare_.descriptor);
        (void)close(descriptor_);
        (void)shm_unlink(name);
    }

    int another_description() const {
        return shm_open(name, O_RDWR, 0666);
    }
    template <typename judgement> bool in_an_inquest(judgement judge) const {
        cl_plock_inquest inquest;
        if (!cl_plock_inquest_open(&inquest, place_)) {
            ADD_FAILURE() << "no inquest";
            return false;
        }
        const bool dead = judge(inquest);
        cl_plock_inquest_close(&inquest);
        return dead;
    }
    bool is_dead(uint32_t owner, bool is_own = false) const {
        return in_an_inquest(
            [&](const cl_plock_inquest &inquest) { return cl_plock_owner_is_dead(inquest, owner, is_own); });
    }
    bool stranger_is_dead(uint32_t id, bool is_own = false) const {
        return in_an_inquest(
            [&](const cl_plock_inquest &inquest) { return cl_plock_stranger_is_dead(inquest, id, is_own); });
    }
    // A process that has announced itself, through a description of its own, and lives until it is killed.
    child_process announced_process() {
        child_process child([this] {
            const int own = another_description();
            const bool done = cl_plock_is_announced(cl_plock_announce(own, static_cast<uint32_t>(getpid())));
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
    static uint32_t owner_of(const child_process &child) {
        return cl_plock_namesake_here(id_of(child));
    }
    // The byte of a thread of another namespace, as that locks it.
    static void lock_byte_of(int descriptor, uint32_t id, uint32_t other_namespace) {
        struct flock range = {};
        range.l_type = F_RDLCK;
        range.l_whence = SEEK_SET;
        range.l_start = (off_t{1} << 60) + (static_cast<off_t>(id) << 32) +
                        (off_t{other_namespace & 0xFF} << 24) + (other_namespace >> 8);
        range.l_len = 1;
        ASSERT_EQ(0, fcntl(descriptor, F_OFD_SETLK, &range));
    }
    // As a description that is not the one that locked it sees it.
    static bool byte_is_locked(int descriptor, uint32_t id) {
        struct flock range = {};
        range.l_type = F_WRLCK;
        range.l_whence = SEEK_SET;
        range.l_start = (off_t{1} << 60) + (static_cast<off_t>(id) << 32);
        range.l_len = off_t{1} << 32;
        EXPECT_EQ(0, fcntl(descriptor, F_OFD_GETLK, &range));
        return range.l_type != F_UNLCK;
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

    // Whose file can be opened no more.
    cl_plock_place place_with_its_spare_alone() const {
        cl_plock_place place = place_;
        place.descriptor = -1;
        return place;
    }

    int descriptor_ = -1;
    cl_plock_spare spare_;
    cl_plock_place place_ = {};
    shared_counter ready_;
    int expected_ = 1;
};

TEST_F(lock_owner, that_lives_is_not_dead) {
    const child_process child = announced_process();
    EXPECT_FALSE(is_dead(owner_of(child)));
    EXPECT_FALSE(stranger_is_dead(id_of(child)));
}

TEST_F(lock_owner, that_is_stopped_is_not_dead) {
    const child_process child = announced_process();
    child.signal(SIGSTOP);
    wait_for_state(child.pid(), 'T');
    EXPECT_FALSE(is_dead(owner_of(child)));
    EXPECT_FALSE(stranger_is_dead(id_of(child)));
}

TEST_F(lock_owner, that_is_a_zombie_is_dead) {
    const child_process child = announced_process();
    child.signal(SIGKILL);
    wait_for_state(child.pid(), 'Z');
    EXPECT_TRUE(is_dead(owner_of(child)));
    EXPECT_TRUE(stranger_is_dead(id_of(child)));
}

TEST_F(lock_owner, that_is_gone_is_dead) {
    child_process child = announced_process();
    const uint32_t id = id_of(child);
    child.signal(SIGKILL);
    (void)child.wait();
    EXPECT_TRUE(is_dead(cl_plock_namesake_here(id)));
    EXPECT_TRUE(stranger_is_dead(id));
}

// ---- Namespaces ----

// The number of a namespace that a lock does not tell from the caller's own: the lowest eight bits are the same.
uint32_t alike_namespace() {
    struct stat own = {};
    EXPECT_EQ(0, stat("/proc/self/ns/pid", &own));
    return static_cast<uint32_t>(own.st_ino) ^ 0x100;
}

TEST_F(lock_owner, that_lives_in_another_namespace_under_an_id_unused_here_is_not_dead) {
    const uint32_t id = unused_id();
    const uint32_t here = cl_plock_namesake_here(id);
    for (const uint32_t space : {17u, alike_namespace()}) {
        const int other = another_description();
        lock_byte_of(other, id, space);
        EXPECT_FALSE(is_dead(cl_plock_bytes::owner_of(id, space))) << space;
        EXPECT_FALSE(stranger_is_dead(id)) << space;
        EXPECT_EQ(space == 17, is_dead(here))
            << space << ": its namesake here is somebody else, if one can tell";
        (void)close(other);
        EXPECT_TRUE(is_dead(cl_plock_bytes::owner_of(id, space))) << "its process has ended";
    }
}

// Every container has a process 1.
TEST_F(lock_owner, is_dead_although_a_namesake_in_another_namespace_lives) {
    const child_process here = announced_process();
    const int other = another_description();
    lock_byte_of(other, id_of(here), 17);
    EXPECT_FALSE(is_dead(owner_of(here)));
    EXPECT_TRUE(is_dead(cl_plock_bytes::owner_of(id_of(here), 18))) << "both that live are others";
    here.signal(SIGKILL);
    wait_for_state(here.pid(), 'Z');
    EXPECT_TRUE(is_dead(owner_of(here)));
    EXPECT_FALSE(is_dead(cl_plock_bytes::owner_of(id_of(here), 17)));
    (void)close(other);
}

TEST_F(lock_owner, is_known_to_be_elsewhere) {
    EXPECT_FALSE(cl_plock_is_elsewhere(cl_plock_namesake_here(5)));
    EXPECT_TRUE(cl_plock_is_elsewhere(cl_plock_bytes::owner_of(5, alike_namespace() + 1)));
}

TEST_F(lock_owner, of_every_namespace_number_is_found) {
    const uint32_t id = unused_id();
    const uint32_t number = alike_namespace() ^ 0x100;
    for (const uint32_t space :
         {0u, 1u, number - 1, number + 1, number - 256, number + 256, number | 0xFFFFFF00, 0xFFFFFFFFu}) {
        const int other = another_description();
        lock_byte_of(other, id, space);
        EXPECT_FALSE(is_dead(cl_plock_bytes::owner_of(id, space))) << space;
        EXPECT_FALSE(stranger_is_dead(id)) << space;
        EXPECT_TRUE(stranger_is_dead(id + 1) || kill(static_cast<pid_t>(id + 1), 0) == 0)
            << "of this id only";
        (void)close(other);
    }
}

TEST_F(lock_owner, that_could_not_announce_itself_is_never_dead) {
    EXPECT_FALSE(is_dead(cl_plock_bytes::unannounced | unused_id()));
    EXPECT_FALSE(cl_plock_is_announced(cl_plock_bytes::unannounced | 1));
    EXPECT_TRUE(cl_plock_is_announced(cl_plock_bytes::owner_of(cl_plock_bytes::id_mask, 0xFF)));
}

TEST_F(lock_owner, whose_id_a_process_has_that_never_announced_itself_is_dead) {
    const child_process stranger([] {
        pause();
        return 0;
    });
    EXPECT_TRUE(is_dead(owner_of(stranger)));
    EXPECT_FALSE(stranger_is_dead(id_of(stranger))) << "another build's thread announces nothing";
}

TEST_F(lock_owner, that_is_the_caller_itself_is_judged_by_the_other_namespaces) {
    const auto id = static_cast<uint32_t>(getpid());
    const uint32_t owner = cl_plock_announce(descriptor_, id);
    ASSERT_EQ(cl_plock_namesake_here(id), owner);
    EXPECT_TRUE(is_dead(owner, true));
    EXPECT_TRUE(stranger_is_dead(id, true));
    const int other = another_description();
    lock_byte_of(other, id, alike_namespace());
    EXPECT_FALSE(is_dead(owner, true));
    EXPECT_FALSE(stranger_is_dead(id, true));
    (void)close(other);
}

TEST_F(lock_owner, in_the_same_process_is_not_dead_while_its_thread_lives) {
    shared_counter leave;
    uint32_t id = 0;
    std::thread holder([&] {
        id = static_cast<uint32_t>(gettid());
        ASSERT_TRUE(cl_plock_is_announced(cl_plock_announce(descriptor_, id)));
        ready_.add();
        (void)leave.wait_for(1);
    });
    ASSERT_TRUE(ready_.wait_for(1));
    EXPECT_FALSE(is_dead(cl_plock_namesake_here(id)));
    leave.add();
    holder.join();
    EXPECT_TRUE(is_dead(cl_plock_namesake_here(id))) << "its byte stays locked, but there is no such thread";
}

TEST_F(lock_owner, that_no_thread_can_be_is_never_dead) {
    EXPECT_FALSE(is_dead(0));
    EXPECT_FALSE(is_dead(5u << 22)) << "a namespace alone";
    EXPECT_FALSE(is_dead(0xFFFFFFFFu));
    EXPECT_FALSE(stranger_is_dead(0));
    EXPECT_FALSE(stranger_is_dead((1u << 22) + 1));
    EXPECT_FALSE(stranger_is_dead(0xFFFFFFFFu));
}

TEST_F(lock_owner, has_one_inquest_at_a_time_and_announces_itself_after_it) {
    const uint32_t id = unused_id();
    const uint32_t owner = cl_plock_namesake_here(id);
    cl_plock_inquest first;
    ASSERT_TRUE(cl_plock_inquest_open(&first, place_));
    ASSERT_TRUE(cl_plock_owner_is_dead(first, owner, false));
    EXPECT_FALSE(is_dead(owner)) << "another one is not concluded";

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

// It goes on unannounced rather than wait for somebody who never lets go.
TEST_F(lock_owner, is_not_kept_waiting_by_whoever_keeps_its_byte) {
    const uint32_t id = unused_id();
    cl_plock_inquest keeper;
    ASSERT_TRUE(cl_plock_inquest_open(&keeper, place_));
    ASSERT_TRUE(cl_plock_owner_is_dead(keeper, cl_plock_namesake_here(id), false));
    EXPECT_EQ(cl_plock_bytes::unannounced | id, cl_plock_announce(descriptor_, id));
    cl_plock_inquest_close(&keeper);
    EXPECT_EQ(cl_plock_namesake_here(id), cl_plock_announce(descriptor_, id));
}

TEST_F(lock_owner, that_withdrew_is_not_found) {
    const uint32_t id = unused_id();
    const int other = another_description();
    lock_byte_of(other, id, 17);
    EXPECT_FALSE(is_dead(cl_plock_bytes::owner_of(id, 17)));
    cl_plock_withdraw_all(other);
    EXPECT_TRUE(is_dead(cl_plock_bytes::owner_of(id, 17)));
    (void)close(other);
}

TEST_F(lock_owner, that_withdrew_alone_leaves_the_others_announced) {
    const uint32_t id = unused_id();
    ASSERT_TRUE(cl_plock_is_announced(cl_plock_announce(descriptor_, id)));
    ASSERT_TRUE(cl_plock_is_announced(cl_plock_announce(descriptor_, id + 1)));
    const int other = another_description();
    cl_plock_withdraw(descriptor_, id);
    EXPECT_FALSE(byte_is_locked(other, id));
    EXPECT_TRUE(byte_is_locked(other, id + 1));
    (void)close(other);
}

// ---- The description of an inquest ----

TEST_F(lock_owner, is_not_judged_without_the_file) {
    cl_plock_inquest inquest;
    EXPECT_FALSE(cl_plock_inquest_open(&inquest, place_with_its_spare_alone()));
    cl_plock_inquest_close(&inquest);
}

TEST_F(lock_owner, is_not_judged_on_another_file) {
    const int other = memfd_create("another file", MFD_CLOEXEC);
    cl_plock_place place = place_;
    place.descriptor = other;
    spare_.descriptor = other;
    cl_plock_inquest inquest;
    EXPECT_FALSE(cl_plock_inquest_open(&inquest, place));
    cl_plock_inquest_close(&inquest);
    EXPECT_EQ(0u, spare_.in_use);
}

TEST_F(lock_owner, is_judged_by_the_spare_description_when_the_file_cannot_be_opened) {
    const child_process child = announced_process();
    spare_.descriptor = cl_plock_open_again(place_);
    for (const bool dead : {false, true}) {
        cl_plock_inquest inquest;
        ASSERT_TRUE(cl_plock_inquest_open(&inquest, place_with_its_spare_alone()));
        EXPECT_EQ(dead, cl_plock_owner_is_dead(inquest, owner_of(child), false));
        cl_plock_inquest_close(&inquest);
        EXPECT_LE(0, fcntl(spare_.descriptor, F_GETFD)) << "it is kept";
        child.signal(SIGKILL);
        wait_for_state(child.pid(), 'Z');
    }
}

// As in a daemon that has closed its standard input.
TEST_F(lock_owner, is_judged_by_a_description_of_its_own_although_that_is_descriptor_0) {
    spare_.descriptor = cl_plock_open_again(place_);
    child_process judge([this] {
        (void)close(STDIN_FILENO);
        cl_plock_inquest inquest;
        if (!cl_plock_inquest_open(&inquest, place_) || inquest.descriptor != STDIN_FILENO)
            return 2;
        if (inquest.spare != nullptr || spare_.in_use != 0)
            return 3;
        cl_plock_inquest_close(&inquest);
        return fcntl(STDIN_FILENO, F_GETFD) == -1 ? 0 : 4;
    });
    EXPECT_EQ(0, judge.wait());
}

// Byte locks of one description do not exclude each other.
TEST_F(lock_owner, has_one_inquest_at_a_time_on_the_spare_description_too) {
    const uint32_t owner = cl_plock_namesake_here(unused_id());
    spare_.descriptor = cl_plock_open_again(place_);
    cl_plock_inquest first;
    ASSERT_TRUE(cl_plock_inquest_open(&first, place_with_its_spare_alone()));
    ASSERT_TRUE(cl_plock_owner_is_dead(first, owner, false));
    cl_plock_inquest second;
    EXPECT_FALSE(cl_plock_inquest_open(&second, place_with_its_spare_alone()));
    cl_plock_inquest_close(&second);
    EXPECT_FALSE(is_dead(owner)) << "nor is it concluded through another description";
    cl_plock_inquest_close(&first);
    ASSERT_TRUE(cl_plock_inquest_open(&second, place_with_its_spare_alone()));
    EXPECT_TRUE(cl_plock_owner_is_dead(second, owner, false));
    cl_plock_inquest_close(&second);
}

} // namespace
