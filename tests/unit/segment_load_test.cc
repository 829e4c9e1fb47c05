// SPDX-License-Identifier: Apache-2.0
//
// Loading a segment that exists: registration, the re-initialise flag, the
// marker, and what a failed mapping leaves behind. Segments of another layout are
// segment_stale_test.cc's.
#include "tests/unit/segments_fixture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class segment_load_test : public segments_test {};

TEST_P(segment_load_test, of_an_existing_segment_adds_a_user_and_keeps_the_contents) {
    made_by_another_process();
    segment_view view(format());
    scribble(view);
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(2u, view.user_count());
    EXPECT_TRUE(scribble_is_there());
    EXPECT_NE(YB_STATUS_DB_NOT_INITIALIZED, operation());
    EXPECT_THAT(all_said(), IsEmpty());
}

TEST_P(segment_load_test, registers_and_flushes_with_the_lock_held) {
    made_by_another_process();
    int flushes = 0;
    calls::on_msync() = [&](void *address, size_t size, int flags) {
        flushes++;
        EXPECT_EQ(GetParam().reference.body, address);
        EXPECT_EQ(format().size, size);
        EXPECT_EQ(MS_SYNC, flags);
        EXPECT_TRUE(segment_view(format()).locked());
        EXPECT_EQ(2u, segment_view(format()).user_count());
        return 0;
    };
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(1, flushes);
    EXPECT_FALSE(segment_view(format()).locked());
}

TEST_P(segment_load_test, succeeds_although_the_flush_fails) {
    calls::fail("msync", EIO);
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_THAT(all_said(), IsEmpty());
}

TEST_P(segment_load_test,
       keeps_one_descriptor_a_load_open_for_the_life_of_the_process_and_closes_it_on_exec) {
    const size_t before = descriptors().size();
    constexpr size_t spare = 1; // for takeovers, while it is loaded
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(before + 1 + spare, descriptors().size()) << "by creation";
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(before + 1, descriptors().size()) << "unloading does not close it";
    made_by_another_process();
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(before + 2 + spare, descriptors().size()) << "by opening";
    for (const int descriptor : descriptors())
        EXPECT_EQ(FD_CLOEXEC, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
}

// ---- The re-initialise flag ----

TEST_P(segment_load_test, first_with_flag_1_erases) {
    made_by_another_process();
    segment_view view(format());
    scribble(view);
    EXPECT_EQ(YB_STATUS_SUCCESS, load(1));
    EXPECT_FALSE(scribble_is_there());
    EXPECT_EQ(2u, view.user_count());
}

TEST_P(segment_load_test, first_with_another_flag_than_1_does_not_erase) {
    for (const uint32_t flag : {0u, 2u, 3u, 0x100u, 0x80000001u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(flag);
        made_by_another_process();
        {
            segment_view view(format());
            scribble(view);
        }
        EXPECT_EQ(YB_STATUS_SUCCESS, load(flag));
        EXPECT_TRUE(scribble_is_there());
        EXPECT_EQ(YB_STATUS_SUCCESS, unload());
        segment_remove(format());
    }
}

TEST_P(segment_load_test, second_with_flag_0_returns_31_and_changes_nothing) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    {
        segment_view view(format());
        scribble(view);
    }
    const std::vector<uint8_t> before = segment_bytes(format());
    calls::reset();
    EXPECT_EQ(31u, load(0));
    EXPECT_THAT(all_said(), ElementsAre(said{severity_warn, GetParam().already_loaded}));
    EXPECT_EQ(before, segment_bytes(format()));
    EXPECT_EQ(0, calls::count("shm_open"));
    EXPECT_EQ(0, calls::count("msync"));
    EXPECT_EQ(0, calls::count("segment_lock"));
}

TEST_P(segment_load_test, second_with_flag_2_erases_and_registers_no_other_user) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    segment_view view(format());
    scribble(view);
    EXPECT_EQ(YB_STATUS_SUCCESS, load(2));
    EXPECT_FALSE(scribble_is_there());
    EXPECT_EQ(1u, view.user_count());
    EXPECT_THAT(all_said(), IsEmpty());
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_FALSE(segment_exists(format()));
}

TEST_P(segment_load_test, second_on_a_segment_whose_size_check_changed_returns_1_and_erases_nothing) {
    ASSERT_EQ(YB_STATUS_SUCCESS, load());
    segment_view view(format());
    scribble(view);
    view.set_word(format().size_check(), static_cast<uint32_t>(format().size) + 4);
    EXPECT_EQ(31u, load(0)) << "the flag is looked at first";
    platform::recorded().log.clear();
    EXPECT_EQ(1u, load(1));
    EXPECT_EQ(1u, load(2));
    EXPECT_THAT(all_said(),
                ElementsAre(error(GetParam().loaded_mismatch), error(GetParam().loaded_mismatch)));
    EXPECT_TRUE(scribble_is_there());
    EXPECT_EQ(1u, view.user_count());
    view.set_word(format().size_check(), static_cast<uint32_t>(format().size));
}

// ---- The marker ----

TEST_P(segment_load_test, of_a_segment_without_the_marker_returns_18_and_has_registered_all_the_same) {
    made_by_another_process();
    segment_view view(format());
    view.set_byte(format().marker(), 221);
    EXPECT_EQ(18u, load());
    EXPECT_THAT(all_said(), ElementsAre(error(GetParam().not_initialized)));
    EXPECT_EQ(2u, view.user_count());
    EXPECT_NE(nullptr, GetParam().reference.reference) << "the mapping stays in place";
    EXPECT_EQ(31u, load()) << "and counts as a load";
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(1u, view.user_count()) << "an unload brings the count back";
}

TEST_P(segment_load_test, without_the_marker_yields_18_on_every_load_whose_flag_is_not_1) {
    made_by_another_process();
    segment_view view(format());
    view.set_byte(format().marker(), 0);
    for (const uint32_t flag : {0u, 2u, 3u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(flag);
        EXPECT_EQ(18u, load(flag));
        EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    }
    EXPECT_EQ(0, view.byte(format().marker()));
    EXPECT_EQ(YB_STATUS_SUCCESS, load(1)) << "which initialises the contents";
    EXPECT_EQ(222, view.byte(format().marker()));
    EXPECT_EQ(2u, view.user_count());
}

TEST_P(segment_load_test, after_a_creation_does_not_test_the_marker) {
    calls::before("msync", [](int flush) {
        if (flush == 2) // of the registration
            segment_view(format()).set_byte(format().marker(), 0);
    });
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_THAT(all_said(), IsEmpty());
}

// ---- A mapping that fails ----

TEST_P(segment_load_test, whose_mapping_fails_leaves_the_reference_set_until_an_unload) {
    made_by_another_process();
    calls::fail("mmap", ENOMEM);
    EXPECT_EQ(6u, load());
    EXPECT_THAT(all_said(), ElementsAre(error(GetParam().map_failed)));
    EXPECT_EQ(MAP_FAILED, GetParam().reference.reference);
    EXPECT_TRUE(segment_exists(format())) << "others use it";

    EXPECT_EQ(18u, operation()) << "nothing dereferences it";
    platform::recorded().log.clear();
    EXPECT_EQ(31u, load(0));
    EXPECT_EQ(1u, load(1));
    EXPECT_EQ(1u, load(7));
    EXPECT_THAT(all_said(),
                ElementsAre(said{severity_warn, GetParam().already_loaded}, error(GetParam().loaded_mismatch),
                            error(GetParam().loaded_mismatch)));

    calls::reset();
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    EXPECT_EQ(0, calls::count("munmap"));
    EXPECT_EQ(nullptr, GetParam().reference.reference);
    EXPECT_EQ(1u, segment_view(format()).user_count()) << "it had not registered";
    EXPECT_EQ(YB_STATUS_SUCCESS, load()) << "a later load works again";
    EXPECT_EQ(2u, segment_view(format()).user_count());
}

// ---- Who reports ----

TEST_P(segment_load_test, and_creation_and_unload_report_under_the_exported_functions_names) {
    const auto last_trace_is = [](const char *level, const char *function, const char *text) {
        ASSERT_FALSE(platform::recorded().trace.empty());
        const std::string &line = platform::recorded().trace.back();
        const std::string begin = std::string("[") + level + "] [YB_NET_LIB] - " + function + "[";
        EXPECT_EQ(begin, line.substr(0, begin.size()));
        EXPECT_EQ(std::string("]: ") + text, line.substr(line.find("]: ")));
    };
    calls::fail("ftruncate", ENOSPC);
    EXPECT_EQ(6u, load());
    last_trace_is("ERROR  ", GetParam().loader, GetParam().init_failed);
    platform::recorded().trace.pop_back();
    last_trace_is("ERROR  ", GetParam().creator, GetParam().resize_failed);

    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(31u, load());
    last_trace_is("WARN   ", GetParam().loader, GetParam().already_loaded);
    calls::fail("munmap", EINVAL);
    EXPECT_EQ(1u, unload());
    last_trace_is("ERROR  ", GetParam().unloader, GetParam().unmap_failed);
}

TEST_P(segment_load_test, writes_no_trace_lines_and_its_creator_only_the_left_line) {
    uint32_t verbosity = 5;
    (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity);
    g_yb_log_module_func_enable = 1;
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_EQ(YB_STATUS_SUCCESS, load(1));
    EXPECT_EQ(YB_STATUS_SUCCESS, unload());
    ASSERT_EQ(1u, platform::recorded().log.size());
    EXPECT_EQ("%s[%d]- %s: %s - left \n", platform::recorded().log[0].format);
    EXPECT_THAT(platform::recorded().log[0].text,
                testing::MatchesRegex(std::string("net_lib_db\\[[0-9]+\\]- ") + GetParam().creator + ": " +
                                      GetParam().creator + " - left \n"));
}

TEST_P(segment_load_test, of_an_existing_segment_writes_no_trace_lines) {
    made_by_another_process();
    uint32_t verbosity = 5;
    (void)net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity);
    g_yb_log_module_func_enable = 1;
    EXPECT_EQ(YB_STATUS_SUCCESS, load());
    EXPECT_THAT(all_said(), IsEmpty());
}

FOR_BOTH_SEGMENTS(segment_load_test);

// The exported lock functions must not follow such a reference either.
TEST(interfaces_lock, does_nothing_when_the_database_is_not_loaded) {
    platform::reset();
    calls::reset();
    net_lib_db_interface_lock_acquire();
    net_lib_db_interface_lock_release();
    EXPECT_EQ(0, calls::count("segment_lock"));
    EXPECT_EQ(0, calls::count("segment_lock"));
    EXPECT_THAT(all_said(), IsEmpty());
}

TEST(interfaces_lock, does_nothing_after_a_failed_mapping) {
    platform::reset();
    segment_remove(interfaces_format);
    ASSERT_EQ(0, child_process([] { return static_cast<int>(net_lib_db_interfaces_load(0)); }).wait());
    calls::reset();
    calls::fail("mmap", ENOMEM);
    ASSERT_EQ(6u, net_lib_db_interfaces_load(0));
    net_lib_db_interface_lock_acquire();
    net_lib_db_interface_lock_release();
    EXPECT_EQ(0, calls::count("segment_lock"));
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    segment_remove(interfaces_format);
}

TEST(interfaces_lock, is_the_segments_lock) {
    segment_remove(interfaces_format);
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
    const segment_view view(interfaces_format);
    net_lib_db_interface_lock_acquire();
    EXPECT_TRUE(view.locked());
    net_lib_db_interface_lock_release();
    EXPECT_FALSE(view.locked());
    EXPECT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
}

} // namespace
