// SPDX-License-Identifier: Apache-2.0
//
// See netdevs.h. Rests on ip-link(8) and ip-netns(8).
#include "tests/support/netdevs.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Found before any test puts a shim in front of PATH.
std::string find_ip() {
    for (const char *const path : {"/usr/sbin/ip", "/sbin/ip", "/usr/bin/ip", "/bin/ip"}) {
        if (access(path, X_OK) == 0)
            return path;
    }
    (void)fputs("no ip(8) found\n", stderr);
    abort();
}
const std::string ip_path = find_ip();

std::vector<std::string> in_namespace(const std::string &ns, std::vector<std::string> arguments) {
    if (!ns.empty())
        arguments.insert(arguments.begin(), {"-n", ns});
    return arguments;
}

void must(const run_result &result, const std::string &what) {
    if (result.status == 0)
        return;
    (void)fprintf(stderr, "%s: %s\n", what.c_str(), result.output.c_str());
    abort();
}

std::vector<std::string> first_words(const std::string &text) {
    std::vector<std::string> words;
    std::istringstream lines(text);
    for (std::string line, word; std::getline(lines, line);) {
        if (std::istringstream(line) >> word)
            words.push_back(word.substr(0, word.find('@'))); // "NAME@PARENT"
    }
    return words;
}

} // namespace

run_result run_program(const std::vector<std::string> &words) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        abort();
    posix_spawn_file_actions_t actions;
    (void)posix_spawn_file_actions_init(&actions);
    (void)posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    (void)posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    std::vector<char *> argv;
    for (const std::string &word : words)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int failed = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    (void)posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);

    run_result result = {127, ""};
    char part[4096];
    for (ssize_t size = 0; failed == 0 && (size = read(ends[0], part, sizeof(part))) > 0;)
        result.output.append(part, static_cast<size_t>(size));
    close(ends[0]);
    int status = 0;
    if (failed == 0 && waitpid(pid, &status, 0) == pid)
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

run_result run_ip(const std::vector<std::string> &arguments) {
    std::vector<std::string> words = {ip_path};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run_program(words);
}

void make_netdev(const std::string &name, const std::string &ns) {
    must(run_ip(in_namespace(ns, {"link", "add", "name", name, "type", "veth"})), "making " + name);
}

void remove_netdev(const std::string &name, const std::string &ns) {
    must(run_ip(in_namespace(ns, {"link", "del", "dev", name})), "removing " + name);
}

void make_namespace(const std::string &name) {
    must(run_ip({"netns", "add", name}), "making namespace " + name);
}

bool netdev_exists(const std::string &name, const std::string &ns) {
    return ifindex_of(name, ns) != 0;
}

uint32_t ifindex_of(const std::string &name, const std::string &ns) {
    const run_result shown = run_ip(in_namespace(ns, {"-o", "link", "show", "dev", name}));
    return shown.status == 0 ? static_cast<uint32_t>(strtoul(shown.output.c_str(), nullptr, 10)) : 0;
}

void clear_netdevs(const std::vector<std::string> &kept) {
    const auto clear = [&kept](const std::string &ns) {
        for (const std::string &name : first_words(run_ip(in_namespace(ns, {"-br", "link"})).output)) {
            if (name != "lo" && std::find(kept.begin(), kept.end(), name) == kept.end())
                (void)run_ip(
                    in_namespace(ns, {"link", "del", "dev", name})); // some go with their parent or peer
        }
    };
    // One by one: what a deleted namespace takes along goes some time later.
    for (const std::string &ns : first_words(run_ip({"netns", "list"}).output)) {
        clear(ns);
        (void)run_ip({"netns", "delete", ns});
    }
    clear("");
}

void stand_in_for_vlans(tool_shims &shims) {
    shims.replace("vconfig", "case $1 in\n"
                             "add) exec " +
                                 ip_path +
                                 " link add name \"$2.$3\" type veth;;\n"
                                 "rem) exec " +
                                 ip_path +
                                 " link del dev \"$2\";;\n"
                                 "esac\n"
                                 "exit 9");
    shims.replace("ip", "case \"$*\" in\n"
                        "'link add link '*' type vlan '*) exec " +
                            ip_path +
                            " link add name \"$5\" type veth;;\n"
                            "'link set dev '*' type vlan id '*) exec " +
                            ip_path +
                            " link show dev \"$4\" >/dev/null;;\n"
                            "esac\n"
                            "exec " +
                            ip_path + " \"$@\"");
}

yb_net_interface_params_t vlan_params(uint8_t swid, uint16_t vlan_id, const std::string &ns,
                                      uint32_t name_format) {
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_VLAN;
    params.by_type.vlan.swid = swid;
    params.by_type.vlan.vlan_id = vlan_id;
    params.by_type.vlan.name_format = name_format;
    fill_field(params.ns_name, ns);
    return params;
}

yb_net_interface_params_t vlan_params_on(const std::string &parent, uint8_t swid, uint16_t vlan_id,
                                         const std::string &ns) {
    yb_net_interface_params_t params = vlan_params(swid, vlan_id, ns);
    params.by_type.vlan.parent_given = 1;
    fill_field(params.by_type.vlan.parent_name, parent);
    return params;
}

yb_net_interface_params_t port_vlan_params(const std::string &port_name, uint16_t vlan_id,
                                           const std::string &ns, const std::string &name) {
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_PORT_VLAN;
    params.by_type.port_vlan.vlan_id = vlan_id;
    fill_field(params.by_type.port_vlan.port_name, port_name);
    fill_field(params.ns_name, ns);
    fill_field(params.name, name);
    return params;
}

yb_net_interface_params_t port_params(const std::string &name, const std::string &ns, uint32_t value1,
                                      uint32_t value2) {
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_PORT;
    params.by_type.port.value1 = value1;
    params.by_type.port.value2 = value2;
    fill_field(params.name, name);
    fill_field(params.ns_name, ns);
    return params;
}

yb_net_interface_params_t loopback_params(const std::string &name, const std::string &ns) {
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_LOOPBACK;
    fill_field(params.name, name);
    fill_field(params.ns_name, ns);
    return params;
}
