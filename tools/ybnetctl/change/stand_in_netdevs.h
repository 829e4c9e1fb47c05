// SPDX-License-Identifier: Apache-2.0
//
// The netdevs of a rehearsal: those of the system, with what the rehearsed commands and requests would have made,
// renamed, moved and removed laid over them. A netdev that "was made" has a stand-in for the ifindex that only the
// kernel can give.
#ifndef YBNET_YBNETCTL_CHANGE_STAND_IN_NETDEVS_H
#define YBNET_YBNETCTL_CHANGE_STAND_IN_NETDEVS_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ybnetctl {

// What a command of the host would answer as far as can be told without running it: a wait status as system(3) gives
// it, and why it is not 0.
struct command_answer {
    int status = 0;
    std::string fails; // "" when it would do what it is asked, for all that is known
};

class stand_in_netdevs {
  public:
    // 0: there is none. ns "" is the namespace of the calling thread.
    [[nodiscard]] uint32_t index_of(const std::string &ns, const std::string &name) const;
    // "" when it has none.
    [[nodiscard]] std::string name_of(uint32_t index) const;
    [[nodiscard]] static bool is_stand_in(uint64_t index) {
        return index > last_stand_in && index <= first_stand_in;
    }

    // A command line of the library: ip or vconfig, behind "ip netns exec NS" or not. One that is not known succeeds.
    command_answer run(const std::string &command);

    // What a request would do to the netdevs of the calling thread's namespace. An errno, or 0.
    int make(const std::string &name);
    int remove(uint32_t index);

  private:
    static constexpr uint32_t first_stand_in = INT32_MAX;
    static constexpr uint32_t last_stand_in = INT32_MAX - 0x1000000;
    using place = std::pair<uint64_t, std::string>; // number of the namespace, name

    [[nodiscard]] static place place_of(const std::string &ns, const std::string &name);
    command_answer run_ip(const std::string &ns, const std::vector<std::string> &words);
    command_answer run_vconfig(const std::string &ns, const std::vector<std::string> &words);
    command_answer add(const std::string &ns, const std::string &name);
    command_answer add_vlan(const std::string &ns, const std::string &lower, const std::string &name);
    command_answer take_away(const std::string &ns, const std::string &name);
    command_answer put_elsewhere(const std::string &ns, const std::string &name, const std::string &new_ns,
                                 const std::string &new_name);

    std::map<place, uint32_t> changed_; // 0: gone
    uint32_t next_ = first_stand_in;
};

// Cut at blanks, as the library's commands are written: no word of them is quoted.
std::vector<std::string> words_of(const std::string &command);

} // namespace ybnetctl

#endif
