// SPDX-License-Identifier: Apache-2.0
//
// What is done with programs: making netdevs with ip(8), one after the other
// and many at once, by the library, by ybnetctl -b and by ip -batch; each next
// to the bare commands.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>

#include "bench/run_benchmarks.h"
#include "bench/sandboxed.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr uint32_t many = 64;

#ifndef YBNETCTL
#error "YBNETCTL is the path of the tool"
#endif

void expect(bool done, const std::string &what) {
    if (done)
        return;
    (void)fprintf(stderr, "failed: %s\n", what.c_str());
    exit(1);
}

void run(const std::string &command) {
    expect(std::system(command.c_str()) == 0, command);
}

std::string name_of(uint32_t i) {
    return "bench" + std::to_string(i);
}

// A file of one line for each netdev.
std::string batch_file(const char *path, const std::function<std::string(uint32_t)> &line) {
    std::ofstream file(path);
    for (uint32_t i = 1; i <= many; i++)
        file << line(i) << '\n';
    return path;
}

yb_net_interface_params_t loopback(uint32_t i) {
    yb_net_interface_params_t params = {};
    params.type = YB_L2_INTERFACE_TYPE_LOOPBACK;
    (void)snprintf(params.name, sizeof(params.name), "%s", name_of(i).c_str());
    return params;
}

void library_create(uint32_t i) {
    yb_net_interface_params_t params = loopback(i);
    expect(yb_net_interface_set(YB_ACCESS_CMD_CREATE, i, &params) == YB_STATUS_SUCCESS, "create");
}

void library_set(uint32_t i, uint32_t state) {
    expect(yb_net_interface_state_set(i, state) == YB_STATUS_SUCCESS, "yb_net_interface_state_set");
}

void forget_records() {
    for (uint32_t i = 1; i <= many; i++)
        (void)net_lib_db_interface_remove(i);
}

void remove_netdevs() {
    static const std::string file =
        batch_file("/run/remove", [](uint32_t i) { return "link del dev " + name_of(i); });
    run("ip -force -batch " + file + " 2>/dev/null || true");
}

// One round of what is measured, with the netdevs and records removed afterwards.
template <typename make_t> void measure_making(const std::string &name, make_t make) {
    benchmark::RegisterBenchmark(
        name.c_str(),
        [make](benchmark::State &state) {
            for (auto _ : state) {
                const auto start = clock_type::now();
                make();
                state.SetIterationTime(std::chrono::duration<double>(clock_type::now() - start).count());
                forget_records();
                remove_netdevs();
            }
        })
        ->UseManualTime()
        ->Iterations(1);
}

template <typename change_t> void measure_changing(const std::string &name, change_t change) {
    benchmark::RegisterBenchmark(
        name.c_str(),
        [change](benchmark::State &state) {
            for (uint32_t i = 1; i <= many; i++)
                library_create(i);
            for (auto _ : state) {
                const auto start = clock_type::now();
                change();
                state.SetIterationTime(std::chrono::duration<double>(clock_type::now() - start).count());
            }
            forget_records();
            remove_netdevs();
        })
        ->UseManualTime()
        ->Iterations(4);
}

void register_one() {
    measure_making("loopback create", [] { library_create(1); });
    measure_making("loopback create/floor", [] { run("ip link add name bench1 type bridge"); });
}

void register_many() {
    static const std::string tool_lines = batch_file("/run/create.ybnetctl", [](uint32_t i) {
        return "interface create loopback " + std::to_string(i) + " --name " + name_of(i);
    });
    static const std::string ip_lines = batch_file(
        "/run/create.ip", [](uint32_t i) { return "link add name " + name_of(i) + " type bridge"; });
    const std::string name = std::to_string(many) + " loopbacks create";
    measure_making(name, [] {
        for (uint32_t i = 1; i <= many; i++)
            library_create(i);
    });
    measure_making(name + "/floor", [] {
        for (uint32_t i = 1; i <= many; i++)
            run("ip link add name " + name_of(i) + " type bridge");
    });
    measure_making(name + "/ybnetctl -b", [] { run(YBNETCTL " -b " + tool_lines + " >/dev/null"); });
    measure_making(name + "/ip -batch", [] { run("ip -batch " + ip_lines); });
}

void register_states() {
    static const std::string tool_lines = batch_file("/run/up.ybnetctl", [](uint32_t i) {
        const std::string words = "interface set " + std::to_string(i) + " --admin ";
        return words + "up\n" + words + "down";
    });
    static const std::string ip_lines = batch_file("/run/up.ip", [](uint32_t i) {
        return "link set " + name_of(i) + " up\nlink set " + name_of(i) + " down";
    });
    const std::string name = std::to_string(many) + " links up and down";
    measure_changing(name, [] {
        for (uint32_t i = 1; i <= many; i++) {
            library_set(i, 1);
            library_set(i, 0);
        }
    });
    measure_changing(name + "/ybnetctl -b", [] { run(YBNETCTL " -b " + tool_lines + " >/dev/null"); });
    measure_changing(name + "/ip -batch", [] { run("ip -batch " + ip_lines); });
}

} // namespace

int main(int argc, char **argv) {
    if (!sandboxed())
        return 1;
    expect(net_lib_db_interfaces_load(0) == YB_STATUS_SUCCESS, "net_lib_db_interfaces_load");
    register_one();
    register_many();
    register_states();
    const int status = run_benchmarks(argc, argv);
    (void)net_lib_db_interfaces_unload(0);
    return status;
}
