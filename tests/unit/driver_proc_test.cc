// SPDX-License-Identifier: Apache-2.0
//
// Commands to the driver's proc file, and the operational state that is set by
// one. Files of the test's own stand where /proc has none on this kernel.
#include "net_lib/driver_proc.h"

#include "tests/unit/links_fixture.h"

#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/mount.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

int fprintf_result = 0;   // when not 0, what the library's fprintf() returns
int descriptor_flags = 0; // of the file last printed to

std::string content_of(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

} // namespace

// The program is linked with --wrap=fprintf: the library's call of it comes here.
extern "C" int __wrap_fprintf(FILE *file, const char *format, ...);
extern "C" int __wrap_fprintf(FILE *file, const char *format, ...) {
    descriptor_flags = fcntl(fileno(file), F_GETFD);
    va_list arguments;
    va_start(arguments, format);
    const int written = vfprintf(file, format, arguments);
    va_end(arguments);
    if (fprintf_result == 0)
        return written;
    errno = ENOSPC;
    return fprintf_result;
}

class driver_proc : public links_fixture {
  protected:
    void SetUp() override {
        links_fixture::SetUp();
        (void)unlink(path_);
    }
    void TearDown() override {
        fprintf_result = 0;
        links_fixture::TearDown();
    }
    const char *const path_ = "/run/command";
};

TEST_F(driver_proc, command_is_appended_without_a_newline) {
    EXPECT_EQ(__qrn_proc_write("first", path_), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(content_of(path_), "first"); // made when it was not there
    EXPECT_EQ(descriptor_flags, FD_CLOEXEC);
    EXPECT_EQ(__qrn_proc_write("%s second", path_), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(content_of(path_), "first%s second"); // the command is no format
    EXPECT_EQ(__qrn_proc_write("", path_), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(driver_proc, null_command_is_said_before_a_null_path) {
    EXPECT_EQ(__qrn_proc_write(nullptr, nullptr), uint32_t{YB_STATUS_PARAM_NULL});
    EXPECT_EQ(__qrn_proc_write("x", nullptr), uint32_t{YB_STATUS_PARAM_NULL});
    EXPECT_THAT(errors(),
                ElementsAre("__qrn_proc_write: cmd is NULL\n", "__qrn_proc_write: file_path is NULL\n"));
    EXPECT_EQ(log()[0].format, "%s: cmd is NULL\n");
}

TEST_F(driver_proc, file_that_does_not_open_is_said_with_the_reason) {
    EXPECT_EQ(__qrn_proc_write("x", "/run/nowhere/file"), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("__qrn_proc_write: failed to open file /run/nowhere/file, err [2]: No such "
                            "file or directory\n"));
    EXPECT_THAT(platform::recorded().trace, // although logging spoilt errno
                ElementsAre(testing::EndsWith("err [2]: No such file or directory\n")));
}

TEST_F(driver_proc, refusal_of_the_driver_shows_in_the_close) {
    EXPECT_EQ(__qrn_proc_write("x", "/dev/full"), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("__qrn_proc_write: failed to close file /dev/full, err [28]: No space left "
                            "on device\n"));
}

TEST_F(driver_proc, failed_close_is_said_with_the_reason) {
    calls::fail("fclose", EIO);
    EXPECT_EQ(__qrn_proc_write("x", path_), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("__qrn_proc_write: failed to close file /run/command, err [5]: Input/output "
                            "error\n"));
}

TEST_F(driver_proc, write_that_fails_at_once_is_said_and_the_file_closed) {
    const std::string command(100000, 'c'); // more than the stream holds back
    EXPECT_EQ(__qrn_proc_write(command.c_str(), "/dev/full"), uint32_t{YB_STATUS_ERROR});
    ASSERT_FALSE(errors().empty());
    EXPECT_EQ(log()[0].format, "%s: appending \"%s\" to %s failed, err[%d]: %s\n");
    EXPECT_THAT(errors()[0], testing::StartsWith("__qrn_proc_write: appending \"ccc"));
    EXPECT_EQ(calls::count("fclose"), 1);
}

TEST_F(driver_proc, write_that_fails_is_said_with_the_reason) {
    fprintf_result = -1;
    EXPECT_EQ(__qrn_proc_write("short", path_), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("__qrn_proc_write: appending \"short\" to /run/command failed, err[28]: No space "
                            "left on device\n"));
}

TEST_F(driver_proc, write_that_came_short_is_said_with_both_counts) {
    fprintf_result = 3;
    EXPECT_EQ(__qrn_proc_write("short", path_), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("__qrn_proc_write: appending \"short\" to /run/command is lack, wrote 3 out "
                            "of 5 characters\n"));
    EXPECT_EQ(log()[0].format, "%s: appending \"%s\" to %s is lack, wrote %d out of %zu characters\n");
}

TEST_F(driver_proc, failed_write_and_failed_close_are_both_said) {
    fprintf_result = 3;
    calls::fail("fclose", EIO);
    EXPECT_EQ(__qrn_proc_write("short", path_), uint32_t{YB_STATUS_ERROR});
    EXPECT_EQ(errors().size(), 2u);
}

using oper_state_set = driver_proc;

TEST_F(oper_state_set, unknown_interface_is_said_before_a_bad_state) {
    EXPECT_EQ(yb_net_interface_oper_state_set(4000000000u, 2), uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("yb_net_interface_oper_state_set: Cannot find interface with system ifindex "
                            "4000000000\n"));
}

TEST_F(oper_state_set, other_states_are_refused_silently) {
    add_record(100, 7, "swp1");
    EXPECT_EQ(yb_net_interface_oper_state_set(100, 2), uint32_t{YB_STATUS_PARAM_ERROR});
    EXPECT_EQ(calls::count("fopen"), 0);
    EXPECT_THAT(log(), IsEmpty());
}

// With a file of the test's own for the driver's.
class oper_state_written : public driver_proc {
  protected:
    void SetUp() override {
        driver_proc::SetUp();
        ASSERT_EQ(mount("tmpfs", "/proc", "tmpfs", 0, ""), 0);
        std::filesystem::create_directories("/proc/qrn_yb");
    }
    void TearDown() override {
        EXPECT_EQ(umount("/proc"), 0);
        driver_proc::TearDown();
    }
};

TEST_F(oper_state_written, is_one_command_to_the_driver_without_a_newline) {
    add_record(100, 7, "swp1");
    EXPECT_EQ(yb_net_interface_oper_state_set(100, 0), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(content_of("/proc/qrn_yb/yb_core"), "oper_dev swp1 down");
    EXPECT_EQ(std::filesystem::file_size("/proc/qrn_yb/yb_core"), 18u);
    EXPECT_EQ(yb_net_interface_oper_state_set(100, 1), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_EQ(content_of("/proc/qrn_yb/yb_core"), "oper_dev swp1 downoper_dev swp1 up");
    EXPECT_EQ(calls::count("socket"), 0); // nothing is asked of the kernel
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(oper_state_written, name_that_would_make_another_command_is_not_written) {
    for (const char *const name : {"", ".", "..", "a b", "a\tb", "a\noper_dev b", "../a", "a/b"}) {
        add_record(100, 7, name);
        EXPECT_EQ(yb_net_interface_oper_state_set(100, 1), uint32_t{YB_STATUS_ERROR}) << name;
        ASSERT_EQ(errors().size(), 1u) << name;
        EXPECT_EQ(errors()[0], "yb_net_interface_oper_state_set: writing Command \"oper_dev " +
                                   std::string(name) + " up\" to qrn proc failed. err: [1]\n");
        platform::reset();
        EXPECT_EQ(net_lib_db_interface_remove(100), uint32_t{YB_STATUS_SUCCESS});
    }
    EXPECT_EQ(calls::count("fopen"), 0);
    EXPECT_FALSE(std::filesystem::exists("/proc/qrn_yb/yb_core"));
}

TEST_F(oper_state_set, missing_driver_is_said_twice_with_the_command) {
    add_record(100, 7, "swp1");
    EXPECT_EQ(yb_net_interface_oper_state_set(100, 1), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(),
                ElementsAre("__qrn_proc_write: failed to open file /proc/qrn_yb/yb_core, err [2]: No such "
                            "file or directory\n",
                            "yb_net_interface_oper_state_set: writing Command \"oper_dev swp1 up\" to qrn "
                            "proc failed. err: [1]\n"));
    EXPECT_EQ(log()[1].format, "%s: writing Command \"%s\" to qrn proc failed. err: [%d]\n");
}

TEST_F(oper_state_set, name_that_fills_its_field_is_read_to_its_end) {
    add_record(100, 7, "sixteen_is_full_");
    EXPECT_EQ(yb_net_interface_oper_state_set(100, 0), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors().back(), testing::HasSubstr("\"oper_dev sixteen_is_full_ down\""));
}
