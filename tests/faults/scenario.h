// SPDX-License-Identifier: Apache-2.0
//
// Calls of the exported functions for which every call of the C library is made to fail: what is given before each,
// and what it answers. At least one for each function; several where it goes different ways.
#ifndef YBNET_TESTS_FAULTS_SCENARIO_H
#define YBNET_TESTS_FAULTS_SCENARIO_H

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace faults {

// What the process has before the case's own is forked: a database loaded, with some records in it; netdevs: the
// interfaces and a namespace and a netdev to work with.
enum class given { nothing, interfaces, ports, netdevs };

struct scenario {
    const char *function;  // the exported function
    const char *situation; // "" or which of its ways: a part of the test's name
    given before;
    // In the case's own process, before its call.
    std::function<void()> prepare;
    // The call. Returns the status (0 of a function that has none), and in *answer what it told.
    std::function<uint32_t(std::string *answer)> call;

    // What each failed call may keep open, because its header says so: how the descriptor's file begins.
    const char *may_keep = "";
    // What it may answer instead where its header says what it makes of a source that cannot be read; "": nothing.
    std::string fallback = {};
    // The Linux ifindexes in its records are new ones each time: they are not compared.
    bool makes_netdevs = false;
    // What has come of it, seen by others than the call: a part of its answer.
    std::function<std::string()> effect = {};
    // How many of its cases go on at once: where most of the time is spent sleeping, or waiting for the kernel.
    int at_once = 1;
};

void PrintTo(const scenario &scenario, std::ostream *out);

// By what they are about.
std::vector<scenario> lifecycle_scenarios();
std::vector<scenario> interface_scenarios();
std::vector<scenario> port_scenarios();
std::vector<scenario> link_scenarios();
std::vector<scenario> netdev_scenarios();

// Brings about what is given before a scenario; and takes it away.
void load_what_is_given(given what);
void unload_what_is_given(given what);

// From now on the case's commands are the host's, without the stand-ins for 802.1Q netdevs before them.
void use_plain_tools();

// Ends the case's process, loudly: what a scenario rests on is not there.
void must(bool done, const char *what);

// The bytes of a result, to be compared.
template <typename value_t> std::string bytes_of(const value_t &value) {
    return {reinterpret_cast<const char *>(&value), sizeof(value)};
}

} // namespace faults

#endif
