// SPDX-License-Identifier: Apache-2.0
//
// Messages of making and removing netdevs, and of the driver device.
#include "tools/ybnetctl/explain/catalogue.h"

namespace ybnetctl {

namespace {

constexpr message_entry entries[] = {
    {"__yb_net_build_if_names failed, rc = %d"
     "\n"
     "yb_net_vlan_if_remove: __yb_net_build_if_names failed. rc = %d",
     {"No names could be built: the switch partition is neither 0 to 7 nor 254.",
      "The parameter block was not zeroed, or is of another type than it says.",
      "Check swid and type in the parameter block."}},
    {"RM_VLAN_NUMS_CHECK_RANGE(%d) failed, rc = %d",
     {"A VLAN id must be below 4096.", "A mistake in the caller.", ""}},
    {"YB_NET_NAME_FORMAT_CHECK_RANGE(%d) failed, rc = %d",
     {"The name format is 0 (swidN_eth.ID) or 1 (vlanID).", "The parameter block was not zeroed.", ""}},
    {"%s doesn't exist",
     {"The parent netdev is not there, in the namespace of the call: the partition's swidN_eth, or the "
      "port's.",
      "The driver is not loaded, the port's netdev is not made yet, or it was moved into another "
      "namespace.",
      "ip link show; ip -n NAMESPACE link show"}},
    {"%s already exists",
     {"A netdev of the name that the new one would get is there. A vlanN blocks every VLAN with id N, "
      "whatever its "
      "name format.",
      "An earlier failure left it: nothing is rolled back. Or somebody else made it.",
      "ybnetctl audit lists netdevs without a record, with the command that removes each."}},
    {"yb_net_vlan_if_add: Command \"%s\" failed. System_error: [%d] errno: %s"
     "\n"
     "yb_net_vlan_if_remove: Command \"%s\" failed. System_error: [%d] errno: %s",
     {"The command of the host that is quoted failed; the number is its wait status (exit code times "
      "256), -1 if "
      "its status was taken by somebody else, 1 if it was refused unrun. A change of a VLAN id reports "
      "under the name of "
      "yb_net_vlan_if_add.",
      "ip or vconfig is missing or not in PATH, the process may not change netdevs, SIGCHLD is ignored, "
      "the "
      "8021q module is not there, or a name has characters that no shell should see.",
      "Run the command by hand in the namespace of the process, as its user."}},
    {"couldn't create %s",
     {"The command succeeded, yet the netdev is not there under the name that is expected. It stays "
      "under the name "
      "it got.",
      "vconfig names VLANs differently on this host: the library needs DEVICE.ID without zero fill.",
      "vconfig set_name_type DEV_PLUS_VID_NO_PAD; ybnetctl audit for what was left."}},
    {"couldn't remove %s",
     {"The command succeeded, yet the netdev is still there; so is its record.",
      "Another process made it again, or another tool called vconfig stands in PATH.",
      "ip -d link show dev with the name, in the interface's namespace."}},
    {"yb_net_vlan_if_remove: Vlan interface %s/%s doesn't exist",
     {"Neither the vlanN name nor the recorded one is a netdev of the interface's namespace; the record "
      "stays.",
      "The netdev was removed or renamed by hand, or its namespace was deleted with it. Inside a "
      "namespace only "
      "netdevs under /sys/devices/virtual/net are found.",
      "ybnetctl audit tells where it is. When it is gone for good, make a netdev of that name and "
      "destroy the "
      "interface again."}},
    {"ERROR : The interface type is %s, only PORT_VLAN type is supported , rc = %d",
     {"Only PORT_VLAN interfaces can be edited.", "The parameter block, or the record, is of another type.",
      "Destroy the interface and create it anew."}},
    {"Modify to the same vlan %d. Do nothing.",
     {"The interface has this VLAN id already. Not a failure.", "", ""}},
    {"%s doesn't exists",
     {"The netdev whose VLAN id should change is not in the record's namespace.",
      "It was removed, renamed or moved by hand.", "ybnetctl audit tells where it is."}},
    {"%s: \"%s\" is not a valid device identifier",
     {"A port's netdev needs a name and has none.", "The parameter block's name is empty.", ""}},
    {"%s: \"%s\" name is too long, max len (%d)",
     {"The name fills its field; netdevs have at most 15 characters.",
      "The name is too long, or not terminated.", ""}},
    {"Cannot find device \"%s\"",
     {"The netdev is not where it was looked for: of a port in the namespace of the call, the only one "
      "looked "
      "at; of a loopback in the interface's. ip says the same of any netdev.",
      "It was removed or renamed by hand. Or, a port: it was moved into the interface's namespace when it "
      "was "
      "made, and can only be destroyed where it is.",
      "ybnetctl audit tells which, and where it is. Gone: ybnetctl interface destroy N --record-only. A port "
      "that was moved: ip -n NAMESPACE link set dev NAME netns 1, then destroy it."}},
    {"%s: rtnl_talk: failed to %s port netdev \"%s\".",
     {"The kernel refused to make or remove the port's netdev; its reason is on standard error "
      "(\"RTNETLINK answers\").",
      "The driver with link kind yb_netdev is not loaded (Operation not supported), or the name is taken "
      "(File "
      "exists).",
      "Look at the process's standard error; ip link show type yb_netdev."}},
    {"yb_net_loopback_if_set: Cannot create a loopback interface without a name being supplied",
     {"A loopback needs a name and has none.", "The parameter block's name is empty.", ""}},
    {"yb_net_loopback_if_set: refused to run \"%s\" in namespace \"%s\"",
     {"The name or the namespace has characters that a shell must not see; nothing was run.",
      "Names may hold letters, digits and ._-@:+= only, with no - in front.", "Choose another name."}},
    {"yb_net_interface_set: Failed to move interface \"%s\" to namespace \"%s\"",
     {"The new netdev stays in the namespace of the call; the creation goes on and fails if it is not "
      "found where "
      "it belongs.",
      "The namespace does not exist under /run/netns, or has a netdev of that name.",
      "ip netns list; ybnetctl audit for the netdev that was left."}},
    {"yb_net_interface_set: Cannot find device \"%s\"",
     {"The netdev was made but is not found in the interface's namespace, so it got no record. It stays.",
      "Moving it failed (the line before), or it is no netdev under /sys/devices/virtual/net.",
      "ybnetctl audit lists it with the command that removes it."}},
    {"del vlan/port_vlan netdev %s"
     "\n"
     "del port/pkey netdev %s",
     {"The bulk removal is about to remove this netdev. Not a failure.", "", ""}},
    {"ybd_get_dev_list error %s."
     "\n"
     "ybd_open_device error %s."
     "\n"
     "ybd_ioctl (set MULTI_PACKET_ENABLE = FALSE) error %s."
     "\n"
     "ybd_ioctl (set BLOCKING_ENABLE = TRUE) error %s."
     "\n"
     "ybd_close_device error: %s",
     {"The switch's driver device could not be listed, opened, configured or closed. The databases are "
      "not "
      "affected.",
      "The driver is not loaded, another process has the device, or the rights are missing.",
      "dmesg; lsmod; ls -l /dev for the driver's device."}},
    {"%s: cmd is NULL"
     "\n"
     "%s: file_path is NULL",
     {"The driver's command file was to be written without a command or a path.",
      "A mistake inside the library.", "Report it with the lines around it."}},
    {"%s: failed to open file %s, err [%d]: %s",
     {"The driver's command file could not be opened, so the operational state was not set.",
      "The switch's driver is not loaded, or the process is not root.", "ls -l /proc/qrn_yb/yb_core"}},
    {"%s: appending \"%s\" to %s failed, err[%d]: %s"
     "\n"
     "%s: appending \"%s\" to %s is lack, wrote %d out of %zu characters"
     "\n"
     "%s: failed to close file %s, err [%d]: %s",
     {"The driver's command file did not take the command. A failing close is the driver's own refusal, "
      "for that is "
      "when the text reaches it.",
      "The driver does not know the netdev (No such device), or refuses the command.",
      "dmesg; ip link show type yb_netdev"}},
    {"%s: writing Command \"%s\" to qrn proc failed. err: [%d]",
     {"The operational state was not set; the line before says why, the number is a status.",
      "See the line before. Where there is none, the name in the record is none that a netdev can have, and "
      "nothing was written.",
      "ls -l /proc/qrn_yb/yb_core; dmesg; ybnetctl audit"}},
};

} // namespace

std::span<const message_entry> netdev_messages() {
    return entries;
}

} // namespace ybnetctl
