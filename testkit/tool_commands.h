// SPDX-License-Identifier: Apache-2.0
//
// What the kit's ip and vconfig do when no test has told them otherwise: the
// commands that libybnet runs, and those with which shell tests set a scene,
// change the netdev table as the host's tools change the kernel.
#ifndef YBNET_TESTKIT_TOOL_COMMANDS_H
#define YBNET_TESTKIT_TOOL_COMMANDS_H

#include <string>
#include <vector>

namespace testkit {

// words: the tool's name and its arguments. Its output and complaints go to the standard streams; returns the
// exit status. Callers hold the directory's lock.
int tool_command(const std::vector<std::string> &words);

} // namespace testkit

#endif
