// SPDX-License-Identifier: Apache-2.0
//
// Words of the commands that the tool advises: what is printed can be pasted, whatever bytes a name has.
#ifndef YBNET_YBNETCTL_SHELL_WORD_H
#define YBNET_YBNETCTL_SHELL_WORD_H

#include <string>
#include <vector>

namespace ybnetctl {

// The text as one word of a shell's command line: quoted where it has to be.
std::string shell_word(const std::string &text);

// "ip -n blue " or "ip ": the beginning of a command about netdevs of a namespace.
std::string ip_in(const std::string &ns);

// A command line of these words.
std::string shell_line(const std::vector<std::string> &words);

} // namespace ybnetctl

#endif
