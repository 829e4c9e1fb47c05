// SPDX-License-Identifier: Apache-2.0
//
// libybd itself: the software device, and how devices are listed, opened and
// closed. Character devices of every host stand where the driver's nodes would
// be when only finding and opening is shown; the lab has the driver's own.
#include "ybnet/platform/ybd.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr uint32_t room = 20;

// The names listed with room for up to space of them.
std::vector<std::string> listed(uint32_t space = room) {
    std::array<std::array<char, YBD_DEV_NAME_SIZE>, room> buffers;
    std::vector<char *> names;
    for (auto &buffer : buffers) {
        buffer.fill('#');
        names.push_back(buffer.data());
    }
    uint32_t count = space;
    if (ybd_get_dev_list(names.data(), &count) != 0)
        return {std::string("failed: ") + strerrorname_np(errno)};
    std::vector<std::string> found;
    for (uint32_t i = 0; i < count && i < room; ++i)
        found.emplace_back(names[i]);
    for (uint32_t i = count; i < room; ++i)
        EXPECT_EQ(buffers[i][0], '#') << "wrote behind the names it counted";
    return found;
}

using names = std::vector<std::string>;

size_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

int control(uint32_t handle, uint32_t command, uint64_t argument, uint32_t reserved = 0) {
    ybd_ioctl_cmd_t record = {command, reserved, argument};
    return ybd_ioctl(handle, &record);
}

// The result -1 with this reason in errno.
#define EXPECT_FAILS(call, reason)                                                                           \
    do {                                                                                                     \
        errno = 0;                                                                                           \
        EXPECT_EQ(call, -1);                                                                                 \
        EXPECT_EQ(errno, reason) << strerrorname_np(errno);                                                  \
    } while (false)

class platform_ybd : public testing::Test {
  protected:
    void SetUp() override {
        choose("soft");
        descriptors_ = open_descriptors();
    }
    void TearDown() override {
        unsetenv("YBD_DEVICE");
        EXPECT_EQ(open_descriptors(), descriptors_) << "descriptors are left open";
    }
    static void choose(const char *device) {
        ASSERT_EQ(setenv("YBD_DEVICE", device, 1), 0);
    }
    static uint32_t opened(const char *name = "yb_soft0") {
        uint32_t handle = 0;
        EXPECT_EQ(ybd_open_device(name, &handle), 0) << strerrorname_np(errno);
        return handle;
    }

  private:
    size_t descriptors_ = 0;
};

TEST_F(platform_ybd, the_software_device_can_be_asked_for) {
    EXPECT_EQ(listed(), names{"yb_soft0"});
}

TEST_F(platform_ybd, none_means_that_there_is_no_device) {
    choose("none");
    EXPECT_EQ(listed(), names{"failed: ENODEV"});
    uint32_t handle = 77;
    EXPECT_FAILS(ybd_open_device("yb_soft0", &handle), ENODEV);
    EXPECT_EQ(handle, 77u);
}

TEST_F(platform_ybd, an_absolute_path_names_the_only_device) {
    choose("/dev/null");
    EXPECT_EQ(listed(), names{"/dev/null"});
    uint32_t handle = 0;
    EXPECT_FAILS(ybd_open_device("yb_soft0", &handle), ENODEV);
    EXPECT_FAILS(ybd_open_device("/dev/zero", &handle), ENODEV);
}

TEST_F(platform_ybd, a_path_must_fit_the_callers_buffers) {
    const std::string fits = "/" + std::string(YBD_DEV_NAME_SIZE - 2, 'x');
    choose(fits.c_str());
    EXPECT_EQ(listed(), names{fits});
    choose((fits + "x").c_str());
    EXPECT_EQ(listed(), names{"failed: ENAMETOOLONG"});
}

TEST_F(platform_ybd, any_other_choice_is_refused) {
    choose("yb_core0");
    EXPECT_EQ(listed(), names{"failed: EINVAL"});
}

TEST_F(platform_ybd, an_empty_choice_is_none) {
    unsetenv("YBD_DEVICE");
    const names unset = listed();
    choose("");
    EXPECT_EQ(listed(), unset);
    EXPECT_EQ(unset.size(), 1u) << "one node of a driver, or the software device";
}

TEST_F(platform_ybd, listing_into_no_room_lists_none_and_succeeds) {
    uint32_t count = 0;
    EXPECT_EQ(ybd_get_dev_list(nullptr, &count), 0);
    EXPECT_EQ(count, 0u);
    choose("none");
    EXPECT_FAILS(ybd_get_dev_list(nullptr, &count), ENODEV);
}

TEST_F(platform_ybd, null_arguments_are_refused) {
    uint32_t count = 1;
    char *no_buffer = nullptr;
    EXPECT_FAILS(ybd_get_dev_list(nullptr, &count), EINVAL);
    EXPECT_FAILS(ybd_get_dev_list(&no_buffer, &count), EINVAL);
    EXPECT_EQ(count, 1u);
    EXPECT_FAILS(ybd_get_dev_list(&no_buffer, nullptr), EINVAL);
    EXPECT_FAILS(ybd_open_device(nullptr, &count), EINVAL);
    EXPECT_FAILS(ybd_open_device("yb_soft0", nullptr), EINVAL);
    const uint32_t handle = opened();
    EXPECT_FAILS(ybd_ioctl(handle, nullptr), EINVAL);
    EXPECT_EQ(ybd_close_device(handle), 0);
}

TEST_F(platform_ybd, the_software_device_accepts_what_libybnet_sends_and_nothing_else) {
    const uint32_t handle = opened();
    const uint32_t words[3] = {1, 2, 3};
    const auto address = reinterpret_cast<uintptr_t>(words);
    EXPECT_EQ(control(handle, YBD_CTRL_CMD_SET_MULTI_PACKET_ENABLE, 0), 0);
    EXPECT_EQ(control(handle, YBD_CTRL_CMD_SET_MULTI_PACKET_ENABLE, 1), 0);
    EXPECT_EQ(control(handle, YBD_CTRL_CMD_SET_BLOCKING_ENABLE, 0), 0);
    EXPECT_EQ(control(handle, YBD_CTRL_CMD_SET_BLOCKING_ENABLE, 1), 0);
    EXPECT_EQ(control(handle, YBD_CTRL_CMD_VID2IP_SET, address), 0);
    EXPECT_FAILS(control(handle, YBD_CTRL_CMD_SET_MULTI_PACKET_ENABLE, 2), EINVAL);
    EXPECT_FAILS(control(handle, YBD_CTRL_CMD_SET_BLOCKING_ENABLE, UINT64_MAX), EINVAL);
    EXPECT_FAILS(control(handle, YBD_CTRL_CMD_SET_BLOCKING_ENABLE, 1, 1), EINVAL);
    for (const uint32_t command : {0u, 6u, 9u, 54u, 56u, UINT32_MAX})
        EXPECT_FAILS(control(handle, command, 0), EINVAL);
    EXPECT_EQ(ybd_close_device(handle), 0);
}

TEST_F(platform_ybd, words_that_cannot_be_read_are_a_bad_address_and_not_a_crash) {
    const uint32_t handle = opened();
    EXPECT_FAILS(control(handle, YBD_CTRL_CMD_VID2IP_SET, 0), EFAULT);
    EXPECT_FAILS(control(handle, YBD_CTRL_CMD_VID2IP_SET, 8), EFAULT);
    EXPECT_FAILS(control(handle, YBD_CTRL_CMD_VID2IP_SET, UINT64_MAX - 3), EFAULT);
    EXPECT_EQ(ybd_close_device(handle), 0);
}

TEST_F(platform_ybd, a_handle_that_is_not_open_is_refused) {
    const uint32_t handle = opened();
    EXPECT_NE(handle, 0u);
    for (const uint32_t wrong : {0u, handle + 1, handle ^ 0x100u, UINT32_MAX}) {
        EXPECT_FAILS(control(wrong, YBD_CTRL_CMD_SET_BLOCKING_ENABLE, 1), EBADF);
        EXPECT_FAILS(ybd_close_device(wrong), EBADF);
    }
    EXPECT_EQ(ybd_close_device(handle), 0);
    EXPECT_FAILS(ybd_close_device(handle), EBADF);
    EXPECT_FAILS(control(handle, YBD_CTRL_CMD_SET_BLOCKING_ENABLE, 1), EBADF);
}

TEST_F(platform_ybd, a_closed_handle_stays_closed_when_a_device_is_opened_after_it) {
    const uint32_t old = opened();
    EXPECT_EQ(ybd_close_device(old), 0);
    const uint32_t fresh = opened();
    EXPECT_NE(fresh, old);
    EXPECT_FAILS(ybd_close_device(old), EBADF);
    EXPECT_EQ(control(fresh, YBD_CTRL_CMD_SET_BLOCKING_ENABLE, 1), 0);
    EXPECT_EQ(ybd_close_device(fresh), 0);
}

TEST_F(platform_ybd, handles_are_independent_and_their_number_is_limited) {
    choose("/dev/null");
    std::vector<uint32_t> handles;
    uint32_t handle = 0;
    while (handles.size() < 1000 && ybd_open_device("/dev/null", &handle) == 0)
        handles.push_back(handle);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(handles.size(), 16u);
    EXPECT_EQ(ybd_close_device(handles.front()), 0);
    handles.front() = opened("/dev/null");
    for (const uint32_t each : handles)
        EXPECT_EQ(ybd_close_device(each), 0);
}

TEST_F(platform_ybd, a_node_is_opened_for_reading_and_writing_and_not_inherited) {
    choose("/dev/full");
    const uint32_t handle = opened("/dev/full");
    bool seen = false;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored; // the iterator's own descriptor
        if (std::filesystem::read_symlink(entry, ignored) != "/dev/full")
            continue;
        seen = true;
        const int descriptor = std::stoi(entry.path().filename());
        EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_ACCMODE, O_RDWR);
        EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    }
    EXPECT_TRUE(seen);
    EXPECT_EQ(ybd_close_device(handle), 0);
}

TEST_F(platform_ybd, the_control_goes_to_the_node_and_its_refusal_comes_back) {
    choose("/dev/null");
    const uint32_t handle = opened("/dev/null");
    EXPECT_FAILS(control(handle, YBD_CTRL_CMD_SET_BLOCKING_ENABLE, 1),
                 ENOTTY); // the software device takes it
    EXPECT_EQ(ybd_close_device(handle), 0);
}

TEST_F(platform_ybd, opening_says_why_it_failed) {
    uint32_t handle = 77;
    choose("/dev/yb_core_that_is_not_there");
    EXPECT_FAILS(ybd_open_device("/dev/yb_core_that_is_not_there", &handle), ENOENT);
    choose("/dev");
    EXPECT_FAILS(ybd_open_device("/dev", &handle), EISDIR);

    char path[] = "/tmp/ybd_test_XXXXXX";
    const int file = mkstemp(path);
    ASSERT_GE(file, 0);
    (void)close(file);
    choose(path);
    EXPECT_FAILS(ybd_open_device(path, &handle), ENODEV);
    (void)unlink(path);
    EXPECT_EQ(handle, 77u);
}

// The library's view of a /dev that has only these names, each bound to the host's /dev/null; with
// "file" appended to a name it is a regular file. Runs in a child with a mount namespace of its own.
[[noreturn]] void exit_with_dev(const std::vector<std::string> &nodes, const names &expected) {
    (void)unsetenv("YBD_DEVICE");
    const int null = open("/dev/null", O_PATH | O_CLOEXEC);
    const std::string source = "/proc/self/fd/" + std::to_string(null);
    if (mount("tmpfs", "/dev", "tmpfs", 0, nullptr) != 0)
        _exit(2);
    for (const std::string &node : nodes) {
        const bool file = node.ends_with(" file");
        const std::string path = "/dev/" + (file ? node.substr(0, node.find(' ')) : node);
        std::ofstream{path};
        if (!file && mount(source.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0)
            _exit(3);
    }
    const names found = listed();
    for (const std::string &name : found)
        (void)fprintf(stderr, "listed %s\n", name.c_str());
    uint32_t handle = 0;
    _exit(found == expected && ybd_open_device(found.back().c_str(), &handle) == 0 ? 0 : 1);
}

bool enter_mount_namespace() {
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

void expect_listed(const std::vector<std::string> &nodes, const names &expected) {
    EXPECT_EXIT(
        {
            if (!enter_mount_namespace())
                _exit(4);
            exit_with_dev(nodes, expected);
        },
        testing::ExitedWithCode(0), "");
}

class platform_ybd_DeathTest : public platform_ybd {
  protected:
    void SetUp() override {
        platform_ybd::SetUp();
        ASSERT_EQ(geteuid(), 0u) << "a /dev of the test's own needs root";
    }
};

TEST_F(platform_ybd_DeathTest, the_drivers_nodes_are_listed_when_there_are_any) {
    expect_listed({"yb_core0"}, {"/dev/yb_core0"});
    expect_listed({"yb_core1", "yb_core0"}, {"/dev/yb_core0", "/dev/yb_core1"});
}

TEST_F(platform_ybd_DeathTest, a_missing_number_does_not_hide_the_nodes_behind_it) {
    expect_listed({"yb_core2", "yb_core15", "yb_core16"}, {"/dev/yb_core2", "/dev/yb_core15"});
}

TEST_F(platform_ybd_DeathTest, without_nodes_there_is_the_software_device) {
    expect_listed({}, {"yb_soft0"});
    expect_listed({"null", "yb_core"}, {"yb_soft0"});
}

TEST_F(platform_ybd_DeathTest, what_is_not_a_character_device_is_no_node) {
    expect_listed({"yb_core0 file"}, {"yb_soft0"});
    expect_listed({"yb_core0 file", "yb_core1"}, {"/dev/yb_core1"});
}

TEST_F(platform_ybd_DeathTest, listing_stops_at_the_callers_room) {
    EXPECT_EXIT(
        {
            if (!enter_mount_namespace() || unsetenv("YBD_DEVICE") != 0 ||
                mount("tmpfs", "/dev", "tmpfs", 0, "") != 0 || mknod("/dev/yb_core0", S_IFCHR, 0) != 0 ||
                mknod("/dev/yb_core1", S_IFCHR, 0) != 0)
                _exit(2);
            _exit(listed(1) == names{"/dev/yb_core0"} && listed(2).size() == 2 && listed(0).empty() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(platform_ybd, threads_that_close_each_others_devices_get_answers_and_leave_nothing_open) {
    choose("/dev/null");
    constexpr int threads = 4;
    constexpr int rounds = 5000;
    std::array<std::atomic<uint32_t>, threads> shared{};
    std::atomic<int> unexpected = 0;
    std::vector<std::thread> all;
    for (int self = 0; self < threads; ++self) {
        all.emplace_back([&, self] {
            for (int round = 0; round < rounds; ++round) {
                uint32_t handle = 0;
                if (ybd_open_device("/dev/null", &handle) == 0)
                    shared[static_cast<size_t>(self)] = handle;
                else
                    ++unexpected;
                const uint32_t other = shared[static_cast<size_t>((self + 1) % threads)];
                ybd_ioctl_cmd_t record = {YBD_CTRL_CMD_SET_BLOCKING_ENABLE, 0, 1};
                if (ybd_ioctl(other, &record) != -1 || (errno != ENOTTY && errno != EBADF))
                    ++unexpected;
                if (ybd_close_device(other) != 0 && errno != EBADF)
                    ++unexpected;
                if (ybd_close_device(handle) != 0 && errno != EBADF)
                    ++unexpected;
            }
        });
    }
    for (std::thread &thread : all)
        thread.join();
    EXPECT_EQ(unexpected, 0);
}

} // namespace
