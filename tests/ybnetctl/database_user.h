// SPDX-License-Identifier: Apache-2.0
//
// Processes that use the databases while ybnetctl looks at them, through
// libybnet.so as any process of a stack does, and the records that they make.
#ifndef YBNET_TESTS_YBNETCTL_DATABASE_USER_H
#define YBNET_TESTS_YBNETCTL_DATABASE_USER_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/processes.h"
#include "ybnet/yb_net_interface.h"
#include "ybnet/yb_net_port.h"

// A child process that loads both databases, does some work and keeps them loaded until it is told to end, or is
// killed. The constructor returns when the work is done.
class database_user {
  public:
    explicit database_user(std::function<void()> work = {});

    // The same, but the work is only begun: it calls the function that it is given when the test may go on.
    explicit database_user(const std::function<void(const std::function<void()> &ready)> &work, int);

    pid_t pid() const {
        return child_->pid();
    }
    void signal(int number) const {
        child_->signal(number);
    }
    // Unloads and ends; 0 when all went well.
    int end();
    // Ends without unloading.
    void kill();

  private:
    shared_counter ready_;
    shared_counter end_;
    std::unique_ptr<child_process> child_;
};

// Interfaces 101 PORT swp1, 110 VLAN vlan10 in blue (VRF red, RIF 5, VRID 2), 130 PORT_VLAN swp1.30 and 140 LOOPBACK
// loop1 in red; ports 0x10001 swp1 and 0x10002 swp2, LAG 0x20001 with MLAG id 7, and swp1 bound to it. The netdevs are
// not made: only what is recorded matters here.
void record_all();

yb_net_interface_params_t vlan_params(const std::string &name, const std::string &ns, uint16_t vlan_id);
yb_net_port_info_t port_info(const std::string &name, uint32_t log_port);

// What jq makes of a document: a value without quotes, or the whole output with its newlines. Fails the test when the
// document is not JSON.
std::string jq(const std::string &document, const std::string &filter);

#endif
