// SPDX-License-Identifier: Apache-2.0
//
// Names that would mean something to a shell or to a tool, in every field that
// reaches a command: nothing is run, the step fails as the command would have,
// with one ERROR line. And names that look odd but are fine.
#include "net_lib/command.h"
#include "net_lib/loopback_netdev.h"
#include "net_lib/vlan_netdev.h"
#include "tests/unit/netdev_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char *const hostile[] = {
    "a b",    " a",  "a ",   "a\tb",  "a\nb",     "\na",   "a\rb",     "a\x01",        "a\x7f",
    "a;b",    ";",   "a;id", "$(id)", "a$b",      "`id`",  "a'b",      "a\"b",         "-x",
    "--help", "-",   "a/b",  "/",     "../up",    "a|b",   "a*",       "a?",           "[ab]",
    "{a,b}",  "a&b", "a>b",  "a<b",   "(a)",      "a\\b",  "a#b",      "#a",           "~",
    "!a",     "a%b", "a^b",  "a,b",   "\xC3\xA9", "a\xFF", "\x80name", "a\xE2\x80\xA8"};

const char *const plain[] = {"a",   "A9",  "0",   "vlan4095", "swid0_eth.5", "a-b", "a.b",
                             "a_b", "a@b", "a:b", "a+b",      "a=b",         "a--", "=a",
                             ":",   "@",   "+a+", "._-@:+=",  "..",          ".",   "_"};

class hostile_names : public netdev_test {
  protected:
    // Of one step: nothing run, this status, one ERROR line and no other.
    void expect_refused(yb_status_t expected, yb_status_t status, const std::string &name) {
        EXPECT_EQ(expected, status) << '"' << name << '"';
        EXPECT_THAT(commands(), IsEmpty()) << '"' << name << '"';
        EXPECT_THAT(logged_lines(), ElementsAre(testing::Field(&logged::severity, severity::error)))
            << '"' << name << '"';
        platform::recorded().log.clear();
        calls::reset();
    }
    // Names that this kernel gives a netdev, in hex so that they can be shown.
    static bool kernel_takes(const std::string &name) {
        return run_ip({"link", "add", "name", name, "type", "bridge"}).status == 0;
    }
};

} // namespace

TEST_F(hostile_names, are_not_plain) {
    for (const char *const name : hostile)
        EXPECT_FALSE(__yb_net_name_is_plain(name)) << name;
    EXPECT_FALSE(__yb_net_name_is_plain(""));
    for (int c = 1; c < 256; c++) {
        const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                             c == '.' || c == '_' || c == '-' || c == '@' || c == ':' || c == '+' || c == '=';
        const std::string last = std::string("a") + static_cast<char>(c);
        const std::string first = static_cast<char>(c) + std::string("a");
        EXPECT_EQ(allowed, __yb_net_name_is_plain(last.c_str())) << c;
        EXPECT_EQ(allowed && c != '-', __yb_net_name_is_plain(first.c_str())) << c;
    }
}

TEST_F(hostile_names, are_nothing_to_the_runner) {
    calls::on_system() = [](const char *) { return 0; };
    for (const char *const name : hostile) {
        EXPECT_EQ(1, __yb_net_cmd_exec_in_ns(name, "true")) << name;
        EXPECT_EQ(0, __yb_net_if_move_to_ns(name, "", "red")) << name;
        EXPECT_EQ(0, __yb_net_if_move_to_ns("dev0", name, "red")) << name;
        EXPECT_EQ(0, __yb_net_if_move_to_ns("dev0", "", name)) << name;
        EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns(name, "dev0")) << name;
        EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("red", name)) << name;
        EXPECT_EQ(0, __yb_net_if_exists_in_ns(name, "dev0")) << name;
        EXPECT_EQ(0, __yb_net_if_exists_in_ns("red", name)) << name;
    }
    EXPECT_EQ(0, __yb_net_if_move_to_ns("", "", "red"));
    EXPECT_EQ(0u, __yb_net_if_ifindex_get_in_ns("red", ""));
    EXPECT_THAT(commands(), IsEmpty());
    expect_nothing_logged(); // callers log
}

TEST_F(hostile_names, of_a_loopback) {
    for (const char *const name : hostile) {
        const yb_net_interface_params_t params = loopback_params(name);
        expect_refused(YB_STATUS_ERROR, yb_net_loopback_if_set(YB_ACCESS_CMD_CREATE, &params), name);
        expect_refused(YB_STATUS_ERROR, yb_net_loopback_if_set(YB_ACCESS_CMD_DESTROY, &params), name);
    }
}

TEST_F(hostile_names, of_a_loopbacks_namespace) {
    for (const char *const name : hostile) {
        const yb_net_interface_params_t params = loopback_params("lo1", name);
        expect_refused(YB_STATUS_ERROR, yb_net_loopback_if_set(YB_ACCESS_CMD_CREATE, &params), name);
        expect_refused(YB_STATUS_ERROR, yb_net_loopback_if_set(YB_ACCESS_CMD_DESTROY, &params), name);
    }
}

TEST_F(hostile_names, of_a_vlans_parent) {
    make_netdev("swid0_eth");
    for (const char *const name : hostile) {
        yb_net_interface_params_t params = vlan_params_on(name, 0, 5);
        expect_refused(YB_STATUS_ERROR, yb_net_vlan_if_add(&params), name);
    }
    yb_net_interface_params_t params = vlan_params_on("", 0, 5);
    expect_refused(YB_STATUS_ERROR, yb_net_vlan_if_add(&params), "");
}

TEST_F(hostile_names, of_a_port_that_no_kernel_knows) {
    for (const char *const name : hostile) {
        yb_net_interface_params_t params = port_vlan_params(name, 5);
        expect_refused(YB_STATUS_PARAM_ERROR, yb_net_vlan_if_add(&params), name); // doesn't exist
    }
}

TEST_F(hostile_names, of_a_port_that_the_kernel_has) {
    size_t taken = 0;
    for (const char *const name : hostile) {
        if (!kernel_takes(name))
            continue;
        taken++;
        yb_net_interface_params_t params = port_vlan_params(name, 5);
        expect_refused(YB_STATUS_ERROR, yb_net_vlan_if_add(&params), name);
    }
    EXPECT_GT(taken, 20u) << "most of them are names to a kernel";
}

TEST_F(hostile_names, of_a_vlans_namespace) {
    make_netdev("vlan5");
    make_netdev("swp1.5");
    for (const char *const name : hostile) {
        yb_net_interface_params_t params = vlan_params(0, 5, name);
        expect_refused(YB_STATUS_PARAM_ERROR, yb_net_vlan_if_remove(&params), name); // doesn't exist there
        params = port_vlan_params("swp1", 5, name, "swp1.5");
        expect_refused(YB_STATUS_PARAM_ERROR, yb_net_vlan_if_remove(&params), name);
    }
}

TEST_F(hostile_names, of_a_recorded_port_vlan) {
    load();
    for (const char *const name : hostile) {
        const bool exists = kernel_takes(name);
        const yb_status_t expected = exists ? YB_STATUS_ERROR : YB_STATUS_PARAM_ERROR;
        yb_net_interface_params_t params = port_vlan_params("swp1", 5, "", name);
        expect_refused(expected, yb_net_vlan_if_remove(&params), name);
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add(1, 77, &params));
        params.by_type.port_vlan.vlan_id = 6;
        expect_refused(expected, yb_net_port_vlan_if_change(1, &params), name);
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(1));
    }
}

TEST_F(hostile_names, of_a_recorded_port_vlans_namespace) {
    load();
    make_netdev("swp1.5");
    for (const char *const name : hostile) {
        yb_net_interface_params_t params = port_vlan_params("swp1", 5, name, "swp1.5");
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_add(1, 77, &params));
        params.by_type.port_vlan.vlan_id = 6;
        expect_refused(YB_STATUS_PARAM_ERROR, yb_net_port_vlan_if_change(1, &params), name);
        ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interface_remove(1));
    }
}

TEST_F(hostile_names, of_a_new_netdevs_namespace_are_refused_before_it_is_made) {
    load();
    make_netdev("swid0_eth");
    const uint32_t sequence = rth.seq;
    for (const char *const name : hostile) {
        for (yb_net_interface_params_t params :
             {vlan_params(0, 5, name), vlan_params_on("swid0_eth", 0, 6, name),
              port_vlan_params("swid0_eth", 7, name), port_params("swp1", name)}) {
            const std::string before = bytes_of(params);
            expect_refused(YB_STATUS_ERROR, yb_net_interface_set(YB_ACCESS_CMD_CREATE, 9, &params), name);
            expect_refused(YB_STATUS_ERROR, yb_net_interface_set_full(YB_ACCESS_CMD_CREATE, 9, &params, 1, 1),
                           name);
            EXPECT_EQ(before, bytes_of(params));
        }
    }
    EXPECT_EQ(sequence, rth.seq) << "no request was sent";
    for (const char *const made : {"swid0_eth.5", "swid0_eth.6", "swid0_eth.7", "swp1"})
        EXPECT_FALSE(netdev_exists(made)) << made;
    EXPECT_FALSE(is_stored(9));
}

TEST_F(hostile_names, of_a_new_netdevs_namespace_are_told_as_a_failed_move) {
    load();
    yb_net_interface_params_t params = port_params("swp1", "a;id");
    EXPECT_EQ(YB_STATUS_ERROR, yb_net_interface_set(YB_ACCESS_CMD_CREATE, 9, &params));
    EXPECT_THAT(logged_lines(),
                ElementsAre(error_line("yb_net_interface_set: Failed to move interface \"swp1\" to "
                                       "namespace \"a;id\"\n")));
}

TEST_F(hostile_names, of_a_loopback_are_told_also_when_they_fill_their_field) {
    const yb_net_interface_params_t params = loopback_params("0123456789abcd;x");
    expect_refused(YB_STATUS_ERROR, yb_net_loopback_if_set(YB_ACCESS_CMD_CREATE, &params),
                   "0123456789abcd;x");
}

TEST_F(hostile_names, plain_names_pass_unchanged_in_every_command) {
    calls::on_system() = [](const char *) { return 0; };
    for (const char *const word : plain) {
        const std::string name = word;
        EXPECT_TRUE(__yb_net_name_is_plain(word)) << name;
        calls::reset();
        calls::on_system() = [](const char *) { return 0; };
        const yb_net_interface_params_t params = loopback_params(name, name);
        EXPECT_EQ(YB_STATUS_SUCCESS, yb_net_loopback_if_set(YB_ACCESS_CMD_CREATE, &params));
        EXPECT_EQ(1, __yb_net_if_move_to_ns(word, word, word));
        EXPECT_THAT(commands(),
                    ElementsAre("ip netns exec " + name + " ip link add name " + name + " type bridge",
                                "ip netns exec " + name + " ip link set netns " + name + " " + name));
    }
    expect_nothing_logged();
}
