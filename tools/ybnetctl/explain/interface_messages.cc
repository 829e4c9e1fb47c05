// SPDX-License-Identifier: Apache-2.0
//
// Messages of the interface records, and of the port API's neighbours that only
// check their arguments.
#include "tools/ybnetctl/explain/catalogue.h"

namespace ybnetctl {

namespace {

constexpr message_entry entries[] = {
    {"Interface with system ifindex %d does not exist in the Net-lib Interfaces DB",
     {"No record has this system ifindex.", "The interface was not made yet, or was destroyed.",
      "ybnetctl interface list"}},
    {"Interface with linux ifindex %d does not exist in the Net-lib Interfaces DB",
     {"No record has a netdev with this Linux ifindex in the namespace (and VRF) that was asked for.",
      "A netdev that is not the stack's, or the wrong namespace: the numbers repeat from one namespace "
      "to the "
      "next.",
      "ybnetctl interface find shows which namespaces have records with it."}},
    {"Interface with system ifindex %d or linux_ifindex %u in namespace %s already exists in the "
     "Net-lib "
     "Interfaces DB",
     {"The interface was not recorded: its system ifindex, or its netdev, has a record. The netdev "
      "itself was "
      "made and stays.",
      "An earlier run left the record, or two owners use one number.",
      "ybnetctl interface find shows the record; ybnetctl audit shows the netdev that was left without "
      "one."}},
    {"Net-lib Interfaces DB is full, cannot add a new entry",
     {"All 4096 slots are in use. The netdev was made and stays, without a record.",
      "Interfaces are made and never destroyed.", "ybnetctl audit lists records whose netdevs are gone."}},
    {"Failed adding VRID. Interface with system ifindex %d already has a VRID (%u)",
     {"The interface has a VRID, which must be cleared before another one is set.",
      "The router set it twice, or an earlier run left it.",
      "Clear it first: ybnetctl interface set N --vrid none (255 in a call)."}},
    {"Namespace name is NULL"
     "\n"
     "VRF name is NULL",
     {"A query needs a namespace's or VRF's name and got none.", "A mistake in the caller.",
      "Pass an empty string for the default namespace."}},
    {"yb_net_resolve_l2_attribute: l2_address is NULL",
     {"The function has nowhere to write its answer.", "A mistake in the caller.", ""}},
    {"yb_net_resolve_l2_attribute: unknown packet format. id:%#x",
     {"Only packets of format 0 carry an L2 address that the library can read.",
      "The descriptor is of another packet type, or is not filled in.", "Check the packet's format first."}},
};

} // namespace

std::span<const message_entry> interface_messages() {
    return entries;
}

} // namespace ybnetctl
