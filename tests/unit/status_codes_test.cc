// SPDX-License-Identifier: Apache-2.0
//
// The numbers that the whole switch stack shares: status codes and access
// commands, their widths, and the levels of messages.
#include "ybnet/yb_access_cmd.h"
#include "ybnet/yb_status.h"

#include <gtest/gtest.h>
#include <type_traits>

#include "net_lib_db/message.h"

namespace {

static_assert(std::is_same_v<yb_status_t, uint32_t>);
static_assert(std::is_same_v<yb_access_cmd_t, uint32_t>);

TEST(status_codes, have_the_stacks_numbers) {
    EXPECT_EQ(0, YB_STATUS_SUCCESS);
    EXPECT_EQ(1, YB_STATUS_ERROR);
    EXPECT_EQ(5, YB_STATUS_NO_RESOURCES);
    EXPECT_EQ(6, YB_STATUS_NO_MEMORY);
    EXPECT_EQ(10, YB_STATUS_CMD_UNSUPPORTED);
    EXPECT_EQ(11, YB_STATUS_CMD_INVALID);
    EXPECT_EQ(12, YB_STATUS_PARAM_NULL);
    EXPECT_EQ(13, YB_STATUS_PARAM_ERROR);
    EXPECT_EQ(14, YB_STATUS_PARAM_EXCEEDS_RANGE);
    EXPECT_EQ(18, YB_STATUS_DB_NOT_INITIALIZED);
    EXPECT_EQ(21, YB_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(22, YB_STATUS_ENTRY_ALREADY_EXISTS);
    EXPECT_EQ(31, YB_STATUS_ALREADY_INITIALIZED);
    EXPECT_EQ(102, YB_STATUS_DEVICE_ERROR);
}

TEST(access_commands, have_the_stacks_numbers) {
    EXPECT_EQ(1, YB_ACCESS_CMD_ADD);
    EXPECT_EQ(2, YB_ACCESS_CMD_EDIT);
    EXPECT_EQ(3, YB_ACCESS_CMD_DELETE);
    EXPECT_EQ(4, YB_ACCESS_CMD_DELETE_ALL);
    EXPECT_EQ(12, YB_ACCESS_CMD_CREATE);
    EXPECT_EQ(13, YB_ACCESS_CMD_DESTROY);
    EXPECT_EQ(15, YB_ACCESS_CMD_SET);
    EXPECT_EQ(16, YB_ACCESS_CMD_UNSET);
    EXPECT_EQ(17, YB_ACCESS_CMD_GET);
}

TEST(levels, have_their_masks_indexes_and_severities) {
    const struct {
        uint32_t mask, expected_mask, index, severity;
    } levels[] = {{YB_LEVEL_ERROR, 2, 1, 1},
                  {YB_LEVEL_WARN, 4, 2, 3},
                  {YB_LEVEL_NOTICE, 8, 3, 7},
                  {YB_LEVEL_INFO, 16, 4, 15},
                  {YB_LEVEL_DEBUG, 32, 5, 31}};
    for (const auto &level : levels) {
        EXPECT_EQ(level.expected_mask, level.mask);
        EXPECT_EQ(level.index, yb_level_index(level.mask));
        EXPECT_EQ(level.severity, yb_level_severity(level.mask));
    }
}

} // namespace
