/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The interfaces database and the frame of both databases, as exported by
 * libybnet.so.1. Most processes need only net_lib.h; this header is for those
 * that work on the shared records directly.
 *
 * What holds for every function here
 *
 *  1. The databases live in POSIX shared memory (shm_overview(7)) and belong to
 *     no process. A process maps one by loading it and counts as its user until
 *     it unloads; the last user to unload removes it. A process that ends
 *     without unloading stays in the count, and the segment then stays until
 *     somebody removes the file under /dev/shm.
 *  2. Each segment carries one process-shared lock, taken exclusively by every
 *     access, reads included. It is not recursive: a thread that holds it (see
 *     net_lib_db_interface_lock_acquire()) may call only
 *     net_lib_db_interface_add_full() with take_lock 0, and
 *     net_lib_db_interface_lock_release().
 *  3. Functions other than load and unload may be called from any thread.
 *     Loads and unloads must not run beside any other call of the process.
 *  4. Results are copies. A caller's memory is never touched while a segment's
 *     lock is held; outputs are written on success only.
 *  5. Messages go through yb_log() under "YB_NET_LIB" at the level named here,
 *     when the net_lib_db verbosity allows it, and to the trace buffer.
 *  6. A child made by fork(2) shares its parent's mappings but is no user of
 *     its own: it must neither unload nor outlive its parent's use.
 */
#ifndef YBNET_NET_LIB_DB_H
#define YBNET_NET_LIB_DB_H

#include <stdint.h>

#include "ybnet/yb_access_cmd.h"
#include "ybnet/yb_net_interface.h"
#include "ybnet/yb_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Verbosity ---------------------------------------------------------- */

/*
 * Sets or gets the verbosity of the database module in this process: the index
 * of the highest level that is written (1 ERROR, 2 WARN, 3 NOTICE, 4 INFO,
 * 5 DEBUG; 0 silences all). Initially 3.
 *
 * cmd: YB_ACCESS_CMD_SET reads *level, YB_ACCESS_CMD_GET writes it. level must
 * not be NULL.
 * Returns YB_STATUS_SUCCESS, or YB_STATUS_CMD_UNSUPPORTED for any other
 * command (logged at ERROR; *level untouched). Takes no lock.
 */
yb_status_t net_lib_db_log_verbosity_level(yb_access_cmd_t cmd, uint32_t *level);

/* ---- Loading and unloading ---------------------------------------------- */

/*
 * Maps "/net_lib_ifc" in this process, creating and initialising it if it does
 * not exist, and registers the process as a user. Takes the segment's lock for
 * a moment; flushes the segment with msync(2).
 *
 * reinitialize: exactly 1 erases the contents, for every process; on a database
 * that this process has loaded already, any value other than 0 does.
 *
 * Returns
 *   YB_STATUS_SUCCESS              loaded (or, loaded before, erased)
 *   YB_STATUS_ALREADY_INITIALIZED  loaded before and reinitialize is 0 (WARN)
 *   YB_STATUS_ERROR                the segment has another layout, or is shorter than it should be and stays
 *                                  so while the call waits two seconds for its creator; nothing is erased
 *                                  or removed (ERROR). Stop all users and delete the file.
 *   YB_STATUS_NO_MEMORY            it could be neither opened nor created, sized, mapped or given its lock (ERROR)
 *   YB_STATUS_DB_NOT_INITIALIZED   the segment exists but was never initialised (ERROR). The process is
 *                                  registered as a user all the same: unload it, or load with reinitialize 1.
 *
 * The descriptor (shm_open(3), close-on-exec) stays open for the life of the
 * process: each load that maps the segment costs one.
 */
yb_status_t net_lib_db_interfaces_load(uint32_t reinitialize);

/* The same for the ports database, "/net_lib_port". */
yb_status_t net_lib_db_ports_load(uint32_t reinitialize);

/*
 * Unregisters this process and unmaps "/net_lib_ifc". The last user also
 * destroys the segment's lock and removes its name, and with it all records.
 * A process that has not loaded the database gets 0 and nothing happens.
 *
 * unused: ignored.
 * Returns YB_STATUS_SUCCESS, or YB_STATUS_ERROR when munmap(2) failed (ERROR);
 * the database counts as unloaded in either case.
 */
yb_status_t net_lib_db_interfaces_unload(uint32_t unused);

/* The same for the ports database. */
yb_status_t net_lib_db_ports_unload(uint32_t unused);

/* ---- The interfaces lock ------------------------------------------------ */

/*
 * Take and release the interfaces segment's lock, to make several steps one.
 * Blocks as long as any thread of any process holds it. Both do nothing when
 * the database is not loaded in this process. A holder that dies keeps the lock.
 */
void net_lib_db_interface_lock_acquire(void);
void net_lib_db_interface_lock_release(void);

/* ---- Interface records -------------------------------------------------- */

/*
 * Every function below returns YB_STATUS_DB_NOT_INITIALIZED, with an ERROR
 * line and without touching the lock, when this process has not loaded the
 * database. Searches scan the table's 4096 slots in order.
 */

/*
 * Records an interface in the first free slot and flushes the segment.
 *
 * params: read before the lock is taken. rif: YB_NET_RIF_NONE for none.
 * vrid: YB_NET_VRID_NONE for none. take_lock: 0 when the caller holds the
 * interfaces lock.
 *
 * Returns YB_STATUS_SUCCESS; YB_STATUS_ENTRY_ALREADY_EXISTS (ERROR) when a
 * record has this sys_ifindex, or this linux_ifindex and params->ns_name (and,
 * only if params->vrf_valid is exactly 1, params->vrf_name);
 * YB_STATUS_NO_RESOURCES (ERROR) when all slots are in use. The two messages
 * are logged with the lock held.
 */
yb_status_t net_lib_db_interface_add_full(uint32_t sys_ifindex, uint32_t linux_ifindex,
                                          const yb_net_interface_params_t *params, uint16_t rif,
                                          uint16_t vrid, uint32_t take_lock);

/* net_lib_db_interface_add_full() without rif and vrid, taking the lock. */
yb_status_t net_lib_db_interface_add(uint32_t sys_ifindex, uint32_t linux_ifindex,
                                     const yb_net_interface_params_t *params);

/* Frees the record. YB_STATUS_SUCCESS, or YB_STATUS_ENTRY_NOT_FOUND (ERROR). Does not flush. */
yb_status_t net_lib_db_interface_remove(uint32_t sys_ifindex);

/* Overwrites the router interface id. Statuses and flushing as for remove. */
yb_status_t net_lib_db_interface_rif_add(uint32_t sys_ifindex, uint16_t rif);

/*
 * Sets the VRID of a record that has none; YB_NET_VRID_NONE clears it at any
 * time. As for remove, and YB_STATUS_ENTRY_ALREADY_EXISTS (ERROR) when the
 * record has a VRID and vrid is not YB_NET_VRID_NONE.
 */
yb_status_t net_lib_db_interface_vrid_add(uint32_t sys_ifindex, uint16_t vrid);

/* Overwrites the VLAN id of a PORT_VLAN record, whatever the record's type is. Otherwise as rif_add. */
yb_status_t net_lib_db_interface_vlan_set(uint32_t sys_ifindex, uint16_t vlan);

/* Copies the record out. YB_STATUS_SUCCESS, or YB_STATUS_ENTRY_NOT_FOUND (INFO). */
yb_status_t net_lib_db_interface_get(uint32_t sys_ifindex, yb_net_interface_record_t *out);

/*
 * Copies the record in slot db_index out. YB_STATUS_SUCCESS, or
 * YB_STATUS_ENTRY_NOT_FOUND, unlogged, for a free slot and for 4096 and above.
 */
yb_status_t net_lib_db_interface_get_by_db_index(uint32_t db_index, yb_net_interface_record_t *out);

/*
 * Finds a record by its netdev. ns_name: "" is the default namespace and
 * matches only records stored with an empty one; there is no wildcard.
 * YB_STATUS_SUCCESS, YB_STATUS_ENTRY_NOT_FOUND (DEBUG), or YB_STATUS_PARAM_NULL
 * (ERROR) for a NULL name. The _ns form ignores VRFs; the plain form looks in
 * the default namespace.
 */
yb_status_t net_lib_db_interface_get_by_linux_ifindex_ns_vrf(uint32_t linux_ifindex, const char *ns_name,
                                                             const char *vrf_name,
                                                             yb_net_interface_record_t *out);
yb_status_t net_lib_db_interface_get_by_linux_ifindex_ns(uint32_t linux_ifindex, const char *ns_name,
                                                         yb_net_interface_record_t *out);
yb_status_t net_lib_db_interface_get_by_linux_ifindex(uint32_t linux_ifindex, yb_net_interface_record_t *out);

#ifdef __cplusplus
}
#endif

#endif
