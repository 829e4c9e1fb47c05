// SPDX-License-Identifier: Apache-2.0
//
// The ports database in the demo: one process records a switch's ports, its LAGs
// and an MLAG binding, another one reads them back.
#ifndef YBNET_TOOLS_DEMO_PORTS_DEMO_H
#define YBNET_TOOLS_DEMO_PORTS_DEMO_H

#include <string>

// Records the ports and lets "self --ports" show them. The ports database must be loaded.
void play_ports(const std::string &self);

// What `demo --ports` does: loads the ports database and prints it. Returns an exit status.
int show_ports_table();

#endif
