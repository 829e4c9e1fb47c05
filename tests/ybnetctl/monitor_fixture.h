// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl monitor in the background, and what it has printed so far.
#ifndef YBNET_TESTS_YBNETCTL_MONITOR_FIXTURE_H
#define YBNET_TESTS_YBNETCTL_MONITOR_FIXTURE_H

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <nlohmann/json.hpp>

#include "tests/support/netdevs.h"
#include "tests/support/processes.h"
#include "tests/ybnetctl/tool.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"

using nlohmann::json;

inline bool eventually(const std::function<bool()> &condition) {
    for (int tries = 0; tries < 5000; tries++) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

// Started in the namespace run_in, and subscribed in each of the namespaces by the time the constructor is done.
class running_monitor {
  public:
    explicit running_monitor(std::vector<std::string> options,
                             const std::vector<std::string> &namespaces = {""}, bool as_json = true,
                             const std::string &run_in = "")
        : child_([options = std::move(options), as_json, run_in] {
              if (freopen("/run/monitor.out", "w", stdout) == nullptr ||
                  freopen("/run/monitor.err", "w", stderr) == nullptr)
                  return 1;
              std::vector<std::string> words = {YBNETCTL, "monitor"};
              if (as_json)
                  words.emplace_back("--json");
              words.insert(words.end(), options.begin(), options.end());
              if (!run_in.empty())
                  words.insert(words.begin(), {"nsenter", "--net=/run/netns/" + run_in});
              std::vector<char *> arguments;
              for (const std::string &word : words)
                  arguments.push_back(const_cast<char *>(word.c_str()));
              arguments.push_back(nullptr);
              (void)execvp(arguments[0], arguments.data());
              return 1;
          }) {
        for (const std::string &ns : namespaces)
            EXPECT_TRUE(eventually([&] { return listens_in(ns); })) << ns;
    }

    bool listens_in(const std::string &ns) const {
        const std::string inside = ns.empty() ? "" : "ip netns exec " + ns + ' ';
        // Columns: protocol, port, groups.
        return output_of(inside + "awk '$2 == 0 && $3 == " + std::to_string(child_.pid()) +
                         " && $4 == \"00000001\"' /proc/self/net/netlink") != "";
    }
    std::vector<json> lines() const {
        std::vector<json> all;
        const std::string text = contents_of("/run/monitor.out");
        for (const std::string &line : lines_of(text.substr(0, text.rfind('\n') + 1)))
            all.push_back(json::parse(line));
        return all;
    }
    // Waits until a line has these values.
    bool shows(const json &wanted) const {
        return eventually([&] {
            const std::vector<json> all = lines();
            return std::any_of(all.begin(), all.end(), [&](const json &line) {
                return std::all_of(wanted.items().begin(), wanted.items().end(),
                                   [&](const auto &item) { return line.at(item.key()) == item.value(); });
            });
        });
    }
    std::string errors() const {
        return contents_of("/run/monitor.err");
    }
    const child_process &process() const {
        return child_;
    }
    int end(int signal = SIGTERM) {
        child_.signal(signal);
        return child_.wait(std::chrono::seconds(20));
    }
    int wait() {
        return child_.wait(std::chrono::seconds(20));
    }

  private:
    child_process child_;
};

class monitor_tool : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(net_lib_db_interfaces_load(0), uint32_t{YB_STATUS_SUCCESS});
    }
    void TearDown() override {
        (void)net_lib_db_interfaces_unload(0);
        clear_netdevs();
    }
    static void ip(const std::string &words) {
        ASSERT_EQ(output_of("ip " + words), "") << words;
    }
    static void add(uint32_t sys_ifindex, const std::string &name, const std::string &ns = "",
                    uint32_t type = YB_L2_INTERFACE_TYPE_PORT) {
        yb_net_interface_params_t params = port_params(name, ns);
        params.type = type;
        ASSERT_EQ(net_lib_db_interface_add(sys_ifindex, ifindex_of(name, ns), &params),
                  uint32_t{YB_STATUS_SUCCESS});
    }
    // Sets a netdev up and down in turn, each one an event.
    static void toggle(const std::string &name, int times) {
        const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        struct ifreq request = {};
        memcpy(request.ifr_name, name.data(), name.size());
        for (int i = 0; i < times; i++) {
            request.ifr_flags = i % 2 == 0 ? IFF_UP : 0;
            ASSERT_EQ(ioctl(descriptor, SIOCSIFFLAGS, &request), 0);
        }
        close(descriptor);
    }
};

#endif
