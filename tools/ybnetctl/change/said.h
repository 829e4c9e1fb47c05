// SPDX-License-Identifier: Apache-2.0
//
// What is said while a call of the library lasts: its own messages, which come through its logging callback, and what
// it and the host's tools print on the standard streams.
#ifndef YBNET_YBNETCTL_CHANGE_SAID_H
#define YBNET_YBNETCTL_CHANGE_SAID_H

#include <cstdint>
#include <string>
#include <vector>

namespace ybnetctl {

// The callback for yb_net_*_init().
void keep_message(uint32_t severity, const char *module, const char *message);

// Messages up to this level (1 ERROR to 5 DEBUG, 0 none) are kept to be shown, too, and taken as lines.
void keep_for_showing(unsigned up_to_level);
std::string take_shown();

// The ERROR and WARN messages since the last call of this; when there are none, the DEBUG messages, which is where the
// library says that a command had no effect.
std::vector<std::string> take_messages();

// Catches both standard streams of this process, and so of its children, while it lives.
class caught_streams {
  public:
    caught_streams();
    ~caught_streams();
    caught_streams(const caught_streams &) = delete;
    caught_streams &operator=(const caught_streams &) = delete;

    // Gives the streams back and returns the lines that came, but for empty ones and vconfig's about itself.
    std::vector<std::string> lines();

  private:
    void give_back();

    int file_ = -1;
    int old_output_ = -1;
    int old_error_ = -1;
};

} // namespace ybnetctl

#endif
