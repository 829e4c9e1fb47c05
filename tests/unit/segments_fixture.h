// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the segments' frame share: both segments with the texts that
// each writes, and a fixture that begins and ends with neither loaded nor present.
#ifndef YBNET_TESTS_SEGMENTS_FIXTURE_H
#define YBNET_TESTS_SEGMENTS_FIXTURE_H

#include <cerrno>
#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "net_lib_db/interfaces_segment.h"
#include "net_lib_db/ports_segment.h"
#include "tests/support/processes.h"
#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "tests/support/system_calls.h"
#include "ybnet/net_lib_db.h"

constexpr uint32_t severity_error = 1;
constexpr uint32_t severity_warn = 3;
constexpr uint32_t severity_debug = 31;

struct segment_case {
    const char *label;
    segment_format format;
    segment &reference;
    yb_status_t (*load)(uint32_t);
    yb_status_t (*unload)(uint32_t);
    yb_status_t (*create)();
    const char *creator;
    const char *loader;
    const char *unloader;
    const char *already_exists;
    const char *create_failed;
    const char *resize_failed;
    const char *map_failed;
    const char *lock_init_failed;
    const char *already_loaded;
    const char *loaded_mismatch;
    const char *init_failed;
    const char *not_initialized;
    const char *mismatch;
    const char *unmap_failed;

    friend void PrintTo(const segment_case &one, std::ostream *out) {
        *out << one.label;
    }
};

inline const segment_case both_segments[] = {
    {"interfaces",
     interfaces_format,
     interfaces_segment,
     net_lib_db_interfaces_load,
     net_lib_db_interfaces_unload,
     net_lib_interfaces_db_init,
     "net_lib_interfaces_db_init",
     "net_lib_db_interfaces_load",
     "net_lib_db_interfaces_unload",
     "net_lib_interfaces_db_init(): Shared memory of the Net-lib interfaces DB already exists,\n",
     "Failed to create shared memory for the Net-lib interfaces DB\n",
     "Failed to set shared memory size for the Net-lib interfaces DB\n",
     "Failed to map the shared memory of the Net-lib interfaces DB\n",
     "Failed to initialize the Net-lib interfaces DB rwlock\n",
     "Net-lib Interfaces DB was already initialized\n",
     "Net-lib Interfaces DB does not match the library version, Consider deinit all users of YB net and "
     "re-init or delete /dev/shm/net_lib_port\n",
     "Failed to init the Net-lib interfaces DB shared memory\n",
     "Net-lib interfaces DB is not yet initialized\n",
     "Net-lib Interfaces DB does not match the library version, Consider deinit all users of YB net and "
     "re-init or delete /dev/shm/net_lib_ifc\n",
     "Failed to unmap the shared memory of the Net-lib interfaces DB\n"},
    {"ports",
     ports_format,
     ports_segment,
     net_lib_db_ports_load,
     net_lib_db_ports_unload,
     net_lib_ports_db_init,
     "net_lib_ports_db_init",
     "net_lib_db_ports_load",
     "net_lib_db_ports_unload",
     "net_lib_ports_db_init(): Shared memory of the Net-lib ports DB already exists,\n",
     "Failed to create shared memory for the Net-lib ports DB\n",
     "Failed to set shared memory size for the Net-lib ports DB\n",
     "Failed to map the shared memory of the Net-lib ports DB\n",
     "Failed to initialize the Net-lib ports DB rwlock\n",
     "Net-lib port DB was already initialized\n",
     "Net-lib ports DB does not match the library version, Consider deinit all users of YB net and re-init",
     "Failed to init the Net-lib ports DB shared memory\n",
     "Net-lib ports DB is not yet initialized\n",
     "Net-lib ports DB does not match the library version, Consider deinit all users of YB net and re-init",
     "Failed to unmap the shared memory of the Net-lib ports DB\n"}};

// One line as it was logged.
struct said {
    uint32_t severity;
    std::string text;

    bool operator==(const said &other) const {
        return severity == other.severity && text == other.text;
    }
    friend void PrintTo(const said &line, std::ostream *out) {
        *out << line.severity << " \"" << line.text << '"';
    }
};

inline std::vector<said> all_said() {
    std::vector<said> lines;
    for (const platform::log_line &line : platform::recorded().log)
        lines.push_back({line.severity, line.text});
    return lines;
}

inline said error(const std::string &text) {
    return {severity_error, text};
}

class segments_test : public testing::TestWithParam<segment_case> {
  protected:
    void SetUp() override {
        platform::reset();
        calls::reset();
        uint32_t verbosity = 3;
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_log_verbosity_level(YB_ACCESS_CMD_SET, &verbosity));
        segment_remove(format());
    }
    void TearDown() override {
        calls::reset();
        platform::reset();
        (void)GetParam().unload(0);
        segment_remove(format());
    }

    static const segment_format &format() {
        return GetParam().format;
    }
    static yb_status_t load(uint32_t reinitialize = 0) {
        return GetParam().load(reinitialize);
    }
    static yb_status_t unload() {
        return GetParam().unload(0);
    }
    // Another process makes and loads the segment, and ends without unloading: it stays in the count.
    static void made_by_another_process() {
        ASSERT_EQ(0, child_process([] { return static_cast<int>(load()); }).wait());
    }
    // A few bytes of the body's beginning that an erase would clear.
    static void scribble(segment_view &view) {
        view.fill(0, 64, 0xAB);
    }
    static bool scribble_is_there() {
        const std::vector<uint8_t> bytes = segment_view(format()).bytes(0, 64);
        return bytes == std::vector<uint8_t>(64, 0xAB);
    }
    // The open descriptors of this process that lie on the segment.
    static std::vector<int> descriptors() {
        std::vector<int> found;
        DIR *const directory = opendir("/proc/self/fd");
        while (const dirent *const entry = readdir(directory)) {
            char target[256] = {};
            const std::string path = std::string("/proc/self/fd/") + entry->d_name;
            if (readlink(path.c_str(), target, sizeof(target) - 1) > 0 &&
                std::string(target).rfind(format().path, 0) == 0)
                found.push_back(std::stoi(entry->d_name));
        }
        (void)closedir(directory);
        return found;
    }
    // What an operation of this database answers: 18 when it is not loaded.
    static yb_status_t operation() {
        if (format().size == interfaces_format.size) {
            yb_net_interface_record_t record;
            return net_lib_db_interface_get(1, &record);
        }
        uint16_t mlag_id = 0;
        return net_lib_db_mlag_get(0x10000100, &mlag_id);
    }
};

#define FOR_BOTH_SEGMENTS(fixture)                                                                           \
    INSTANTIATE_TEST_SUITE_P(both, fixture, testing::ValuesIn(both_segments),                                \
                             [](const auto &one) { return std::string(one.param.label); })

#endif
