// SPDX-License-Identifier: Apache-2.0
//
// A process that makes a child in the middle of an inquest (complib/cl_plock_owner.h), while the description that it
// is held on, kept for processes without privileges, is the child's too.
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "net_lib_db/complib/cl_plock_owner.h"
#include "net_lib_db/interfaces_segment.h"
#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "ybnet/net_lib_db.h"

namespace {

class forked_inquest : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
    }
    void TearDown() override {
        if (child_id_.value() != 0)
            (void)kill(child_id_.value(), SIGKILL);
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    }

    // On the spare description, as when the file could not be opened.
    static bool open_inquest(cl_plock_inquest *inquest) {
        cl_plock_place place = interfaces_segment.place;
        place.descriptor = -1;
        return cl_plock_inquest_open(inquest, place) && cl_plock_owner_is_dead(*inquest, unused_id, false);
    }
    static bool somebody_holds_an_inquest() {
        cl_plock_inquest own;
        EXPECT_TRUE(cl_plock_inquest_open(&own, interfaces_segment.place));
        const bool free = cl_plock_owner_is_dead(own, unused_id, false);
        cl_plock_inquest_close(&own);
        return !free;
    }
    static void use_the_library() {
        net_lib_db_interface_lock_acquire();
        net_lib_db_interface_lock_release();
    }
    // A process that makes a child in the middle of an inquest, and is killed there; its child lives on.
    template <typename make_t> void die_in_an_inquest(make_t make_child) {
        child_process parent([&] {
            cl_plock_inquest inquest;
            if (!open_inquest(&inquest))
                return 1;
            const pid_t child = make_child();
            if (child == 0) {
                (void)prctl(PR_SET_PDEATHSIG, 0);
                use_the_library();
                ready_.add();
                pause();
                _exit(0);
            }
            child_id_.add(child);
            pause();
            return 0;
        });
        ASSERT_TRUE(ready_.wait_for(1));
        ASSERT_TRUE(child_id_.wait_for(1));
        EXPECT_TRUE(somebody_holds_an_inquest());
        parent.signal(SIGKILL);
        (void)parent.wait();
        EXPECT_FALSE(somebody_holds_an_inquest()) << "its child keeps it up";
    }

    static constexpr uint32_t unused_id =
        (1U << 22) - 1; // as an owner, too: of a namespace that nobody is in
    shared_counter ready_;
    shared_counter child_id_;
};

TEST_F(forked_inquest, ends_with_the_process_that_held_it) {
    die_in_an_inquest([] { return fork(); });
}

TEST_F(forked_inquest, ends_with_the_process_that_held_it_although_the_child_was_not_seen) {
    die_in_an_inquest([] { return _Fork(); });
}

TEST_F(forked_inquest, is_not_ended_by_the_child_and_keeps_the_child_from_none) {
    cl_plock_inquest inquest;
    ASSERT_TRUE(open_inquest(&inquest));
    child_process child([] {
        use_the_library();
        cl_plock_inquest own;
        if (open_inquest(&own))
            return 1; // beside its parent's
        cl_plock_inquest_close(&own);
        return interfaces_segment.spare.in_use == 0 && somebody_holds_an_inquest() ? 0 : 2;
    });
    EXPECT_EQ(0, child.wait());
    EXPECT_TRUE(somebody_holds_an_inquest());
    cl_plock_inquest_close(&inquest);
    EXPECT_EQ(0, child_process([] {
                     use_the_library();
                     cl_plock_inquest own;
                     return open_inquest(&own) ? 0 : 1;
                 }).wait());
}

// The process has closed the description kept for inquests, and its number is another file's by now.
TEST_F(forked_inquest, leaves_alone_what_was_opened_in_its_descriptors_place) {
    const int beside_it = shm_open("/beside_it", O_RDWR | O_CREAT, 0600);
    const int elsewhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int other : {beside_it, elsewhere}) {
        child_process process([other] {
            const int number = interfaces_segment.spare.descriptor;
            if (dup2(other, number) != number)
                return 1;
            return child_process([other, number] {
                       struct stat wanted;
                       struct stat found;
                       if (fstat(other, &wanted) != 0 || fstat(number, &found) != 0)
                           return 2;
                       const bool is_kept = wanted.st_dev == found.st_dev && wanted.st_ino == found.st_ino;
                       cl_plock_inquest inquest;
                       return is_kept && open_inquest(&inquest) ? 0 : 3;
                   })
                .wait();
        });
        EXPECT_EQ(0, process.wait());
        (void)close(other);
    }
    (void)shm_unlink("/beside_it");
}

} // namespace
