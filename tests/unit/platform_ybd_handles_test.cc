// SPDX-License-Identifier: Apache-2.0
//
// The table of open devices from inside (platform/ybd/handle_table.cc, which
// this program is built with): what becomes of a descriptor that is closed
// while somebody uses it. platform_ybd_test.cc has the library's functions.
#include "platform/ybd/handle_table.h"

#include <cerrno>
#include <fcntl.h>
#include <optional>

#include <gtest/gtest.h>

namespace {

int new_descriptor() {
    const int descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
    EXPECT_GE(descriptor, 0);
    return descriptor;
}

bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) >= 0;
}

TEST(platform_ybd_handles, removing_a_handle_nobody_uses_closes_its_descriptor) {
    const int descriptor = new_descriptor();
    const uint32_t handle = ybd::table_add(descriptor);
    EXPECT_EQ(ybd::table_remove(handle), 0);
    EXPECT_FALSE(is_open(descriptor));
    EXPECT_EQ(ybd::table_remove(handle), EBADF);
}

TEST(platform_ybd_handles, a_descriptor_in_use_is_closed_by_its_last_user) {
    const int descriptor = new_descriptor();
    const uint32_t handle = ybd::table_add(descriptor);
    std::optional<ybd::device_use> first(std::in_place, handle);
    std::optional<ybd::device_use> second(std::in_place, handle);
    EXPECT_EQ(ybd::table_remove(handle), 0);
    EXPECT_TRUE(is_open(descriptor));
    EXPECT_FALSE(ybd::device_use(handle).valid()) << "removed means removed for whoever comes next";
    first.reset();
    EXPECT_TRUE(is_open(descriptor));
    second.reset();
    EXPECT_FALSE(is_open(descriptor));
}

TEST(platform_ybd_handles, a_slot_in_use_is_not_given_out_again) {
    const uint32_t handle = ybd::table_add(new_descriptor());
    std::optional<ybd::device_use> use(std::in_place, handle);
    const int descriptor = use->descriptor();
    EXPECT_EQ(ybd::table_remove(handle), 0);
    const int other = new_descriptor();
    const uint32_t fresh = ybd::table_add(other);
    use.reset();
    EXPECT_FALSE(is_open(descriptor));
    EXPECT_TRUE(is_open(other));
    EXPECT_EQ(ybd::device_use(fresh).descriptor(), other);
    EXPECT_EQ(ybd::table_remove(fresh), 0);
    EXPECT_FALSE(is_open(other));
}

TEST(platform_ybd_handles, the_software_device_has_no_descriptor_to_close) {
    const uint32_t handle = ybd::table_add(ybd::soft_device_descriptor);
    {
        const ybd::device_use use(handle);
        EXPECT_TRUE(use.valid());
        EXPECT_EQ(use.descriptor(), ybd::soft_device_descriptor);
    }
    EXPECT_EQ(ybd::table_remove(handle), 0);
}

} // namespace
