// SPDX-License-Identifier: Apache-2.0
//
// The exported queries of recorded interfaces and the setters of RIF and VRID:
// thin gates over the database.
#include "ybnet/net_lib.h"

#include "net_lib/net_lib_log.h"
#include "ybnet/net_lib_db.h"

YB_EXPORT yb_status_t yb_net_interface_rif_set(uint32_t sys_ifindex, uint16_t rif) {
    NET_LIB_TRACE_FUNCTION();
    return net_lib_db_interface_rif_add(sys_ifindex, rif);
}

YB_EXPORT yb_status_t yb_net_interface_vrid_set(uint32_t sys_ifindex, uint16_t vrid) {
    NET_LIB_TRACE_FUNCTION();
    return net_lib_db_interface_vrid_add(sys_ifindex, vrid);
}

YB_EXPORT yb_status_t yb_net_interface_params_get(uint32_t sys_ifindex, yb_net_interface_record_t *out) {
    NET_LIB_TRACE_FUNCTION();
    if (out == nullptr)
        return YB_STATUS_PARAM_NULL;
    return net_lib_db_interface_get(sys_ifindex, out);
}

YB_EXPORT yb_status_t yb_net_interface_params_get_by_linux_ifindex_ns_vrf(uint32_t linux_ifindex,
                                                                          const char *ns_name,
                                                                          const char *vrf_name,
                                                                          yb_net_interface_record_t *out) {
    NET_LIB_TRACE_FUNCTION();
    if (ns_name == nullptr || vrf_name == nullptr || out == nullptr)
        return YB_STATUS_PARAM_NULL;
    return net_lib_db_interface_get_by_linux_ifindex_ns_vrf(linux_ifindex, ns_name, vrf_name, out);
}

YB_EXPORT yb_status_t yb_net_interface_params_get_by_linux_ifindex_ns(uint32_t linux_ifindex,
                                                                      const char *ns_name,
                                                                      yb_net_interface_record_t *out) {
    NET_LIB_TRACE_FUNCTION();
    if (ns_name == nullptr || out == nullptr)
        return YB_STATUS_PARAM_NULL;
    return net_lib_db_interface_get_by_linux_ifindex_ns(linux_ifindex, ns_name, out);
}

// No trace lines of its own: the function it calls writes them.
YB_EXPORT yb_status_t yb_net_interface_params_get_by_linux_ifindex(uint32_t linux_ifindex,
                                                                   yb_net_interface_record_t *out) {
    return yb_net_interface_params_get_by_linux_ifindex_ns(linux_ifindex, "", out);
}
