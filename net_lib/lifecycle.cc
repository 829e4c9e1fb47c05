// SPDX-License-Identifier: Apache-2.0
//
// Starting and stopping the library: its two halves, interfaces and ports.
#include "ybnet/net_lib.h"

#include "net_lib/driver_handle.h"
#include "net_lib/net_lib_log.h"
#include "ybnet/net_lib_db.h"

namespace {

// What both halves begin with.
void start_logging(yb_log_cb_t logging_callback, uint32_t verbosity) {
    (void)yb_log_init(1, 0, logging_callback); // a stack without a log still runs
    net_lib_verbosity.store(verbosity, std::memory_order_relaxed);
}

} // namespace

YB_EXPORT yb_status_t yb_net_init(yb_log_cb_t logging_callback, uint32_t verbosity, uint32_t reinitialize) {
    NET_LIB_TRACE_FUNCTION(); // "entered" under the old verbosity, "left" under the new: the halves set it
    const yb_status_t status = yb_net_interfaces_init(logging_callback, verbosity, reinitialize);
    if (status != YB_STATUS_SUCCESS)
        return status;
    return yb_net_ports_init(logging_callback, verbosity, reinitialize);
}

YB_EXPORT yb_status_t yb_net_deinit() {
    // No "left" line: logging is closed by then.
    net_lib_trace_entered(__func__, __LINE__);
    const yb_status_t interfaces_status = yb_net_interfaces_deinit(0);
    const yb_status_t ports_status = yb_net_ports_deinit(0);
    return interfaces_status | ports_status; // both always run: OR, not the first failure
}

YB_EXPORT yb_status_t yb_net_interfaces_init(yb_log_cb_t logging_callback, uint32_t verbosity,
                                             uint32_t reinitialize) {
    start_logging(logging_callback, verbosity);
    NET_LIB_TRACE_FUNCTION(); // logging works from here on
    const yb_status_t status = net_lib_db_interfaces_load(reinitialize);
    if (status != YB_STATUS_SUCCESS)
        return status;
    return __init_ybd_handle();
}

YB_EXPORT yb_status_t yb_net_interfaces_deinit(uint32_t unused) {
    net_lib_trace_entered(__func__, __LINE__);
    (void)__deinit_ybd_handle(); // has logged its failure; the database is to be unloaded all the same
    const yb_status_t status = net_lib_db_interfaces_unload(unused);
    net_lib_trace_left(__func__, __LINE__);
    (void)yb_log_close();
    return status;
}

YB_EXPORT yb_status_t yb_net_ports_init(yb_log_cb_t logging_callback, uint32_t verbosity,
                                        uint32_t reinitialize) {
    start_logging(logging_callback, verbosity);
    NET_LIB_TRACE_FUNCTION();
    return net_lib_db_ports_load(reinitialize);
}

YB_EXPORT yb_status_t yb_net_ports_deinit(uint32_t unused) {
    net_lib_trace_entered(__func__, __LINE__);
    const yb_status_t status = net_lib_db_ports_unload(unused);
    net_lib_trace_left(__func__, __LINE__);
    (void)yb_log_close();
    return status;
}
