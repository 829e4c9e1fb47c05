// SPDX-License-Identifier: Apache-2.0
//
// Lines that are not the library's but of ip(8) and vconfig(8), which it runs: they stand beside its own on standard
// error, and ybnetctl gives them as the reason of a failure.
#include "tools/ybnetctl/explain/catalogue.h"

namespace ybnetctl {

namespace {

constexpr message_entry entries[] = {
    {"RTNETLINK answers: File exists",
     {"ip was to make what is there already: most often a netdev of this name.",
      "An earlier failure left it, for nothing is rolled back; or somebody else made it.",
      "ip -d link show dev with the name, in the namespace of the command; ybnetctl audit lists netdevs "
      "without "
      "a record."}},
    {"RTNETLINK answers: Operation not permitted",
     {"ip may not change netdevs.", "The process has not the capability CAP_NET_ADMIN in the namespace.",
      "Run it as root."}},
    {"RTNETLINK answers: Operation not supported"
     "\n"
     "Error: Unknown device type.",
     {"The kernel has no links of the kind that ip was to make.",
      "For a VLAN: the module 8021q is not loaded and could not be. For a port: the switch's driver is not "
      "loaded. For a loopback: the kernel has no bridges.",
      "modprobe 8021q, or bridge; lsmod; ls /proc/net/vlan"}},
    {"RTNETLINK answers: No such device",
     {"A netdev that ip was given is not in the namespace of the command, any more or yet.",
      "It was removed, renamed or moved between two steps.", "ybnetctl audit tells where it is."}},
    {"RTNETLINK answers: Invalid argument",
     {"The kernel refuses what ip asked for, without a word on why.",
      "A name or a namespace that the kernel does not take, or a netdev that may not be moved.",
      "Run the command by hand; dmesg"}},
    {"Device \"%s\" does not exist.",
     {"ip was to show a netdev that is not in the namespace of the command.",
      "It was removed, renamed or moved, or is in another namespace.", "ybnetctl audit tells where it is."}},
    {"Cannot open network namespace \"%s\": %s",
     {"ip could not enter the namespace.",
      "It was never made, or deleted (No such file or directory); or the process may not (Permission "
      "denied).",
      "ip netns list; ip netns add with the name. ybnetctl interface destroy N --record-only removes the "
      "record "
      "of an interface whose namespace is gone."}},
};

} // namespace

std::span<const message_entry> host_messages() {
    return entries;
}

} // namespace ybnetctl
