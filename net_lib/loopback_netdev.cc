// SPDX-License-Identifier: Apache-2.0
//
// See loopback_netdev.h. Commands are ip-link(8)'s.
#include "net_lib/loopback_netdev.h"

#include <cerrno>
#include <cstring>

#include "net_lib/command.h"
#include "net_lib/net_lib_log.h"
#include "net_lib_db/text_field.h"

namespace {

constexpr size_t command_size = 50;

} // namespace

yb_status_t yb_net_loopback_if_set(yb_access_cmd_t cmd, const yb_net_interface_params_t *params) {
    NET_LIB_TRACE_FUNCTION();
    const auto name = text_of_field(params->name);
    const auto ns = text_of_field(params->ns_name);
    if (name.text[0] == '\0') {
        NET_LIB_LOG(YB_LEVEL_ERROR,
                    "yb_net_loopback_if_set: Cannot create a loopback interface without a name being "
                    "supplied\n");
        return YB_STATUS_PARAM_ERROR;
    }
    char command[command_size] = {};
    bool complete;
    switch (cmd) {
    case YB_ACCESS_CMD_CREATE:
        complete = COMMAND_FORMAT(command, "ip link add name %s type bridge", name.text);
        break;
    case YB_ACCESS_CMD_DESTROY:
        complete = COMMAND_FORMAT(command, "ip link del dev %s", name.text);
        break;
    default:
        return YB_STATUS_CMD_UNSUPPORTED;
    }
    // A failing command logs nothing here, but a refused name must be heard of.
    if (!complete || (ns.text[0] != '\0' && !__yb_net_name_is_plain(ns.text))) {
        NET_LIB_LOG(YB_LEVEL_ERROR, "yb_net_loopback_if_set: refused to run \"%s\" in namespace \"%s\"\n",
                    command, ns.text);
        return YB_STATUS_ERROR;
    }
    if (strlen(name.text) == YB_NET_IF_NAME_SIZE)
        return YB_STATUS_ERROR; // fills its field: too long for any netdev
    return __yb_net_cmd_exec_in_ns(ns.text, command) == 0 ? YB_STATUS_SUCCESS : YB_STATUS_ERROR;
}
