// SPDX-License-Identifier: Apache-2.0
//
// Messages of the port database and the port API.
#include "tools/ybnetctl/explain/catalogue.h"

namespace ybnetctl {

namespace {

constexpr message_entry entries[] = {
    {"Netlib ports DB - port with sys_ifindex 0x%x cannot be setto the DB. DB is full",
     {"The port table has no bucket left for the port. Others may have moved within it; none was lost.",
      "65,536 ports are recorded.", "ybnetctl port list; remove ports that are no more."}},
    {"Netlib ports DB - cannot set hash table entry by sys_ifindex %u",
     {"The port was not recorded; the line before says why.", "The table is full.", "ybnetctl port list"}},
    {"Netlib ports DB - port with sys_ifindex 0x%x cannot be found in the DB",
     {"No port has this system ifindex (in hexadecimal here).", "The port was never set, or was removed.",
      "ybnetctl port list"}},
    {"Netlib ports DB - cannot get hash table entry by sys_ifindex %u",
     {"The port was not found; the line before says so too, in hexadecimal.",
      "The port was never set, or was removed.", "ybnetctl port list"}},
    {"Received NULL pointer.",
     {"A search in the port table has nowhere to write its answer.", "A mistake inside the library.",
      "Report it with the lines around it."}},
    {"Netlib ports DB - cannot add port with sys_ifindex==0"
     "\n"
     "Netlib ports DB - cannot remove port with sys_ifindex==0"
     "\n"
     "Netlib ports DB - cannot get port with sys_ifindex==0"
     "\n"
     "Netlib ports DB - cannot get port with sys_ifindex %u",
     {"0 is no system ifindex: it marks removed buckets.",
      "The caller has not been given the port's number yet.", ""}},
    {"Netlib ports DB - cannot add LAG port with mlag_id > %d"
     "\n"
     "Netlib ports DB - mlag_id %u is out of range (%d-%d)",
     {"MLAG ids run from 1 to 1000; 0 means none.", "A mistake in the caller.", ""}},
    {"Netlib ports DB - size parameter is NULL"
     "\n"
     "%s: size parameter is NULL",
     {"The list of ports needs a pointer to its size, in and out.", "A mistake in the caller.", ""}},
    {"Netlib ports DB - invalid protocol %d given",
     {"Ports are listed by protocol 0 (any), 1 or 2.", "A mistake in the caller.", ""}},
    {"Netlib ports DB - cannot get sys_ifindex with log_port==%d",
     {"0 is no logical port.", "The caller has no logical port yet.", ""}},
    {"Netlib ports DB - sys_ifindex is NULL"
     "\n"
     "yb_net_log_port_get: sys_ifindex is NULL"
     "\n"
     "yb_net_lag_get: lag_id is NULL"
     "\n"
     "yb_net_mlag_get: mlag_id is NULL"
     "\n"
     "yb_net_port_set: port_params is NULL"
     "\n"
     "yb_net_port_get: port_params is NULL",
     {"The function needs this pointer and it is NULL.", "A mistake in the caller.", ""}},
    {"Netlib ports DB - logical port 0x%x cannot be found in the DB",
     {"No port or LAG is recorded under this logical port.",
      "The port was never set with it, or was removed. Only the port's index within the number counts.",
      "ybnetctl port find"}},
    {"Netlib ports DB - MLAG ID %u is not bound to any LAG port"
     "\n"
     "Netlib ports DB - LAG ID 0x%x is not bound to any MLAG",
     {"Read it the other way round: the message comes when there is a binding, which the call returns. "
      "Its wording "
      "is kept because programs match it.",
      "", "Nothing. ybnetctl mlag list shows the bindings."}},
    {"Netlib ports DB - log port 0x%x is not a LAG port",
     {"A LAG's logical port has type 1 in its top four bits (0x1.......); this one has not.",
      "A member port's logical port was passed where the LAG's is needed.", "ybnetctl lag list"}},
    {"%s: error %d returned from netlib DB",
     {"The port API passes on a status of the database, which has logged its own reason just before.",
      "See that line.", "ybnetctl explain with the number tells what the status means."}},
    {"yb_net_port_set: unsupported command"
     "\n"
     "%s: received invalid command %d",
     {"Ports take the commands set and destroy, their LAG binding set and unset.", "A mistake in the caller.",
      ""}},
};

} // namespace

std::span<const message_entry> port_messages() {
    return entries;
}

} // namespace ybnetctl
