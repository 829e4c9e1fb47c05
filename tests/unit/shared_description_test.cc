// SPDX-License-Identifier: Apache-2.0
//
// Processes that cannot have a description of a segment's file to themselves, or cannot announce themselves on it:
// they work as all others do, and are only not judged. forked_inquest_test.cc and the host tier have those that can.
#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

#include "net_lib_db/interfaces_segment.h"
#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "tests/support/system_calls.h"
#include "ybnet/net_lib_db.h"

namespace {

class shared_description : public testing::Test {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
        segment_remove(interfaces_format);
    }
    void TearDown() override {
        calls::reset();
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
        EXPECT_FALSE(segment_exists(interfaces_format)) << "somebody is still counted";
    }
    static void load() {
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
    }
    static yb_status_t add(uint32_t sys_ifindex) {
        const yb_net_interface_params_t params = {};
        return net_lib_db_interface_add(sys_ifindex, sys_ifindex + 1000, &params);
    }
    static yb_status_t get(uint32_t sys_ifindex) {
        yb_net_interface_record_t record;
        return net_lib_db_interface_get(sys_ifindex, &record);
    }
    static uint32_t holders_id() {
        const cl_plock_t &plock = segment_trailer(interfaces_segment).plock;
        const uint32_t owner = reinterpret_cast<const pthread_rwlock_t *>(plock.rwlock)->__data.__writers;
        return cl_plock_is_announced(owner) ? cl_plock_bytes::id_of(owner) : 0;
    }
    static void put_another_file_in_place_of(int descriptor) {
        const int other = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(descriptor, dup2(other, descriptor));
        ASSERT_EQ(0, close(other));
    }
    // A child of this process, with a thread of its own, uses the database and leaves it.
    static int used_by_a_child() {
        return child_process([] {
                   std::thread([] { (void)add(7); }).join();
                   calls::reset();
                   const bool used = get(7) == YB_STATUS_SUCCESS && add(8) == YB_STATUS_SUCCESS;
                   return used && net_lib_db_interfaces_load(0) == YB_STATUS_ALREADY_INITIALIZED ? 0 : 1;
               })
            .wait();
    }
};

TEST_F(shared_description, of_a_child_that_can_have_none_of_its_own_serves_it_as_well) {
    for (const char *const call : {"open", "dup3", "mmap", "mremap"}) {
        SCOPED_TRACE(call);
        load();
        calls::fail(call, ENOMEM); // in the child: this process makes no such call before
        EXPECT_EQ(0, used_by_a_child());
        calls::reset();
        EXPECT_EQ(YB_STATUS_SUCCESS, get(7));
        EXPECT_EQ(YB_STATUS_SUCCESS, get(8));
        EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    }
}

TEST_F(shared_description, is_left_by_a_child_without_withdrawing_its_parents_announcements) {
    ASSERT_EQ(0, child_process([] { return static_cast<int>(net_lib_db_interfaces_load(0)); }).wait());
    load();                               // the second in the count: the child's unload takes one away
    ASSERT_EQ(YB_STATUS_SUCCESS, add(1)); // announces this thread
    calls::fail("dup3", ENOMEM);
    child_process child([] {
        calls::reset();
        return static_cast<int>(net_lib_db_interfaces_unload(0));
    });
    EXPECT_EQ(0, child.wait());
    calls::reset();

    net_lib_db_interface_lock_acquire();
    EXPECT_EQ(static_cast<uint32_t>(gettid()), holders_id());
    net_lib_db_interface_lock_release();
    EXPECT_TRUE(segment_announces(interfaces_format, gettid()));
}

// Of the other segment it has its own: at the end of its thread only that announcement is taken back.
TEST_F(shared_description, of_one_segment_alone_keeps_only_that_segments_announcement) {
    load();
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_load(0));
    calls::fail("dup3", ENOMEM, 2); // the ports segment's, which comes second
    child_process child([] {
        pid_t thread = 0;
        std::thread([&thread] {
            thread = gettid();
            uint32_t count = 0;
            (void)add(1);
            (void)net_lib_db_ports_get_all(0, nullptr, &count);
        }).join();
        calls::reset();
        return segment_announces(interfaces_format, thread) || !segment_announces(ports_format, thread) ? 1
                                                                                                        : 0;
    });
    EXPECT_EQ(0, child.wait());
    calls::reset();
    EXPECT_EQ(YB_STATUS_SUCCESS, get(1));
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_ports_unload(0));
}

TEST_F(shared_description, is_not_needed_by_a_thread_that_the_kernel_lets_announce_nothing) {
    load();
    uint32_t recorded = 77;
    yb_status_t status = YB_STATUS_ERROR;
    std::thread([&] {
        calls::before("fcntl", [](int) { calls::fail("fcntl", ENOLCK); });
        net_lib_db_interface_lock_acquire();
        recorded = holders_id();
        net_lib_db_interface_lock_release();
        status = add(1);
        calls::reset();
    }).join();
    EXPECT_EQ(YB_STATUS_SUCCESS, status);
    EXPECT_EQ(0u, recorded) << "not announced";
}

// One is opened for its threads, one for all, and closed with the segment.
TEST_F(shared_description, is_opened_once_more_for_new_threads_of_a_process_that_closed_its_descriptor) {
    load();
    put_another_file_in_place_of(interfaces_segment.place.descriptor);
    int opened = -1;
    for (int thread = 0; thread < 3; thread++) {
        std::thread([&] {
            net_lib_db_interface_lock_acquire();
            EXPECT_EQ(static_cast<uint32_t>(gettid()), holders_id());
            EXPECT_TRUE(segment_announces(interfaces_format, gettid()));
            net_lib_db_interface_lock_release();
        }).join();
        EXPECT_EQ(thread == 0 ? interfaces_segment.late_descriptor : opened,
                  interfaces_segment.late_descriptor);
        opened = interfaces_segment.late_descriptor;
    }
    EXPECT_TRUE(cl_plock_is_file(opened, interfaces_segment.place));
    EXPECT_EQ(0, used_by_a_child());
    EXPECT_TRUE(cl_plock_is_file(opened, interfaces_segment.place)) << "the child has closed its own alone";
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    EXPECT_EQ(-1, fcntl(opened, F_GETFD));
    EXPECT_EQ(-1, interfaces_segment.late_descriptor);
}

TEST_F(shared_description, that_gets_the_old_number_is_the_old_one) {
    load();
    ASSERT_EQ(0, close(interfaces_segment.place.descriptor));
    std::thread([] {
        net_lib_db_interface_lock_acquire();
        EXPECT_EQ(static_cast<uint32_t>(gettid()), holders_id());
        net_lib_db_interface_lock_release();
    }).join();
    EXPECT_TRUE(cl_plock_is_file(interfaces_segment.place.descriptor, interfaces_segment.place));
    EXPECT_EQ(-1, interfaces_segment.late_descriptor);
}

TEST_F(shared_description, that_two_threads_open_at_once_is_that_of_the_first) {
    load();
    put_another_file_in_place_of(interfaces_segment.place.descriptor);
    int first = -1;
    calls::before("shm_open", [&](int) { // another thread gets here meanwhile
        first = open("/dev/shm/net_lib_ifc", O_RDWR | O_CLOEXEC);
        interfaces_segment.late_descriptor = first;
    });
    std::thread([] {
        net_lib_db_interface_lock_acquire();
        EXPECT_EQ(static_cast<uint32_t>(gettid()), holders_id());
        net_lib_db_interface_lock_release();
    }).join();
    calls::reset();
    EXPECT_LE(0, first);
    EXPECT_EQ(first, interfaces_segment.late_descriptor);
}

TEST_F(shared_description, is_not_needed_by_a_thread_when_there_is_none_to_be_had) {
    load();
    put_another_file_in_place_of(interfaces_segment.place.descriptor);
    ASSERT_EQ(0, rename("/dev/shm/net_lib_ifc", "/dev/shm/elsewhere"));
    uint32_t recorded = 77;
    std::thread([&] {
        net_lib_db_interface_lock_acquire();
        recorded = holders_id();
        net_lib_db_interface_lock_release();
    }).join();
    EXPECT_EQ(0u, recorded);
    EXPECT_EQ(YB_STATUS_SUCCESS, add(1));
    ASSERT_EQ(0, rename("/dev/shm/elsewhere", "/dev/shm/net_lib_ifc"));
}

// In a child, because it is said once in a process. The name has come to stand for another file by then.
TEST_F(shared_description, is_the_only_one_where_the_file_cannot_be_opened_again_which_is_said_once) {
    child_process user([] {
        calls::before("open", [](int) { calls::fail("open", EACCES); });
        calls::before("shm_open", [](int call) {
            if (call != 3) // 1 opens, 2 creates
                return;
            segment_remove(interfaces_format);
            segment_make(interfaces_format, 0);
        });
        load();
        EXPECT_EQ(-1, interfaces_segment.spare.descriptor);
        EXPECT_EQ(0, used_by_a_child());
        calls::reset();
        EXPECT_THAT(platform::recorded().texts(3), testing::ElementsAre(testing::HasSubstr(
                                                       "its file cannot be opened a second time (errno 2)")));
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(0, user.wait());
    segment_remove(interfaces_format);
}

} // namespace
