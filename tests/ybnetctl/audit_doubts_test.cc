// SPDX-License-Identifier: Apache-2.0
//
// When ybnetctl audit cannot be certain: the records are of another time or place
// than the netdevs, or somebody died while changing them. It says so, and keeps
// commands to itself that would do harm.
#include <fcntl.h>
#include <filesystem>
#include <sys/mount.h>
#include <unistd.h>

#include "tests/support/processes.h"
#include "tests/support/segment_file.h"
#include "tests/ybnetctl/audit_fixture.h"
#include "tools/ybnetctl/change/inside_namespace.h"

using testing::HasSubstr;
using testing::Not;

namespace {

class audit_doubts : public audit_tool {
  protected:
    static tool_result run_in_blue(const std::vector<std::string> &words) {
        std::vector<std::string> all = {"nsenter", "--net=/run/netns/blue", YBNETCTL};
        all.insert(all.end(), words.begin(), words.end());
        return run_words(all);
    }
    static json audit_in_blue() {
        return json::parse(run_in_blue({"--json", "audit"}).out);
    }
};

} // namespace

TEST_F(audit_doubts, copy_is_compared_with_todays_netdevs_and_nothing_is_advised) {
    make_loopback(1, "loop1", "");
    make_loopback(2, "loop2", "");
    std::filesystem::copy_file(interfaces_format.path, "/run/old",
                               std::filesystem::copy_options::overwrite_existing);
    ip({"link", "del", "loop2"});
    make_netdev("vlan44");
    const tool_result text = run_tool({"--file", "/run/old", "audit"});
    EXPECT_EQ(text.code, 1);
    EXPECT_THAT(text.out, HasSubstr("vlan44"));
    EXPECT_THAT(text.out, Not(HasSubstr("REMOVED BY")));
    EXPECT_THAT(text.out, Not(HasSubstr("PUT RIGHT BY")));
    EXPECT_THAT(text.out, testing::EndsWith("\nNot certain: the netdevs are today's and the records the "
                                            "copy's, so whatever was made or changed after the copy is a "
                                            "finding, too. Nothing is advised.\n"));
    const json document = json::parse(run_tool({"--json", "--file", "/run/old", "audit"}).out);
    EXPECT_EQ(document.at("live"), false);
    EXPECT_EQ(document.at("summary").at("certain"), false);
    EXPECT_EQ(record_of(document, 2).at("finding"), "gone");
    EXPECT_EQ(record_of(document, 2).at("remedy"), nullptr);
    EXPECT_EQ(document.at("unrecorded").at(0).at("command"), nullptr);
}

TEST_F(audit_doubts, named_namespace_is_not_taken_for_the_default_one) {
    make_loopback(1, "loop1", "");
    make_loopback(2, "loop2", "blue");
    make_loopback(3, "loop3", "blue");
    ip({"-n", "blue", "link", "del", "loop3"});
    const json document = audit_in_blue();
    EXPECT_EQ(record_of(document, 1).at("finding"), "unseen");
    EXPECT_EQ(record_of(document, 1).at("remedy"), nullptr);
    EXPECT_EQ(record_of(document, 2).at("finding"), "ok");
    EXPECT_EQ(record_of(document, 3).at("finding"), "gone");
    EXPECT_EQ(document.at("summary").at("certain"), false);
    EXPECT_EQ(document.at("namespaces_unseen").at(0).at("namespace"), "");
    const tool_result text = run_in_blue({"audit"});
    EXPECT_EQ(text.code, 1);
    EXPECT_THAT(text.out,
                testing::StartsWith("Beware: this is namespace blue, not the default one. Records of "
                                    "the default namespace are not compared.\n"));
    EXPECT_THAT(text.out, testing::EndsWith("\nNot certain: the default namespace cannot be seen from "
                                            "namespace blue. Run it outside.\n"));
    EXPECT_THAT(text.out, Not(HasSubstr("as a user who may enter")));
}

// ip netns attach, for one.
TEST_F(audit_doubts, default_namespace_stays_the_default_one_under_a_name) {
    make_loopback(1, "loop1", "");
    close(open("/run/netns/outside", O_CREAT | O_CLOEXEC | O_WRONLY, 0600));
    ASSERT_EQ(mount("/proc/self/ns/net", "/run/netns/outside", nullptr, MS_BIND, nullptr), 0);
    const json document = audit(0);
    EXPECT_EQ(umount("/run/netns/outside"), 0);
    EXPECT_EQ(unlink("/run/netns/outside"), 0);
    EXPECT_EQ(document.at("summary").at("certain"), true);
}

// As in a container: the library in it means the same by none.
TEST_F(audit_doubts, namespace_without_a_name_stands_for_the_default_one) {
    make_loopback(1, "loop1", "");
    const json document = json::parse(run_words({"unshare", "-n", YBNETCTL, "--json", "audit"}).out);
    EXPECT_EQ(record_of(document, 1).at("finding"), "gone");
    EXPECT_EQ(document.at("summary").at("certain"), true);
}

TEST_F(audit_doubts, named_namespace_is_the_default_one_of_a_stack_that_lives_in_it) {
    ASSERT_EQ(net_lib_db_interfaces_unload(0), uint32_t{YB_STATUS_SUCCESS});
    make_netdev("pk0", "blue");
    const uint32_t ifindex = ifindex_of("pk0", "blue");
    shared_counter ready;
    shared_counter end;
    child_process stack([&] {
        const ybnetctl::inside_namespace there("blue");
        yb_net_interface_params_t params = port_params("pk0");
        params.type = YB_L2_INTERFACE_TYPE_PKEY;
        if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS ||
            net_lib_db_interface_add(1, ifindex, &params) != YB_STATUS_SUCCESS)
            return 1;
        ready.add();
        return end.wait_for(1) && net_lib_db_interfaces_unload(0) == YB_STATUS_SUCCESS ? 0 : 2;
    });
    ASSERT_TRUE(ready.wait_for(1));
    const json alone = audit_in_blue();
    EXPECT_EQ(record_of(alone, 1).at("finding"), "ok");
    EXPECT_EQ(alone.at("summary").at("certain"), true);
    ASSERT_EQ(net_lib_db_interfaces_load(0), uint32_t{YB_STATUS_SUCCESS}); // outside: now it may mean either
    EXPECT_EQ(record_of(audit_in_blue(), 1).at("finding"), "unseen");
    end.add();
    EXPECT_EQ(stack.wait(), 0);
}

// This process, whose segment is deleted under it, has a record of the netdev.
TEST_F(audit_doubts, netdev_of_a_process_on_a_deleted_segment_is_not_advised_to_be_removed) {
    make_netdev("vlan44");
    ASSERT_EQ(unlink(interfaces_format.path), 0);
    const auto expect_doubt = [](bool database) {
        const json document = audit(1);
        EXPECT_EQ(document.at("database"), database);
        EXPECT_EQ(document.at("unrecorded").at(0).at("command"), nullptr);
        EXPECT_EQ(document.at("summary").at("certain"), false);
        const std::string text = run_tool({"audit"}).out;
        EXPECT_THAT(text, Not(HasSubstr("link del")));
        EXPECT_THAT(text, HasSubstr("\nNot certain: 1 process works on a deleted segment of this name (pid " +
                                    std::to_string(getpid()) + "): restart it"));
    };
    expect_doubt(false);
    ASSERT_EQ(run_words({"sh", "-c",
                         "'" YBNETCTL "' hold >/run/hold & echo $! >/run/holder; "
                         "until [ -s /run/hold ]; do sleep 0.01; done"})
                  .code,
              0);
    expect_doubt(true);
    EXPECT_EQ(run_words({"sh", "-c",
                         "kill $(cat /run/holder); while [ -e /dev/shm/net_lib_ifc ]; do sleep 0.01; done"})
                  .code,
              0);
}

TEST_F(audit_doubts, dead_holder_of_the_lock_is_told_with_what_ends_it) {
    make_loopback(1, "loop1", "");
    child_process dies([] {
        net_lib_db_interface_lock_acquire();
        return 0;
    });
    ASSERT_EQ(dies.wait(), 0);
    EXPECT_THAT(
        run_tool({"audit"}).out,
        testing::EndsWith("\nNot certain: the thread that holds the lock is dead (ybnetctl status), so "
                          "a finding may be a change that was half done, and one may be missing. The "
                          "next change takes the lock over and repairs what was left half done.\n"));
    make_loopback(2, "loop2", ""); // such a change
    EXPECT_EQ(audit(0).at("summary").at("certain"), true);
}
