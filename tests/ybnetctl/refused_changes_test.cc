// SPDX-License-Identifier: Apache-2.0
//
// What the changing commands refuse for the sake of what is there: a record whose netdev exists, names out of a record
// that lead elsewhere, segments that others own.
#include <sys/stat.h>

#include "tests/ybnetctl/changes_fixture.h"

using testing::HasSubstr;

namespace {

class refused_changes : public changes_test {};

} // namespace

TEST_F(refused_changes, record_alone_is_removed_only_when_its_netdev_is_gone) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"}).code,
              0);
    const std::vector<std::string> record_only = {"interface", "destroy", "140", "--record-only"};
    const tool_result there = run_tool(record_only);
    EXPECT_EQ(there.code, 1);
    EXPECT_THAT(there.err, HasSubstr("its netdev loop1 in namespace red exists, and would belong to nobody "
                                     "without its record"));
    EXPECT_THAT(there.err, HasSubstr("try: ybnetctl interface destroy 140 # both; or add --force"));
    EXPECT_EQ(run_command({"ip", "-n", "red", "link", "set", "loop1", "name", "other"}).code, 0);
    EXPECT_THAT(run_tool(record_only).err, HasSubstr("is the netdev other's, which may be its own"));
    EXPECT_TRUE(is_stored(140));
    EXPECT_EQ(run_tool({"interface", "destroy", "140", "--force"}).code, 2);

    std::vector<std::string> forced = record_only;
    forced.emplace_back("--force");
    EXPECT_EQ(run_tool(forced).code, 0);
    EXPECT_FALSE(is_stored(140));
    EXPECT_TRUE(netdev_exists("other", "red"));
}

TEST_F(refused_changes, record_of_a_namespace_that_is_gone_is_removed_alone) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"}).code,
              0);
    EXPECT_EQ(run_command({"ip", "netns", "del", "red"}).code, 0);
    const tool_result both = run_tool({"interface", "destroy", "140"});
    EXPECT_EQ(both.code, 1);
    EXPECT_THAT(both.err, HasSubstr("there is no namespace red any more, and so no netdev"));
    EXPECT_THAT(both.err, HasSubstr("try: ybnetctl interface destroy 140 --record-only"));
    EXPECT_EQ(run_tool({"interface", "destroy", "140", "--record-only"}).code, 0);
    EXPECT_FALSE(is_stored(140));
}

// Whether it is gone cannot be told then.
TEST_F(refused_changes, record_in_a_namespace_that_may_not_be_entered_needs_force) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1", "--netns", "red"}).code,
              0);
    EXPECT_EQ(run_command({"ip", "-n", "red", "link", "del", "loop1"}).code, 0);
    const tool_result result = run_command(
        {"setpriv", "--bounding-set=-sys_admin", YBNETCTL, "interface", "destroy", "140", "--record-only"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("whether its netdev is gone cannot be told: namespace red cannot be "
                                      "entered: Operation not permitted"));
    EXPECT_EQ(run_tool({"interface", "destroy", "140", "--record-only"}).code, 0);
}

TEST_F(refused_changes, record_of_the_default_namespace_needs_force_in_another_one) {
    ASSERT_EQ(run_tool({"interface", "create", "loopback", "140", "--name", "loop1"}).code, 0);
    make_netdev("loop1", "blue"); // somebody else's
    std::vector<std::string> words = {"nsenter", "--net=/run/netns/blue", YBNETCTL, "interface", "destroy",
                                      "140",     "--record-only"};
    const tool_result result = run_command(words);
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err,
                HasSubstr("whether its netdev is gone cannot be told: this is namespace blue, not "
                          "the default one"));
    EXPECT_THAT(result.err, HasSubstr("try: the same outside of namespace blue; or add --force"));
    EXPECT_TRUE(is_stored(140));
    words.emplace_back("--force");
    EXPECT_EQ(run_command(words).code, 0);
    EXPECT_FALSE(is_stored(140));
}

// "../../proc/1/ns/net" would be one, taken as a path.
TEST_F(refused_changes, namespace_name_out_of_a_record_leads_nowhere) {
    yb_net_interface_params_t params = loopback_params("lo", "../../proc/1/ns/net");
    ASSERT_EQ(net_lib_db_interface_add(140, 1, &params), uint32_t{YB_STATUS_SUCCESS});
    EXPECT_THAT(run_tool({"interface", "set", "140", "--admin", "up"}).err,
                HasSubstr("its netdev lo in namespace ../../proc/1/ns/net does not exist"));
    EXPECT_THAT(run_tool({"address", "add", "140", "10.0.0.5/24"}).err,
                HasSubstr("cannot be opened: No such file or directory"));
    EXPECT_EQ(run_tool({"interface", "destroy", "140", "--record-only"}).code, 0);
}

TEST_F(refused_changes, segment_that_may_not_be_opened_is_named_with_who_may) {
    // Root without its privilege over files, whose own file is closed to it.
    const auto unprivileged = [](std::vector<std::string> words) {
        words.insert(words.begin(), {"setpriv", "--bounding-set=-dac_override,-dac_read_search", YBNETCTL});
        return run_command(words);
    };
    ASSERT_EQ(chmod(interfaces_format.path, 0), 0);
    ASSERT_EQ(chmod(ports_format.path, 0), 0);
    for (const auto &words :
         {std::vector<std::string>{"interface", "destroy", "140"}, std::vector<std::string>{"hold"}}) {
        const tool_result result = unprivileged(words);
        EXPECT_EQ(result.code, 1);
        EXPECT_THAT(result.err,
                    HasSubstr("interfaces database: permission denied opening /dev/shm/net_lib_ifc"));
        EXPECT_THAT(result.err, HasSubstr("  try: run it as root"));
    }
    EXPECT_THAT(unprivileged({"port", "del", "7"}).err,
                HasSubstr("ports database: permission denied opening /dev/shm/net_lib_port"));
    ASSERT_EQ(chmod(ports_format.path, 0060), 0);
    ASSERT_EQ(chmod(interfaces_format.path, 0600), 0);
    EXPECT_EQ(unprivileged({"interface", "destroy", "140"}).code, 3); // none has this number
    ASSERT_EQ(chmod(ports_format.path, 0600), 0);
}
