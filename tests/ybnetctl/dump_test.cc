// SPDX-License-Identifier: Apache-2.0
//
// `ybnetctl dump` and `diff`: nothing of a segment is left out, offsets are those of
// the file, and a comparison tells what was done in between.
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/segment_file.h"
#include "tests/ybnetctl/database_user.h"
#include "tests/ybnetctl/tool.h"
#include "tools/ybnetctl/segments/port_search.h"
#include "ybnet/net_lib_db.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class whole_segments : public testing::Test {
  protected:
    ~whole_segments() override {
        (void)unlink(interfaces_format.path);
        (void)unlink(ports_format.path);
    }
    static std::string copy(const segment_format &format, const char *path) {
        std::filesystem::copy_file(format.path, path, std::filesystem::copy_options::overwrite_existing);
        return path;
    }
};

TEST_F(whole_segments, are_dumped_field_by_field) {
    database_user user(record_all);
    const tool_result result = run_tool({"dump", "interfaces"});
    EXPECT_EQ(0, result.code);
    EXPECT_THAT(result.out, HasSubstr("# /dev/shm/net_lib_ifc: router interfaces"));
    EXPECT_THAT(result.out,
                HasSubstr("\n\ninterfaces[1]\n  sys_ifindex = 110\n  linux_ifindex = 5\n  name = \"vlan10\"\n"
                          "  ns_name = \"blue\"\n"));
    EXPECT_THAT(result.out, HasSubstr("\n\ntrailer\n"));
    EXPECT_THAT(result.out, HasSubstr("  user_count = 1\n"));
    EXPECT_THAT(result.out, Not(HasSubstr("interfaces[4]")));

    const std::string ports = run_tool({"dump", "ports"}).out;
    EXPECT_THAT(ports, HasSubstr("\n\nlag_to_mlag\n  [5] = 7\n"));
    EXPECT_THAT(ports, HasSubstr("\n\nmlag_to_lag\n  [7] = 0x10000500\n"));
    EXPECT_THAT(ports, HasSubstr("  log_port = 0x10100\n  lag_log_port = 0x10000500\n"));
    EXPECT_THAT(ports, HasSubstr("  attr_g = [0, 0, 0, 0]\n"));
    EXPECT_EQ("/net_lib_ifc\n/net_lib_port", jq(run_tool({"dump", "--json"}).out, ".segments[].name"));
    EXPECT_EQ(2, run_tool({"dump", "routes"}).code);
    EXPECT_EQ(0, user.end());
}

TEST_F(whole_segments, are_not_read_from_what_is_no_copy_of_one) {
    database_user user(record_all);
    ASSERT_EQ(0, mkfifo("/run/fifo", 0600));
    const auto refusal = [](std::vector<std::string> words) {
        words.insert(words.begin(), {"timeout", "20", YBNETCTL}); // a FIFO may keep a reader waiting
        const tool_result result = run_program(words);
        EXPECT_EQ(1, result.code) << result.out;
        return result.err;
    };
    const std::string advice = "\n  try: a copy made by cp /dev/shm/net_lib_ifc FILE\n";
    EXPECT_EQ("ybnetctl: /run/fifo: is a FIFO" + advice, refusal({"--file", "/run/fifo", "status"}));
    EXPECT_EQ("ybnetctl: /run: is a directory" + advice, refusal({"--file", "/run", "interface", "list"}));
    EXPECT_EQ("ybnetctl: /dev/zero: is a character device" + advice,
              refusal({"dump", "--file", "/dev/zero"}));
    EXPECT_EQ("ybnetctl: /run/fifo: is a FIFO" + advice, refusal({"diff", "/run/fifo", "live"}));
    EXPECT_EQ(0, unlink("/run/fifo"));
    EXPECT_EQ(0, user.end());
}

TEST_F(whole_segments, are_not_guessed_from_two_copies_of_one) {
    database_user user(record_all);
    const std::string one = copy(ports_format, "/run/one");
    const std::string other = copy(ports_format, "/run/other");
    const std::string interfaces = copy(interfaces_format, "/run/interfaces");
    const tool_result result =
        run_tool({"--file", one, "--file", interfaces, "--file", other, "port", "list"});
    EXPECT_EQ(2, result.code);
    EXPECT_EQ(
        "ybnetctl: --file: /run/one and /run/other are both copies of /net_lib_port: which one is meant?\n"
        "  try: one copy of each segment; ybnetctl diff compares two of one\n",
        result.err);
    EXPECT_EQ(2, run_tool({"--file", one, "--file", other, "status"}).code);
    EXPECT_EQ(0, run_tool({"--file", one, "--file", interfaces, "status"}).code);
    EXPECT_EQ(0, user.end());
}

TEST_F(whole_segments, have_their_fields_where_the_dump_says) {
    database_user user(record_all);
    const std::vector<uint8_t> bytes = segment_bytes(interfaces_format);
    int checked = 0;
    for (const std::string &line : lines_of(run_tool({"dump", "interfaces", "--offsets"}).out)) {
        char name[64];
        unsigned long offset = 0;
        long value = 0;
        if (sscanf(line.c_str(), "  0x%lx %63s = %li", &offset, name, &value) != 3)
            continue;
        ASSERT_LT(offset, bytes.size());
        EXPECT_EQ(value & 0xFF, bytes[offset]) << line;
        checked++;
    }
    EXPECT_GT(checked, 20);
    const std::string document = run_tool({"dump", "interfaces", "--json"}).out;
    EXPECT_EQ("116", jq(document, ".segments[0].regions[0].records[1].offset"));
    EXPECT_EQ("475136", jq(document, ".segments[0].regions[1].offset"));
    EXPECT_EQ(0, user.end());
}

TEST_F(whole_segments, are_dumped_whole_when_asked_to) {
    database_user user(record_all);
    const std::string document = run_tool({"dump", "--all", "interfaces", "--json"}).out;
    EXPECT_EQ("4096", jq(document, ".segments[0].regions[0].records | length"));
    const std::string ports = run_tool({"dump", "--all", "ports", "--json"}).out;
    EXPECT_EQ(
        "65536 256 1001 255 65536 1",
        jq(ports, "[.segments[0].regions[] | (.records // .values) | length | tostring] | join(\" \")"));
    EXPECT_THAT(run_tool({"dump", "--all", "interfaces"}).out, HasSubstr("reserved = 00 00 00\n"));
    EXPECT_EQ(0, user.end());
}

TEST_F(whole_segments, that_are_the_same_do_not_differ) {
    database_user user(record_all);
    const std::string before = copy(interfaces_format, "/run/before");
    const tool_result same = run_tool({"diff", before, "live"});
    EXPECT_EQ(0, same.code) << same.err;
    EXPECT_EQ("--- /run/before\n+++ /dev/shm/net_lib_ifc\nNo difference.\n", same.out);
    EXPECT_EQ("true", jq(run_tool({"diff", "live", before, "--json"}).out, ".identical"));
    EXPECT_EQ(0, user.end());
}

TEST_F(whole_segments, that_differ_say_what_was_done) {
    shared_counter go;
    shared_counter done;
    database_user user(
        [&go, &done](const std::function<void()> &ready) {
            record_all();
            ready();
            (void)go.wait_for(1);
            const yb_net_interface_params_t params = vlan_params("vlan20", "", 20);
            const bool ok = net_lib_db_interface_rif_add(110, 9) == YB_STATUS_SUCCESS &&
                            net_lib_db_interface_remove(130) == YB_STATUS_SUCCESS &&
                            net_lib_db_interface_add(120, 8, &params) == YB_STATUS_SUCCESS;
            done.add(ok ? 1 : 2);
        },
        0);
    const std::string before = copy(interfaces_format, "/run/before");
    go.add();
    ASSERT_TRUE(done.wait_for(1));
    ASSERT_EQ(1, done.value());
    const tool_result result = run_tool({"diff", before, "live"});
    EXPECT_EQ(0, result.code);
    EXPECT_THAT(result.out, HasSubstr("~ interfaces[1] sys_ifindex 110\n-   rif = 5\n+   rif = 9\n"));
    EXPECT_THAT(result.out, HasSubstr("- interfaces[2] sys_ifindex 130\n-   sys_ifindex = 130\n"));
    EXPECT_THAT(result.out, HasSubstr("+ interfaces[2] sys_ifindex 120\n+   sys_ifindex = 120\n"));
    EXPECT_THAT(result.out, Not(HasSubstr("sys_ifindex 140")));
    const std::string document = run_tool({"diff", before, "live", "--json"}).out;
    EXPECT_EQ("false", jq(document, ".identical"));
    EXPECT_EQ("changed removed added",
              jq(document, "[.differences[] | select(.region == \"interfaces\") | .change] | join(\" \")"));
    EXPECT_EQ("5 9", jq(document, ".differences[] | select(.change == \"changed\" and .sys_ifindex == 110) | "
                                  ".fields[] | \"\\(.before) \\(.after)\""));
    EXPECT_EQ(0, user.end());
}

TEST_F(whole_segments, tell_a_port_that_had_to_make_room_from_one_that_changed) {
    // Two keys at the same home: the second goes behind the first, and a third whose home is the next bucket behind both.
    uint32_t first = 1;
    while (ybnetctl::home_bucket(first) == 0 || ybnetctl::home_bucket(first) == 0xFFFF)
        first++;
    const uint16_t home = ybnetctl::home_bucket(first);
    uint32_t second = first + 1;
    while (ybnetctl::home_bucket(second) != home)
        second++;
    uint32_t third = 1;
    while (ybnetctl::home_bucket(third) != home + 1)
        third++;
    shared_counter go;
    shared_counter done;
    database_user user(
        [&](const std::function<void()> &ready) {
            const yb_net_port_info_t info = port_info("p", 0);
            bool ok = net_lib_db_port_set(first, &info) == YB_STATUS_SUCCESS &&
                      net_lib_db_port_set(third, &info) == YB_STATUS_SUCCESS;
            ready();
            (void)go.wait_for(1);
            ok = ok && net_lib_db_port_set(second, &info) == YB_STATUS_SUCCESS; // takes the third's bucket
            done.add(ok ? 1 : 2);
        },
        0);
    const std::string before = copy(ports_format, "/run/before");
    go.add();
    ASSERT_TRUE(done.wait_for(1));
    ASSERT_EQ(1, done.value());
    const std::string out = run_tool({"diff", before, "live"}).out;
    EXPECT_THAT(out, HasSubstr("~ ports[" + std::to_string(home + 1) + "] -> [" + std::to_string(home + 2) +
                               "] sys_ifindex " + std::to_string(third) + "\n+ ports["));
    EXPECT_THAT(out,
                HasSubstr("+ ports[" + std::to_string(home + 1) + "] sys_ifindex " + std::to_string(second)));
    EXPECT_EQ(0, user.end());
}

TEST_F(whole_segments, of_different_kinds_or_none_are_not_compared) {
    database_user user(record_all);
    const std::string interfaces = copy(interfaces_format, "/run/i");
    const std::string ports = copy(ports_format, "/run/p");
    EXPECT_EQ(2, run_tool({"diff", interfaces, ports}).code);
    EXPECT_EQ(2, run_tool({"diff", "live", "live"}).code);
    EXPECT_EQ(3, run_tool({"diff", interfaces, "/run/none"}).code);
    EXPECT_EQ(1, run_tool({"diff", interfaces, "/etc/passwd"}).code);
    EXPECT_EQ("1", jq(run_tool({"diff", interfaces, "/etc/passwd", "--json"}).out, ".error.exit_code"));
    EXPECT_EQ(0, user.end());
    EXPECT_EQ(3, run_tool({"diff", interfaces, "live"}).code);
}

} // namespace
