// SPDX-License-Identifier: Apache-2.0
//
// The demo's part about links: live events of the kernel in one process, while
// another one acts on the interfaces. Each of the two is a process of its own.
#ifndef YBNET_TOOLS_DEMO_EVENTS_DEMO_H
#define YBNET_TOOLS_DEMO_EVENTS_DEMO_H

#include <string>

// Makes a port and a VLAN, watches them while `SELF --act` acts, and removes them. For a process that has
// sent no request yet: the event socket needs the process id as its port id. Starts and stops the library
// itself.
void play_events(const std::string &self);

// The acting process: one step for each line on standard input, announced before it is taken. Returns its
// exit status.
int act_on_links();

#endif
