// SPDX-License-Identifier: Apache-2.0
//
// See catalogue.h. The statuses, and the parts put together.
#include "tools/ybnetctl/explain/catalogue.h"

namespace ybnetctl {

namespace {

#define STATUS(name) name, #name

constexpr status_entry status_entries[] = {
    {STATUS(YB_STATUS_SUCCESS), {"The call did what it was asked.", "", ""}},
    {STATUS(YB_STATUS_ERROR),
     {"Something outside the library failed: a command of the host, a request to the kernel, a segment "
      "of another "
      "build, or the port table is full.",
      "For interfaces: ip or vconfig failed, or the kernel refused a request. For a load: the segment "
      "under "
      "/dev/shm has another layout.",
      "The log line or standard error just before it names the step: ybnetctl explain 'that line'. "
      "Nothing is "
      "rolled back: ybnetctl audit shows what is half-made."}},
    {STATUS(YB_STATUS_NO_RESOURCES),
     {"The interfaces database is full: all 4096 slots are in use.",
      "Interfaces are created and never destroyed, or their owner died before it removed them.",
      "ybnetctl audit lists records whose netdevs are gone, each with the command that removes it."}},
    {STATUS(YB_STATUS_NO_MEMORY),
     {"A shared-memory segment could not be made, sized, mapped or given its lock.",
      "/dev/shm is full, not mounted, or the process may not write there.",
      "df /dev/shm; ls -l /dev/shm/net_lib_*; ybnetctl status"}},
    {STATUS(YB_STATUS_CMD_UNSUPPORTED),
     {"The function does not handle this access command.",
      "A command of another function: edit of a loopback or a port, say.",
      "Only create, edit, destroy and delete-all apply to interfaces, and edit to PORT_VLAN only."}},
    {STATUS(YB_STATUS_CMD_INVALID),
     {"The binding of a port to a LAG takes the commands set and unset only.",
      "The caller passed another access command.", "A mistake in the caller."}},
    {STATUS(YB_STATUS_PARAM_NULL),
     {"A pointer that the function needs is NULL.", "A mistake in the caller.",
      "Find the call in the caller's log; the message in front names the argument."}},
    {STATUS(YB_STATUS_PARAM_ERROR),
     {"An argument is invalid, or does not fit what there is: a type, switch partition, VLAN id, name "
      "format or "
      "name; a parent or netdev that is missing, or one that exists already.",
      "Most often a netdev: the parent is not there yet, or a vlanN of an earlier failure is still "
      "there.",
      "ybnetctl audit shows netdevs without a record. For a port: look for its netdev in the namespace "
      "of the "
      "call."}},
    {STATUS(YB_STATUS_PARAM_EXCEEDS_RANGE),
     {"An argument is out of its range: an MLAG id above 1000 or of 0, or a protocol above 2.",
      "A mistake in the caller.", ""}},
    {STATUS(YB_STATUS_DB_NOT_INITIALIZED),
     {"This process has not loaded the database, or the segment was never initialised.",
      "A call before yb_net_init(), or after yb_net_deinit().",
      "Load first. ybnetctl status shows whether the segment is initialised and who maps it."}},
    {STATUS(YB_STATUS_ENTRY_NOT_FOUND),
     {"No record matches the key.",
      "The interface or port was never made, was removed, or is asked for in the wrong namespace or VRF.",
      "ybnetctl interface list and ybnetctl port list show what there is."}},
    {STATUS(YB_STATUS_ENTRY_ALREADY_EXISTS),
     {"A record with this system ifindex, or with this netdev, exists; or the interface has a VRID "
      "already.",
      "An interface is made again that an earlier run left, or a VRID is set twice.",
      "ybnetctl interface find shows the record; destroy it first. A VRID that is set is cleared with "
      "ybnetctl interface set N --vrid none."}},
    {STATUS(YB_STATUS_ALREADY_INITIALIZED),
     {"The process has loaded this database before; nothing was done.",
      "A second yb_net_init() without the re-initialise flag.",
      "Harmless where it is expected. Each successful start is due one stop."}},
    {STATUS(YB_STATUS_DEVICE_ERROR),
     {"The switch's driver device could not be listed, opened, configured or commanded.",
      "The driver is not loaded, or another process has the device.",
      "The database is loaded all the same, and its stop is due. Look at the kernel log and the driver's "
      "device; the log names the step (ybd_get_dev_list, ybd_open_device, ybd_ioctl)."}},
};

} // namespace

std::span<const status_entry> statuses() {
    return status_entries;
}

const std::vector<message_entry> &messages() {
    static const std::vector<message_entry> all = [] {
        std::vector<message_entry> joined;
        for (const auto part : {segment_messages(), interface_messages(), port_messages(), netdev_messages(),
                                link_messages(), request_messages(), host_messages()})
            joined.insert(joined.end(), part.begin(), part.end());
        return joined;
    }();
    return all;
}

std::vector<std::string> formats_of(const message_entry &entry) {
    std::vector<std::string> formats(1);
    for (const char *at = entry.formats; *at != '\0'; at++) {
        if (*at == '\n')
            formats.emplace_back();
        else
            formats.back() += *at;
    }
    return formats;
}

} // namespace ybnetctl
