/* SPDX-License-Identifier: Apache-2.0 */
/*
 * ybnet: keeps Linux netdevs in step with a switch's router interfaces.
 *
 * A process starts the library once, names router interfaces by their system
 * ifindex (the stack's own number, u32) and describes each in a parameter
 * block (yb_net_interface.h). The library makes the netdev, moves it into its
 * namespace and records it in shared memory, where every process of the stack
 * can translate between system ifindex and Linux ifindex.
 *
 * Conventions
 *
 *  1. Every function returns a yb_status_t (yb_status.h). A failing path logs
 *     at most one line. Outputs are written on success only.
 *  2. Statuses of the database are passed on unchanged: see net_lib_db.h.
 *  3. The library starts no thread, allocates no heap memory on request paths
 *     and leaves SIGCHLD, the umask and the environment alone.
 *  4. Start and stop once per process, with no other call running beside them.
 *     Functions that make, change or remove netdevs share one netlink socket:
 *     call them from one thread at a time. Queries may run in any thread.
 *  5. Messages go through yb_log() under "YB_NET_LIB" when the verbosity allows
 *     their level. With g_yb_log_module_func_enable set, functions also write
 *     "entered" and "left" lines at DEBUG.
 *
 * Traps
 *
 *  - Nothing is rolled back: after a failure the netdev may exist without a
 *    record. The messages say which step failed.
 *  - Commands of the host (ip(8), vconfig(8)) are run by system(3) and
 *    popen(3), found through PATH. With SIGCHLD ignored (SIG_IGN), both report
 *    failure although the command ran: leave SIGCHLD at SIG_DFL, or handle it.
 *  - vconfig must name VLAN netdevs DEVICE.ID without zero fill; Debian's does.
 *  - Inside a named namespace only netdevs under /sys/devices/virtual/net are
 *    found.
 */
#ifndef YBNET_NET_LIB_H
#define YBNET_NET_LIB_H

#include <stdint.h>

#include "ybnet/platform/yb_log.h"
#include "ybnet/yb_access_cmd.h"
#include "ybnet/yb_net_interface.h"
#include "ybnet/yb_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Start, stop, verbosity --------------------------------------------- */

/*
 * Starts both halves: yb_net_interfaces_init(), then, if that succeeded,
 * yb_net_ports_init(), with the same arguments. Returns the status of the first
 * that failed, else YB_STATUS_SUCCESS.
 */
yb_status_t yb_net_init(yb_log_cb_t logging_callback, uint32_t verbosity, uint32_t reinitialize);

/*
 * Stops both halves, interfaces first. Returns the bitwise OR of the two
 * results, so 0 or YB_STATUS_ERROR.
 */
yb_status_t yb_net_deinit(void);

/*
 * Starts the interfaces half: initialises the logging library, loads the
 * interfaces database and opens the driver device.
 *
 * logging_callback: handed to yb_log_init(), may be NULL. verbosity: this
 * module's, 0 (silent) to 5 (DEBUG); the database module keeps its own.
 * reinitialize: as for net_lib_db_interfaces_load().
 *
 * Returns the load's status, or YB_STATUS_DEVICE_ERROR when the driver device
 * could not be listed, opened or configured (ERROR): the database is loaded
 * then, and yb_net_interfaces_deinit() is due all the same.
 */
yb_status_t yb_net_interfaces_init(yb_log_cb_t logging_callback, uint32_t verbosity, uint32_t reinitialize);

/*
 * Closes the driver device, unloads the interfaces database, closes the logging
 * library. unused: ignored. Returns the unload's status; a failing close is
 * logged at ERROR only.
 */
yb_status_t yb_net_interfaces_deinit(uint32_t unused);

/* The same two for the ports half, which has no device. */
yb_status_t yb_net_ports_init(yb_log_cb_t logging_callback, uint32_t verbosity, uint32_t reinitialize);
yb_status_t yb_net_ports_deinit(uint32_t unused);

/*
 * Sets the verbosity of both modules of this process from *level
 * (YB_ACCESS_CMD_SET), or writes that of the API module to *level
 * (YB_ACCESS_CMD_GET). level must not be NULL. Returns YB_STATUS_SUCCESS, or
 * YB_STATUS_CMD_UNSUPPORTED for any other command (ERROR; *level untouched).
 */
yb_status_t yb_net_log_verbosity_level(yb_access_cmd_t cmd, uint32_t *level);

/* ---- Making and removing interfaces ------------------------------------- */

/*
 * Makes, changes or removes the netdev of a router interface and its record.
 *
 * cmd:
 *   YB_ACCESS_CMD_CREATE      make the netdev that params describes in the caller's namespace (a loopback
 *                             bridge: inside its own), move it into params->ns_name, record it
 *   YB_ACCESS_CMD_EDIT        give a PORT_VLAN interface another VLAN id
 *   YB_ACCESS_CMD_DESTROY     remove the netdev and the record; params is not looked at, may be NULL
 *   YB_ACCESS_CMD_DELETE_ALL  net_lib_interface_remove_all(); params is not looked at
 * params: the caller's; for CREATE of VLAN and PORT_VLAN, name is written back
 * after the netdev was made, also when a later step fails.
 *
 * Returns
 *   YB_STATUS_SUCCESS
 *   YB_STATUS_PARAM_NULL            params is NULL where it is needed
 *   YB_STATUS_PARAM_ERROR           bad type, swid, VLAN id, name format or name; parent missing; netdev exists
 *                                   already, or does not exist (ERROR, but for a bad type)
 *   YB_STATUS_ERROR                 a command or netlink request failed, or the netdev was not found (ERROR)
 *   YB_STATUS_CMD_UNSUPPORTED       another command
 *   YB_STATUS_ENTRY_ALREADY_EXISTS, YB_STATUS_NO_RESOURCES, YB_STATUS_ENTRY_NOT_FOUND,
 *   YB_STATUS_DB_NOT_INITIALIZED    from the database
 *
 * Names and namespaces reach a shell: only letters, digits and ._-@:+= are
 * accepted, and no leading '-'. Anything else is refused as a command that
 * failed, and nothing is run.
 * Locks: the interfaces lock, inside each database call only.
 */
yb_status_t yb_net_interface_set(yb_access_cmd_t cmd, uint32_t sys_ifindex, yb_net_interface_params_t *params);

/*
 * yb_net_interface_set() that also records a router interface id and a VRID
 * (YB_NET_RIF_NONE, YB_NET_VRID_NONE for none) on CREATE, and holds the
 * interfaces lock across the whole CREATE, child processes included, so that no
 * other process sees the interface half-made.
 */
yb_status_t yb_net_interface_set_full(yb_access_cmd_t cmd, uint32_t sys_ifindex,
                                      yb_net_interface_params_t *params, uint16_t rif, uint16_t vrid);

/*
 * Removes every VLAN and PORT_VLAN netdev and record, then every port netdev
 * and record. The first that fails ends it with that status. Loopbacks stay; a
 * PKEY record ends it with YB_STATUS_PARAM_ERROR. Logs each removal at DEBUG.
 */
yb_status_t net_lib_interface_remove_all(void);

/* Records the router interface id: net_lib_db_interface_rif_add(). */
yb_status_t yb_net_interface_rif_set(uint32_t sys_ifindex, uint16_t rif);

/* Records or clears the VRID: net_lib_db_interface_vrid_add(). */
yb_status_t yb_net_interface_vrid_set(uint32_t sys_ifindex, uint16_t vrid);

/* ---- Queries ------------------------------------------------------------ */

/*
 * Each returns YB_STATUS_PARAM_NULL, unlogged, for a NULL pointer, and
 * otherwise what its net_lib_db_interface_get* counterpart returns and logs.
 */
yb_status_t yb_net_interface_params_get(uint32_t sys_ifindex, yb_net_interface_record_t *out);
yb_status_t yb_net_interface_params_get_by_linux_ifindex_ns_vrf(uint32_t linux_ifindex, const char *ns_name,
                                                                const char *vrf_name,
                                                                yb_net_interface_record_t *out);
yb_status_t yb_net_interface_params_get_by_linux_ifindex_ns(uint32_t linux_ifindex, const char *ns_name,
                                                            yb_net_interface_record_t *out);
yb_status_t yb_net_interface_params_get_by_linux_ifindex(uint32_t linux_ifindex,
                                                         yb_net_interface_record_t *out);

/* ---- Kept for the stack ------------------------------------------------- */

/*
 * Zero-initialised and never used by this library: other libraries of the stack
 * resolve them here.
 */
extern void *router_interfaces;
extern void *hwd_rif_internal_ops;
extern void *rif_l2_attributes_print_cb;

#ifdef __cplusplus
}
#endif

#endif
