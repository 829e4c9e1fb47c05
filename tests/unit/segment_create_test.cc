// SPDX-License-Identifier: Apache-2.0
//
// Making a segment: the order of the steps, what each failure leaves behind, and
// how a creation race ends. What a fresh segment holds is segment_contents_test.cc's.
#include "tests/unit/segments_fixture.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class segment_create_failure : public segments_test {
  protected:
    // The step fails: nothing stays, and the next load finds a clean place.
    static void expect_clean_failure(const char *message) {
        EXPECT_EQ(YB_STATUS_NO_MEMORY, load());
        EXPECT_THAT(all_said(), ElementsAre(error(message), error(GetParam().init_failed)));
        EXPECT_FALSE(segment_exists(format()));
        EXPECT_EQ(nullptr, GetParam().reference.reference);
        EXPECT_EQ(YB_STATUS_DB_NOT_INITIALIZED, operation());
        calls::reset();
        EXPECT_EQ(YB_STATUS_SUCCESS, load()) << "a failed creation does not count as a load";
        EXPECT_EQ(1u, segment_view(format()).user_count());
    }
};

TEST_P(segment_create_failure, of_shm_open_gives_no_memory) {
    calls::fail("shm_open", ENFILE, 2); // the first call looks for the segment
    expect_clean_failure(GetParam().create_failed);
}

TEST_P(segment_create_failure, of_ftruncate_unlinks_the_name) {
    calls::fail("ftruncate", ENOSPC);
    expect_clean_failure(GetParam().resize_failed);
}

TEST_P(segment_create_failure, of_taking_the_memory_unlinks_the_name) {
    calls::fail("posix_fallocate", ENOSPC);
    expect_clean_failure(GetParam().resize_failed);
}

TEST_P(segment_create_failure, is_none_when_a_signal_interrupts_taking_the_memory) {
    calls::fail("posix_fallocate", EINTR);
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(2, calls::count("posix_fallocate"));
    EXPECT_THAT(all_said(), IsEmpty());
}

TEST_P(segment_create_failure, of_mmap_clears_the_reference_and_unlinks_the_name) {
    calls::fail("mmap", ENOMEM);
    expect_clean_failure(GetParam().map_failed);
}

TEST_P(segment_create_failure, of_the_lock_attribute_unmaps_and_unlinks) {
    calls::fail("pthread_rwlockattr_init", ENOMEM);
    expect_clean_failure(GetParam().lock_init_failed);
}

TEST_P(segment_create_failure, of_the_process_shared_attribute_unmaps_and_unlinks) {
    calls::fail("pthread_rwlockattr_setpshared", EINVAL);
    expect_clean_failure(GetParam().lock_init_failed);
}

TEST_P(segment_create_failure, of_the_lock_itself_unmaps_and_unlinks) {
    calls::fail("pthread_rwlock_init", EAGAIN);
    int unmapped = -1;
    calls::before("shm_unlink", [&](int) { unmapped = calls::count("munmap"); });
    expect_clean_failure(GetParam().lock_init_failed);
    EXPECT_EQ(1, unmapped) << "unmapped before the name goes";
}

FOR_BOTH_SEGMENTS(segment_create_failure);

class segment_create : public segments_test {};

TEST_P(segment_create, makes_a_file_that_everybody_may_read_and_write_less_the_umask) {
    const mode_t before = umask(0);
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(0u, umask(before)) << "the umask is left as it was";
    struct stat status = {};
    ASSERT_EQ(0, stat(format().path, &status));
    EXPECT_EQ(0666u, status.st_mode & 07777);
    EXPECT_EQ(format().size, static_cast<size_t>(status.st_size));
}

TEST_P(segment_create, respects_the_umask) {
    const mode_t before = umask(027);
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    (void)umask(before);
    struct stat status = {};
    ASSERT_EQ(0, stat(format().path, &status));
    EXPECT_EQ(0640u, status.st_mode & 07777);
}

TEST_P(segment_create, writes_the_size_check_after_everything_else) {
    // The contents are flushed as their last step: the size check is not there yet. Nor is a user.
    std::vector<uint32_t> size_checks;
    std::vector<uint8_t> markers;
    std::vector<uint32_t> users;
    calls::before("msync", [&](int) {
        const segment_view view(format());
        size_checks.push_back(view.word(format().size_check()));
        markers.push_back(view.byte(format().marker()));
        users.push_back(view.user_count());
    });
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    const auto size = static_cast<uint32_t>(format().size);
    EXPECT_THAT(size_checks, ElementsAre(0u, size));
    EXPECT_THAT(markers, ElementsAre(222, 222));
    EXPECT_THAT(users, ElementsAre(0u, 1u));
}

TEST_P(segment_create, flushes_the_contents_and_the_registration_whole_with_the_lock_held) {
    int flushes = 0;
    calls::on_msync() = [&](void *address, size_t size, int flags) {
        flushes++;
        EXPECT_EQ(GetParam().reference.body, address);
        EXPECT_EQ(format().size, size);
        EXPECT_EQ(MS_SYNC, flags);
        EXPECT_TRUE(segment_view(format()).locked());
        return 0;
    };
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(2, flushes);
    EXPECT_FALSE(segment_view(format()).locked());
}

TEST_P(segment_create, alone_maps_the_segment_without_registering_a_user) {
    EXPECT_EQ(YB_STATUS_SUCCESS, GetParam().create());
    EXPECT_NE(nullptr, GetParam().reference.reference);
    const segment_view view(format());
    EXPECT_EQ(0u, view.user_count());
    EXPECT_EQ(format().size, view.word(format().size_check()));
    EXPECT_THAT(all_said(), IsEmpty());
}

TEST_P(segment_create, of_an_existing_segment_succeeds_without_mapping_anything) {
    made_by_another_process();
    uint32_t verbosity = 5;
    (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity);
    EXPECT_EQ(YB_STATUS_SUCCESS, GetParam().create());
    EXPECT_EQ(nullptr, GetParam().reference.reference);
    ASSERT_EQ(1u, platform::recorded().log.size());
    const platform::log_line &line = platform::recorded().log[0];
    EXPECT_EQ(severity_debug, line.severity);
    EXPECT_EQ("YB_NET_LIB", line.module);
    EXPECT_EQ(std::string("%s[%d]- %s: ") + GetParam().already_exists, line.format);
    EXPECT_THAT(line.text, testing::MatchesRegex(std::string("net_lib_db\\[[0-9]+\\]- ") +
                                                 GetParam().creator + ": net_lib_.*already exists,\n"));
    EXPECT_EQ(std::string("[%s] [%s] - %s[%d]: ") + GetParam().already_exists,
              platform::recorded().trace_formats.at(0));
}

TEST_P(segment_create, keeps_its_debug_message_below_verbosity_5) {
    made_by_another_process();
    uint32_t verbosity = 4;
    (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity);
    EXPECT_EQ(YB_STATUS_SUCCESS, GetParam().create());
    EXPECT_THAT(all_said(), IsEmpty());
    EXPECT_THAT(platform::recorded().trace, IsEmpty());
}

FOR_BOTH_SEGMENTS(segment_create);

class segment_creation_race : public segments_test {};

TEST_P(segment_creation_race, loser_maps_what_the_winner_made) {
    made_by_another_process();
    calls::fail("shm_open", ENOENT, 1); // as if the winner came just after the look
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(2u, segment_view(format()).user_count());
    EXPECT_THAT(all_said(), IsEmpty());
    EXPECT_EQ(3, calls::count("shm_open")) << "open, create, open";
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(1u, segment_view(format()).user_count());
}

TEST_P(segment_creation_race, loser_says_at_debug_that_the_segment_exists) {
    made_by_another_process();
    uint32_t verbosity = 5;
    (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity);
    calls::fail("shm_open", ENOENT, 1);
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    ASSERT_EQ(1u, platform::recorded().log.size());
    EXPECT_EQ(std::string("%s[%d]- %s: ") + GetParam().already_exists, platform::recorded().log[0].format);
}

TEST_P(segment_creation_race, loser_waits_until_the_winner_has_sized_and_filled_the_segment) {
    // The winner has made the file and nothing else; it goes on between the looks of the loser.
    segment_make(format(), 0);
    calls::before("fstat", [&](int look) {
        if (look == 3)
            segment_make(format(), format().size); // sized, but not filled
        if (look == 6) {
            segment_view view(format());
            pthread_rwlockattr_t attribute;
            (void)pthread_rwlockattr_init(&attribute);
            (void)pthread_rwlockattr_setpshared(&attribute, PTHREAD_PROCESS_SHARED);
            pthread_rwlock_t lock;
            (void)pthread_rwlock_init(&lock, &attribute);
            for (size_t i = 0; i < sizeof(lock); i++)
                view.set_byte(format().lock + i, reinterpret_cast<const uint8_t *>(&lock)[i]);
            view.set_word(format().lock_state(), 2);
            view.set_byte(format().marker(), 222);
        }
        if (look == 8)
            segment_view(format()).set_word(format().size_check(), static_cast<uint32_t>(format().size));
    });
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(9, calls::count("fstat")); // once more with the file locked
    EXPECT_EQ(1u, segment_view(format()).user_count());
    EXPECT_THAT(all_said(), IsEmpty());
}

TEST_P(segment_creation_race, loser_makes_the_segment_when_the_winner_has_gone_again) {
    made_by_another_process();
    calls::fail("shm_open", ENOENT, 1);
    calls::before("shm_open", [](int call) {
        if (call == 3)
            segment_remove(format()); // the winner unloaded, and was the last user
    });
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(4, calls::count("shm_open")) << "open, create, open, create";
    EXPECT_EQ(1u, segment_view(format()).user_count());
}

TEST_P(segment_creation_race, loser_makes_the_segment_when_the_winner_gave_up) {
    segment_make(format(), 0);
    calls::before("fstat", [](int look) {
        if (look == 3)
            segment_remove(format()); // it could not size the file, say
    });
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(1u, segment_view(format()).user_count());
    EXPECT_THAT(all_said(), IsEmpty());
}

TEST_P(segment_creation_race, load_makes_the_segment_when_the_one_it_opened_was_removed_by_hand) {
    made_by_another_process();
    const segment_view old(format());
    calls::before("flock", [](int call) {
        if (call == 1)
            segment_remove(format());
    });
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    ASSERT_TRUE(segment_exists(format()));
    EXPECT_EQ(1u, segment_view(format()).user_count());
    EXPECT_EQ(1u, old.user_count()) << "nobody registers in what has no name";
}

TEST_P(segment_creation_race, is_excluded_also_when_a_signal_interrupts_the_wait_for_the_file) {
    made_by_another_process();
    calls::fail("flock", EINTR);
    bool excluded = false;
    calls::before("msync", [&](int) { // of the registration
        const int descriptor = open(format().path, O_RDWR | O_CLOEXEC);
        excluded = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        (void)close(descriptor);
    });
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_TRUE(excluded);
}

TEST_P(segment_creation_race, ends_with_a_status_when_the_segment_comes_and_goes_for_ever) {
    calls::before("shm_open", [](int call) {
        if (call % 2 == 1)
            segment_remove(format()); // gone whenever it is to be opened
        else
            segment_make(format(), 0); // there whenever it is to be made
    });
    EXPECT_EQ(YB_STATUS_NO_MEMORY, load());
    EXPECT_THAT(all_said(), ElementsAre(error(GetParam().init_failed)));
    EXPECT_EQ(nullptr, GetParam().reference.reference);
}

FOR_BOTH_SEGMENTS(segment_creation_race);

// ---- An open that fails although the segment is not missing ----

class segment_open : public segments_test {};

TEST_P(segment_open, refused_for_permissions_ends_after_one_attempt_at_creation) {
    made_by_another_process();
    calls::before("shm_open", [](int call) { calls::fail("shm_open", EACCES, call == 2 ? 0 : 1); });
    EXPECT_EQ(YB_STATUS_NO_MEMORY, load());
    EXPECT_THAT(all_said(), ElementsAre(error(GetParam().init_failed)));
    EXPECT_EQ(3, calls::count("shm_open")) << "open, create (it exists), open";
    EXPECT_TRUE(segment_exists(format())) << "what others use is not removed";
    EXPECT_EQ(1u, segment_view(format()).user_count());
    EXPECT_EQ(nullptr, GetParam().reference.reference);
}

TEST_P(segment_open, out_of_descriptors_ends_after_one_attempt_at_creation) {
    made_by_another_process();
    calls::before("shm_open", [](int) { calls::fail("shm_open", EMFILE); });
    EXPECT_EQ(YB_STATUS_NO_MEMORY, load());
    EXPECT_THAT(all_said(), ElementsAre(error(GetParam().create_failed), error(GetParam().init_failed)));
    EXPECT_EQ(2, calls::count("shm_open"));
    EXPECT_EQ(nullptr, GetParam().reference.reference);
}

FOR_BOTH_SEGMENTS(segment_open);

} // namespace
