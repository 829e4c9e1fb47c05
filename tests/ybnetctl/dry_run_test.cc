// SPDX-License-Identifier: Apache-2.0
//
// --dry-run of the built program: the commands and records that it names are those of the real run, and it does
// nothing itself: no process, no request, not a byte of shared memory.
#include "tests/ybnetctl/changes_fixture.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <sys/mount.h>
#include <sys/utsname.h>

#include "tests/support/processes.h"
#include "tools/ybnetctl/change/changing.h"
#include "tools/ybnetctl/change/link_kinds.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class dry_run : public changes_test {
  protected:
    static std::vector<std::string> with_dry_run(std::vector<std::string> words) {
        words.insert(words.begin(), "--dry-run");
        return words;
    }
    // The tools' command lines that the steps name, as the shims see them: without the namespace in front they see
    // the outer and the inner one.
    static std::vector<std::string> commands_in(const json &document) {
        std::vector<std::string> commands;
        for (const json &each : document["steps"]) {
            if (each["kind"] != "command" && each["kind"] != "lookup")
                continue;
            const std::string text = each["text"];
            commands.push_back(std::regex_replace(text, std::regex(" 2>&1$"), ""));
            std::smatch inner;
            if (each["kind"] == "command" &&
                std::regex_match(text, inner, std::regex("ip netns exec [^ ]+ (.*)")))
                commands.push_back(inner[1]);
        }
        return commands;
    }
    // The tools are met by name, from PATH: commands in a namespace run inside the shim's own PATH.
    std::vector<std::string> really_run(const std::vector<std::string> &words) {
        const size_t before = shims_.runs().size();
        const tool_result result = run_tool(words);
        EXPECT_EQ(result.code, 0) << result.err;
        std::vector<std::string> all = shims_.runs();
        return {all.begin() + static_cast<long>(before), all.end()};
    }
    // The outer commands alone, where the inner one is not met by a shim.
    static std::vector<std::string> outer(const std::vector<std::string> &commands) {
        std::vector<std::string> kept;
        for (size_t i = 0; i < commands.size(); i++)
            if (i == 0 || commands[i - 1].find("ip netns exec ") != 0 ||
                !commands[i - 1].ends_with(commands[i]))
                kept.push_back(commands[i]);
        return kept;
    }
    // Runs the tool under strace and returns the calls that act on the outside.
    static std::string traced(std::vector<std::string> words, int code = 0) {
        words.insert(words.begin(),
                     {"strace", "-f", "-qq", "-o", "/run/trace", "-e",
                      "trace=execve,fork,vfork,clone,clone3,sendmsg,sendto,sendmmsg,unlink,unlinkat,"
                      "ftruncate,rename,mkdir,bind,openat",
                      YBNETCTL});
        const tool_result result = run_command(words);
        EXPECT_EQ(result.code, code) << result.err;
        std::string acting;
        // By its descriptor the library opens what it has, the rehearsal's copy of a segment, a second time.
        for (const std::string &line : lines_of(contents_of("/run/trace")))
            if (line.find("\"/proc/self/fd/") != std::string::npos)
                continue;
            else if (line.find("openat(") == std::string::npos || line.find("O_RDWR") != std::string::npos ||
                     line.find("O_CREAT") != std::string::npos || line.find("O_WRONLY") != std::string::npos)
                acting += line + '\n';
        return acting;
    }

    // The shims make VLANs on any kernel, which the rehearsal knows nothing of: to it the module looks installed.
    void expect_vlans() {
        stand_in_for_vlans(shims_);
        if (ybnetctl::vlans_are_possible())
            return;
        utsname system = {};
        ASSERT_EQ(uname(&system), 0);
        ASSERT_EQ(mount("tmpfs", "/lib/modules", "tmpfs", 0, "mode=0755"), 0) << strerror(errno);
        mounted_ = true;
        const std::string directory = std::string("/lib/modules/") + system.release;
        std::filesystem::create_directory(directory);
        std::ofstream(directory + "/modules.alias") << "alias rtnl-link-vlan 8021q\n";
        ASSERT_TRUE(ybnetctl::vlans_are_possible());
    }
    void TearDown() override {
        if (mounted_) {
            EXPECT_EQ(umount2("/lib/modules", MNT_DETACH), 0);
        }
        changes_test::TearDown();
    }

    tool_shims shims_;
    bool mounted_ = false;
};

} // namespace

TEST_F(dry_run, names_the_commands_that_the_real_run_runs) {
    expect_vlans();
    make_netdev("swid0_eth");
    const std::vector<std::vector<std::string>> all = {
        {"interface", "create", "vlan", "110", "--vid", "10", "--name-format", "vlan", "--netns", "blue"},
        {"interface", "create", "vlan", "111", "--vid", "11", "--parent", "swid0_eth"},
        {"interface", "create", "port-vlan", "130", "--port", "swid0_eth", "--vid", "30"},
        {"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"},
        {"interface", "edit", "130", "--vid", "31"},
        {"interface", "destroy", "140"},
        {"interface", "destroy", "130"},
        {"interface", "destroy-all"},
    };
    for (const auto &words : all) {
        const size_t before = shims_.runs().size();
        std::vector<std::string> with_json = with_dry_run(words);
        with_json.insert(with_json.begin(), "--json");
        const json said = json::parse(run_tool(with_json).out);
        EXPECT_EQ(said["error"], nullptr) << said;
        EXPECT_EQ(shims_.runs().size(), before) << "a tool was run";
        const auto commands = commands_in(said);
        EXPECT_THAT(commands, Not(IsEmpty()));
        EXPECT_EQ(outer(commands), outer(really_run(words))) << said;
    }
}

TEST_F(dry_run, runs_no_program_sends_nothing_and_opens_nothing_for_writing) {
    expect_vlans();
    make_netdev("swid0_eth");
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1"}).code, 0);
    ASSERT_EQ(run_tool({"port", "set", "7", "--name", "x"}).code, 0);
    const std::vector<std::vector<std::string>> all = {
        {"interface", "create", "vlan", "110", "--vid", "10", "--name-format", "vlan", "--netns", "blue"},
        {"interface", "create", "loopback", "141", "--name", "loop2", "--netns", "red"},
        {"interface", "create", "port", "101", "--name", "swp1"},
        {"interface", "destroy", "140"},
        {"interface", "set", "140", "--admin", "up"},
        {"address", "add", "140", "10.0.0.5/24"},
        {"port", "set", "7", "--name", "y"},
        {"port", "del", "7"},
        {"lag", "bind", "7", "--lag", "0x10000500"},
    };
    const auto interfaces = segment_bytes(interfaces_format);
    const auto ports = segment_bytes(ports_format);
    for (const auto &words : all) {
        const bool fails = words[2] == "port"; // there is no driver here
        const std::string acting = traced(with_dry_run(words), fails ? 1 : 0);
        // The one program is ybnetctl itself; a bound socket has sent nothing.
        EXPECT_THAT(acting, Not(HasSubstr("send"))) << words[1];
        EXPECT_THAT(acting, Not(HasSubstr("clone"))) << words[1];
        EXPECT_THAT(acting, Not(HasSubstr("vfork"))) << words[1];
        EXPECT_THAT(acting, Not(HasSubstr("openat"))) << words[1];
        EXPECT_THAT(acting, Not(HasSubstr("unlink"))) << words[1];
        EXPECT_EQ(acting.find("execve"), acting.rfind("execve")) << words[1];
    }
    EXPECT_EQ(segment_bytes(interfaces_format), interfaces); // to the byte, lock and user count too
    EXPECT_EQ(segment_bytes(ports_format), ports);
}

TEST_F(dry_run, names_the_records_that_the_real_run_makes) {
    const tool_result said =
        run_tool({"--dry-run", "port", "set", "0x10001", "--name", "swp1", "--log-port", "0x10100"});
    EXPECT_THAT(said.out, HasSubstr("sys_ifindex 0 -> 65537"));
    EXPECT_THAT(said.out, HasSubstr("log_port 0x0 -> 0x10100"));
    EXPECT_THAT(said.out, HasSubstr("would record: port_to_ifindex[257]: value 0 -> 65537"));
    // Bucket by bucket what the real run then does, by the tool's own comparison of two copies.
    const json steps = json_of({"--dry-run", "port", "set", "0x10001", "--log-port", "0x10100"})["steps"];
    const auto before = segment_bytes(ports_format);
    ASSERT_EQ(run_tool({"port", "set", "0x10001", "--log-port", "0x10100"}).code, 0);
    const auto after = segment_bytes(ports_format);
    size_t changed = 0;
    for (size_t i = 0; i < ports_format.lock; i += 4)
        changed += memcmp(&before[i], &after[i], 4) != 0 ? 1 : 0;
    EXPECT_EQ(changed, 5U); // key, log_port, attr_b, hash; the map
    EXPECT_EQ(steps.size(), 2U);
    EXPECT_EQ(steps[0]["details"]["fields"].size(), 4U) << steps;
}

TEST_F(dry_run, shows_requests_decoded) {
    EXPECT_THAT(
        run_tool({"--dry-run", "interface", "create", "port", "101", "--name", "swp1", "--value2", "0x10100"})
            .out,
        HasSubstr("would send: RTM_NEWLINK flags REQUEST|ACK|EXCL|CREATE IFLA_IFNAME \"swp1\" IFLA_LINKINFO "
                  "{ IFLA_INFO_KIND \"yb_netdev\" IFLA_INFO_DATA { attribute 1 0 (0x0) attribute 2 65792 "
                  "(0x10100) } }"));
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"}).code,
              0);
    const std::string number = std::to_string(ifindex_of("loop1", "red"));
    EXPECT_EQ(run_tool({"--dry-run", "interface", "set", "140", "--admin", "up"}).out,
              "would enter: red\nwould send: RTM_NEWLINK flags REQUEST|ACK ifindex " + number +
                  " (loop1) link flags UP change UP\n");
    EXPECT_THAT(run_tool({"--dry-run", "address", "add", "140", "10.0.0.5/24"}).out,
                HasSubstr("would send: RTM_NEWADDR flags REQUEST|ACK|EXCL|CREATE ifindex " + number +
                          " (loop1) prefix length 32 IFA_LOCAL 10.0.0.5 IFA_ADDRESS 10.0.0.5 IFA_BROADCAST "
                          "10.0.0.255 IFA_LABEL \"loop1\" IFA_CACHEINFO forever"));
}

TEST_F(dry_run, says_what_would_fail_for_all_that_is_known) {
    make_netdev("loop1");
    const tool_result result =
        run_tool({"--dry-run", "interface", "create", "loopback", "140", "--name", "loop1"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out,
              "would run: ip link add name loop1 type bridge   (which would fail: there is a netdev "
              "\"loop1\" already)\n");
    EXPECT_THAT(result.err, HasSubstr("interface 140"));
    const json same = json_of({"--dry-run", "interface", "create", "loopback", "140", "--name", "loop1"}, 1);
    EXPECT_EQ(same["dry_run"], true);
    EXPECT_EQ(same["status"], "YB_STATUS_ERROR");
    EXPECT_EQ(same["error"]["exit_code"], 1);
}

// The driver is not there, which the real run learns from the kernel; the lab has it.
TEST_F(dry_run, of_a_port_says_that_the_kernel_would_refuse_its_kind) {
    const std::vector<std::string> port = {"interface", "create", "port", "101", "--name", "swp1"};
    const tool_result result = run_tool(with_dry_run(port));
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, testing::EndsWith(
                                "   (which would fail: Operation not supported: the kernel has no link kind "
                                "yb_netdev, for the switch's driver is not loaded)\n"));
    EXPECT_THAT(result.err, HasSubstr("try: is the switch's kernel driver loaded? (/proc/qrn_yb/yb_core)"));
    const tool_result real = run_tool(port);
    EXPECT_EQ(real.code, 1);
    EXPECT_THAT(real.err, HasSubstr("Operation not supported"));
    EXPECT_THAT(real.err, HasSubstr("try: is the switch's kernel driver loaded?"));
}

// Whether the kernel at hand has it or not: what is foretold is what then happens.
TEST_F(dry_run, of_a_vlan_fails_where_the_kernel_has_no_802_1q) {
    make_netdev("swid0_eth");
    for (const std::vector<std::string> &vlan :
         {std::vector<std::string>{"interface", "create", "vlan", "110", "--vid", "10"},
          {"interface", "create", "vlan", "111", "--vid", "11", "--parent", "swid0_eth"},
          {"interface", "create", "port-vlan", "130", "--port", "swid0_eth", "--vid", "30"}}) {
        const tool_result result = run_tool(with_dry_run(vlan));
        const tool_result real = run_tool(vlan);
        EXPECT_EQ(result.code, real.code) << result.out << result.err << real.err;
        EXPECT_EQ(result.code, ybnetctl::vlans_are_possible() ? 0 : 1);
        if (real.code != 0) {
            EXPECT_THAT(result.out, HasSubstr("(which would fail: the kernel has no 802.1Q: "));
            EXPECT_THAT(result.err, HasSubstr("try: modprobe 8021q"));
            EXPECT_THAT(real.err, HasSubstr("try: modprobe 8021q"));
        }
    }
}

TEST_F(dry_run, of_a_set_that_would_fail_says_so_at_the_step_and_claims_nothing_done) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1", "--vrid", "3"}).code, 0);
    const tool_result vrid =
        run_tool({"--dry-run", "interface", "set", "140", "--rif", "9", "--vrid", "4", "--admin", "up"});
    EXPECT_EQ(vrid.code, 1);
    const auto steps = lines_of(vrid.out);
    ASSERT_EQ(steps.size(), 2u) << vrid.out;
    EXPECT_THAT(steps[0], testing::StartsWith("would record: interfaces[0] (sys_ifindex 140): rif "));
    EXPECT_THAT(steps[1], testing::StartsWith("would record: interface 140: vrid 4   (which would fail: "));
    EXPECT_THAT(vrid.err, HasSubstr("; would be set before: rif 9"));
    EXPECT_THAT(vrid.err, Not(HasSubstr("; set before")));

    const std::vector<std::string> oper = {"--dry-run", "interface", "set",    "140",
                                           "--admin",   "up",        "--oper", "up"};
    const tool_result driver = run_tool(oper);
    EXPECT_EQ(driver.code, 1);
    EXPECT_THAT(driver.out,
                testing::EndsWith("would open: /proc/qrn_yb/yb_core   (which would fail: No such file or "
                                  "directory)\n"));
    EXPECT_THAT(driver.err, HasSubstr("would be set before: admin up"));
    const json document = json_of(oper, 1);
    EXPECT_EQ(document["steps"].back()["kind"], "open");
    EXPECT_EQ(document["steps"].back()["fails"], "No such file or directory");
    EXPECT_EQ(document["steps"][0]["fails"], nullptr);

    remove_netdev("loop1"); // known before anything is done: no step at all
    const tool_result gone =
        run_tool({"--dry-run", "interface", "set", "140", "--rif", "9", "--admin", "up"});
    EXPECT_EQ(gone.code, 1);
    EXPECT_EQ(gone.out, "");
    EXPECT_THAT(gone.err, HasSubstr("its netdev loop1 does not exist"));
    EXPECT_EQ(stored(140).rif, YB_NET_RIF_NONE);
}

TEST_F(dry_run, refused_before_its_first_step_is_the_whole_document_all_the_same) {
    const json document = json_of({"--dry-run", "port", "del", "99"}, 3);
    EXPECT_EQ(document["dry_run"], true);
    EXPECT_EQ(document["steps"], json::array());
    EXPECT_EQ(document["status"], "YB_STATUS_ENTRY_NOT_FOUND");
    EXPECT_EQ(document["error"]["exit_code"], 3);
    EXPECT_EQ(document["error"]["thing"], "port 99");
}

TEST_F(dry_run, of_a_creation_that_would_leave_a_netdev_claims_none_made) {
    expect_vlans();
    make_netdev("swid0_eth");
    const tool_result result =
        run_tool({"--dry-run", "interface", "create", "vlan", "112", "--vid", "12", "--netns", "nowhere"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err,
                HasSubstr("the netdev swid0_eth.12 would be made by then and stay without a record"));
    EXPECT_THAT(result.err, Not(HasSubstr("was made")));
    EXPECT_THAT(result.err, Not(HasSubstr("link del")));
    EXPECT_THAT(result.err, HasSubstr("\n  try: ip netns add nowhere\n"));
}

TEST_F(dry_run, does_not_wait_for_a_lock_that_others_hold) {
    net_lib_db_interface_lock_acquire();
    const tool_result result = run_command(
        {"timeout", "20", YBNETCTL, "--dry-run", "interface", "create", "loopback", "140", "--name", "x"});
    net_lib_db_interface_lock_release();
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("would run: ip link add name x type bridge"));
}

TEST_F(dry_run, makes_no_database_where_there_is_none) {
    ASSERT_EQ(net_lib_db_interfaces_unload(0), uint32_t{YB_STATUS_SUCCESS});
    ASSERT_FALSE(segment_exists(interfaces_format));
    const tool_result result =
        run_tool({"--dry-run", "interface", "create", "loopback", "140", "--name", "x", "--rif", "7"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_THAT(result.out,
                HasSubstr("would record: interfaces[0]: sys_ifindex 0 -> 140, linux_ifindex 0 -> (the "
                          "kernel's), name \"\" -> \"x\""));
    EXPECT_FALSE(segment_exists(interfaces_format));
    ASSERT_EQ(net_lib_db_interfaces_load(0), uint32_t{YB_STATUS_SUCCESS});
}

TEST_F(dry_run, details_have_no_key_that_the_page_does_not_name) {
    expect_vlans();
    make_netdev("swid0_eth");
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"}).code,
              0);
    std::set<std::string> keys;
    const std::function<void(const json &)> collect = [&](const json &part) {
        if (!part.is_structured())
            return; // items() of a number would be itself
        for (const auto &item : part.items()) {
            if (part.is_object())
                keys.insert(item.key());
            collect(item.value());
        }
    };
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"interface", "create", "vlan", "110", "--vid", "10", "--netns", "blue"},
          {"interface", "create", "port", "101", "--name", "swp1", "--value1", "1"},
          {"interface", "set", "140", "--admin", "up", "--rif", "5"},
          {"address", "add", "140", "10.0.0.5/24"},
          {"port", "set", "7", "--name", "x"},
          {"hold"}}) {
        std::vector<std::string> with_json = with_dry_run(words);
        with_json.insert(with_json.begin(), "--json");
        const json document = json::parse(run_tool(with_json).out);
        for (const json &step : document["steps"])
            if (step["details"].is_object())
                collect(step["details"]);
    }
    EXPECT_GT(keys.size(), 15u);
    const std::string text = ybnetctl::dry_run_keys;
    const std::string details = text.substr(text.find("The details of a record"));
    for (const std::string &key : keys)
        EXPECT_TRUE(std::regex_search(details, std::regex("\\b" + key + "\\b"))) << key;
}

TEST_F(dry_run, of_a_batch_shows_what_there_is_in_a_line_that_only_looks) {
    const tool_result result = run_tool({"--dry-run", "-b", "-"}, {},
                                        "interface create loopback 140 --name loop1\ninterface show 140\n");
    EXPECT_EQ(result.code, 3);
    EXPECT_THAT(result.err, HasSubstr("standard input:2: interface 140: no record"));
}

TEST_F(dry_run, of_a_batch_remembers_what_its_earlier_lines_would_have_done) {
    const tool_result result = run_tool({"--dry-run", "-b", "-"}, {},
                                        "interface create loopback 140 --name loop1 --netns red\n"
                                        "interface set 140 --admin up --rif 5\n"
                                        "interface destroy 140\n"
                                        "interface destroy 140\n");
    EXPECT_EQ(result.code, 3);
    EXPECT_THAT(result.out,
                HasSubstr("would send: RTM_NEWLINK flags REQUEST|ACK ifindex (the kernel's) (loop1)"));
    EXPECT_THAT(result.out, HasSubstr("would run: ip netns exec red ip link del dev loop1\n"));
    EXPECT_THAT(result.err, HasSubstr("standard input:4: interface 140: no record"));
    EXPECT_FALSE(netdev_exists("loop1", "red"));
}
