// SPDX-License-Identifier: Apache-2.0
//
// Looking changes nothing: every command of the seeing kind opens the segments for
// reading only, maps neither and leaves each byte as it was. And what it reads beside
// a process that keeps writing is of one piece.
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/segment_file.h"
#include "tests/ybnetctl/database_user.h"
#include "tests/ybnetctl/tool.h"
#include "ybnet/net_lib_db.h"

namespace {

using testing::HasSubstr;
using testing::Not;

// The library that this test runs with, for check-upgrade to hold against the segments.
std::string own_library() {
    Dl_info found = {};
    return dladdr(reinterpret_cast<const void *>(&net_lib_db_interface_get), &found) != 0 ? found.dli_fname
                                                                                          : "";
}

const std::vector<std::vector<std::string>> seeing_commands = {
    {"status"},
    {"interface", "list"},
    {"interface", "show", "110"},
    {"interface", "find", "--name", "vlan10"},
    {"port", "list"},
    {"port", "show", "0x10001"},
    {"port", "find", "--log-port", "0x10100"},
    {"lag", "list"},
    {"lag", "show", "0x20001"},
    {"mlag", "list"},
    {"mlag", "show", "7"},
    {"dump"},
    {"diff", "/run/before", "live"},
    {"explain", "22"},
    {"check-upgrade", own_library()},
    {"audit"},
    {"--file", "/run/before", "interface", "list"},
    {"--file", "/run/before", "audit"},
};

// None of the netdevs is there, which is a finding.
int expected_code(const std::vector<std::string> &words) {
    return words.back() == "audit" ? 1 : 0;
}

class looking : public testing::Test {
  protected:
    ~looking() override {
        (void)unlink(interfaces_format.path);
        (void)unlink(ports_format.path);
    }
};

TEST_F(looking, leaves_every_byte_as_it_was) {
    database_user user(record_all);
    std::filesystem::copy_file(interfaces_format.path, "/run/before",
                               std::filesystem::copy_options::overwrite_existing);
    const auto interfaces = segment_bytes(interfaces_format);
    const auto ports = segment_bytes(ports_format);
    for (const auto &words : seeing_commands)
        EXPECT_EQ(expected_code(words), run_tool(words).code) << words[0];
    EXPECT_EQ(interfaces, segment_bytes(interfaces_format));
    EXPECT_EQ(ports, segment_bytes(ports_format));
    EXPECT_EQ(0, user.end());
}

TEST_F(looking, opens_for_reading_only_and_maps_nothing) {
    database_user user([] {
        record_all();
        net_lib_db_interface_lock_acquire(); // so that the lock is watched too
    });
    std::filesystem::copy_file(interfaces_format.path, "/run/before",
                               std::filesystem::copy_options::overwrite_existing);
    size_t opened = 0;
    for (const auto &words : seeing_commands) {
        std::vector<std::string> traced = {"strace",
                                           "-f",
                                           "-y",
                                           "-o",
                                           "/run/trace",
                                           "-e",
                                           "trace=open,openat,creat,mmap,ftruncate,unlink,unlinkat,rename,"
                                           "pwrite64,fcntl,flock,ptrace,kill",
                                           YBNETCTL};
        traced.insert(traced.end(), words.begin(), words.end());
        const tool_result result = run_program(traced);
        ASSERT_EQ(expected_code(words), result.code) << result.err;
        for (const std::string &line : lines_of(contents_of("/run/trace"))) {
            EXPECT_THAT(line, Not(testing::ContainsRegex(
                                  "[0-9] (ptrace|kill|flock|unlink|unlinkat|rename|creat)\\(")));
            if (line.find("/dev/shm/net_lib_") == std::string::npos)
                continue;
            // Opened to read, and asked whether an announcement stands on it: nothing else.
            const bool asked = line.find("F_OFD_GETLK") != std::string::npos;
            EXPECT_TRUE(asked || line.find("O_RDONLY|") != std::string::npos) << line;
            opened++;
        }
    }
    EXPECT_GT(opened, seeing_commands.size());
    user.kill();
}

TEST_F(looking, waits_for_nobody_who_died_with_a_lock) {
    database_user user([] {
        record_all();
        net_lib_db_interface_lock_acquire();
    });
    std::filesystem::copy_file(interfaces_format.path, "/run/before",
                               std::filesystem::copy_options::overwrite_existing);
    user.kill();
    const auto interfaces = segment_bytes(interfaces_format);
    const auto ports = segment_bytes(ports_format);
    for (const auto &words : seeing_commands) {
        std::vector<std::string> limited = {"timeout", "20", YBNETCTL};
        limited.insert(limited.end(), words.begin(), words.end());
        const tool_result result = run_program(limited);
        EXPECT_EQ(expected_code(words), result.code) << words[0] << result.err;
        EXPECT_NE("", result.out) << words[0];
    }
    EXPECT_EQ(interfaces, segment_bytes(interfaces_format)); // the lock is still the dead one's
    EXPECT_EQ(ports, segment_bytes(ports_format));
}

TEST_F(looking, is_coloured_on_a_terminal_only) {
    database_user user(record_all);
    std::filesystem::copy_file(interfaces_format.path, "/run/before",
                               std::filesystem::copy_options::overwrite_existing);
    std::string bytes = contents_of("/run/before");
    bytes.replace(bytes.find("vlan10"), 6, "vlan11"); // for diff
    std::ofstream("/run/before", std::ios::binary) << bytes;
    for (const auto &words : seeing_commands) {
        std::string line;
        for (const std::string &word : words)
            line += word + ' ';
        const bool plain = words[0] == "dump"; // for grep(1) and diff(1)
        EXPECT_EQ(plain, run_tool_on_terminal(line).out.find("\033[") == std::string::npos) << line;
        EXPECT_THAT(run_tool_on_terminal(line, {"NO_COLOR=1"}).out, Not(HasSubstr("\033["))) << line;
        EXPECT_THAT(run_tool_on_terminal("--json " + line).out, Not(HasSubstr("\033["))) << line;
        EXPECT_THAT(run_tool(words).out, Not(HasSubstr("\033["))) << line;
    }
    EXPECT_EQ(0, user.end());
}

TEST_F(looking, sees_records_of_one_piece_beside_a_writer) {
    shared_counter stop;
    // Interface k is named vk, has the Linux ifindex k, the RIF k and the VLAN id k: a mixture shows.
    database_user writer(
        [&stop](const std::function<void()> &ready) {
            for (uint32_t k = 1; stop.value() == 0; k = k % 3000 + 1) {
                const std::string name = 'v' + std::to_string(k);
                const yb_net_interface_params_t params = vlan_params(name, name, static_cast<uint16_t>(k));
                if (net_lib_db_interface_add_full(k, k, &params, static_cast<uint16_t>(k), 255, 1) !=
                    YB_STATUS_SUCCESS)
                    _exit(1);
                if (k > 40 && net_lib_db_interface_remove(k - 40) != YB_STATUS_SUCCESS)
                    _exit(2);
                if (k == 100)
                    ready();
                usleep(500);
                if (k == 3000) {
                    for (uint32_t left = 2961; left <= 3000; left++)
                        (void)net_lib_db_interface_remove(left);
                }
            }
        },
        0);
    int of_one_piece = 0;
    for (int round = 0; round < 200; round++) {
        const tool_result result = run_tool({"interface", "list"});
        ASSERT_EQ(0, result.code) << result.err;
        if (!result.err.empty())
            continue; // said that it could not get a settled reading
        of_one_piece++;
        const std::vector<std::string> lines = lines_of(result.out);
        for (size_t i = 1; i < lines.size(); i++) {
            unsigned sys = 0;
            unsigned linux_ifindex = 0;
            unsigned vlan = 0;
            unsigned rif = 0;
            char name[20];
            char ns[20];
            ASSERT_EQ(6, sscanf(lines[i].c_str(), "%u VLAN %19s %19s %u - %u %u -", &sys, name, ns,
                                &linux_ifindex, &vlan, &rif))
                << lines[i];
            const std::string expected = 'v' + std::to_string(sys);
            ASSERT_TRUE(expected == name && expected == ns && linux_ifindex == sys && vlan == sys &&
                        rif == sys)
                << lines[i];
        }
    }
    RecordProperty("of_one_piece", of_one_piece);
    EXPECT_GT(of_one_piece, 0);
    stop.add();
    EXPECT_EQ(0, writer.end());
}

TEST_F(looking, writes_errors_of_output_down) {
    database_user user(record_all);
    std::string command = YBNETCTL;
    command += " dump > /dev/full";
    const tool_result full = run_program({"sh", "-c", command});
    EXPECT_EQ(1, full.code);
    EXPECT_THAT(full.err, HasSubstr("could not be written"));
    EXPECT_EQ(0, user.end());
}

} // namespace
