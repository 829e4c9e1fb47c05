/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The interfaces database, the ports database and the frame of both, as exported
 * by libybnet.so.1. Most processes need only net_lib.h; this header is for those
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
 *     access, reads included. It is not recursive: a thread that holds the
 *     interfaces lock (net_lib_db_interface_lock_acquire()) may call, of the
 *     functions that use it, only net_lib_db_interface_add_full() with take_lock
 *     0 and net_lib_db_interface_lock_release(). Another call is reported (an
 *     assertion with a backtrace in the log), goes on, and gives the lock up too
 *     early. The ports lock is held inside calls only.
 *     When a process dies with the lock, somebody who waits takes it over within
 *     half a second, says so (WARN), and completes or takes back the change that
 *     was left half done (WARN, one line each). A holder that is slow or stopped
 *     keeps it, in whatever PID namespace it runs. A process that gives up its
 *     privileges or its view of /proc takes locks over all the same when it has
 *     loaded before; a child that it makes afterwards leaves that to others. No
 *     thread may be cancelled (pthread_cancel(3)) or end while it holds the lock;
 *     builds of the library that do not take locks over must share one PID
 *     namespace with all others.
 *  3. Functions other than load and unload may be called from any thread.
 *     Loads and unloads must not run beside any other call of the process.
 *  4. Results are copies. A caller's memory is never touched while a segment's
 *     lock is held; outputs are written on success only. Exceptions are named
 *     at their functions.
 *  5. Messages go through yb_log() under "YB_NET_LIB" at the level named here,
 *     when the net_lib_db verbosity allows it, and to the trace buffer.
 *  6. A child made by fork(2) shares its parent's mappings and its registration:
 *     exactly one of the two unloads, and the other stops using the library
 *     before that (a parent that only exits has). The child does not hold the locks
 *     that its parent held. The same holds for _Fork(3) and clone(2) since Linux
 *     4.14, but until such a child calls the library, a parent that died with a
 *     lock looks alive from other PID namespaces; on older kernels it must not use
 *     the library. Nor may, anywhere, a child that shares its parent's memory or
 *     descriptors (vfork(2), CLONE_VM, CLONE_FILES).
 *  7. Whoever may write to a segment is trusted: records read from it are never
 *     used unchecked as an index or a length, but a forged lock blocks everybody,
 *     and a file cut short kills its users.
 */
#ifndef YBNET_NET_LIB_DB_H
#define YBNET_NET_LIB_DB_H

#include <stdint.h>

#include "ybnet/yb_access_cmd.h"
#include "ybnet/yb_net_interface.h"
#include "ybnet/yb_net_port.h"
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
 *   YB_STATUS_ERROR                the segment has another layout, or its creator died while making it;
 *                                  nothing is erased or removed (ERROR). Stop all users, unload, delete it.
 *   YB_STATUS_NO_MEMORY            it could be neither opened nor created, sized, mapped or given its lock
 *                                  (ERROR; a failed creation logs two lines)
 *   YB_STATUS_DB_NOT_INITIALIZED   the segment exists but was never initialised (ERROR). The process is
 *                                  registered as a user all the same: unload it, or load with reinitialize 1.
 *
 * After YB_STATUS_ERROR, and after YB_STATUS_NO_MEMORY for a failed mapping, the
 * process counts as one that has loaded: a second load answers
 * YB_STATUS_ALREADY_INITIALIZED or, with reinitialize, YB_STATUS_ERROR, all else
 * YB_STATUS_DB_NOT_INITIALIZED, until it unloads.
 *
 * Blocks while another process creates, loads or unloads the segment (flock(2)),
 * and up to two seconds for a creator that has not got that far.
 *
 * The file is made with mode 0666 less the umask of its creator: users whom that
 * shuts out get YB_STATUS_NO_MEMORY. The descriptor (shm_open(3), close-on-exec)
 * stays open for the life of the process: each load that finds or makes a
 * segment costs one, also when it fails after that. A second one is open while the
 * database is loaded, for taking over the lock without privileges; when there is
 * none to be had, this is said once (WARN) and the load goes on.
 */
yb_status_t net_lib_db_interfaces_load(uint32_t reinitialize);

/*
 * The same for the ports database, "/net_lib_port". Erasing leaves the maps from
 * logical ports to system ifindexes as they were, and the MLAG id of LAG index
 * 255: net_lib_db_log_port_get() still answers the old ports afterwards.
 */
yb_status_t net_lib_db_ports_load(uint32_t reinitialize);

/*
 * Unregisters this process and unmaps "/net_lib_ifc". The last user also
 * destroys the segment's lock and removes its name, and with it all records.
 * A process that has not loaded the database gets 0 and nothing happens.
 *
 * unused: ignored.
 * Returns YB_STATUS_SUCCESS, or YB_STATUS_ERROR when munmap(2) failed (ERROR);
 * the database counts as unloaded in either case. Blocks as a load does. A thread
 * that still holds the lock is reported, as in item 2 above, and gives it up.
 */
yb_status_t net_lib_db_interfaces_unload(uint32_t unused);

/* The same for the ports database. */
yb_status_t net_lib_db_ports_unload(uint32_t unused);

/* ---- The interfaces lock ------------------------------------------------ */

/*
 * Take and release the interfaces segment's lock, to make several steps one.
 * Blocks as long as any thread of any process holds it. Both do nothing when
 * the database is not loaded in this process.
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

/* ---- Port records ------------------------------------------------------- */

/*
 * Ports are kept in a hash table of 65,536 buckets under their system ifindex,
 * never 0, beside maps from logical ports and MLAG ids (yb_net_port.h has the
 * record and the bit layout). Every function below returns
 * YB_STATUS_DB_NOT_INITIALIZED, with an ERROR line and without touching the
 * lock, when this process has not loaded the database. Changes flush the
 * segment unless said otherwise, failed searches included.
 *
 * What surprises
 *
 *  - A port that was never recorded usually reads as a record of zeros with
 *    YB_STATUS_SUCCESS: the search ends on an empty bucket, and that is the
 *    answer. Removing such a port succeeds too, and binding it to a LAG leaves
 *    the binding in the empty bucket, where other unknown ports then read it.
 *    YB_STATUS_ENTRY_NOT_FOUND comes only where other ports crowd. To ask
 *    whether a port is recorded, look at a field that its owner never leaves 0.
 *  - A system ifindex whose CRC-16 is 0 is not kept like others: its bucket
 *    counts as empty. It can be read, until another port takes the bucket over
 *    without a word, is not listed, and is replaced, not merged, when set again.
 *    It harms others too: a port whose search ends on that bucket, recorded or
 *    not, reads its record, and removes or changes it, as its own. To be sure
 *    that a record read is the port's own, compare what
 *    net_lib_db_log_port_get() finds for its log_port with the system ifindex.
 *  - A removed port's bucket is seldom used again. Setting and removing over and
 *    over fills the table, until it is erased.
 *  - The maps follow the last call: a port that is given another logical port
 *    stays under the old one too, and removing it clears the slots of its
 *    recorded logical port and MLAG id, whoever set them last.
 *  - An MLAG id keeps its LAG: after a LAG went from MLAG id 9 to 0 or 10,
 *    net_lib_db_lag_get() of 9 still answers it, and removing the LAG clears the
 *    slot of its recorded id only. Members of a removed LAG keep their
 *    lag_log_port.
 *  - Erasing (net_lib_db_ports_load()) leaves the maps from logical ports to
 *    system ifindexes as they were: net_lib_db_log_port_get() still answers old
 *    ports.
 *  - LAG index 255 and port index 0 share one slot of the maps to system
 *    ifindexes.
 */

/*
 * Records a port, or merges info into its record (yb_net_port_info_t says how).
 * When info->log_port is not 0, also points the maps at it: a single port's to
 * sys_ifindex; a LAG's to sys_ifindex and info->mlag_id, 0 included, and that
 * MLAG id to the LAG.
 *
 * info: the caller's, read before the lock is taken; must not be NULL.
 *
 * Returns
 *   YB_STATUS_SUCCESS
 *   YB_STATUS_PARAM_ERROR          sys_ifindex is 0 (ERROR)
 *   YB_STATUS_PARAM_EXCEEDS_RANGE  info->log_port is a LAG and info->mlag_id above 1000 (ERROR)
 *   YB_STATUS_ERROR                the table is full (ERROR, two lines, with the lock held). The maps stay as
 *                                  they are, but ports moved: this one may be recorded all the same, and
 *                                  another one lost in its place.
 */
yb_status_t net_lib_db_port_set(uint32_t sys_ifindex, const yb_net_port_info_t *info);

/*
 * Removes a port, and clears the map slots of its recorded logical port and, of
 * a LAG, MLAG id.
 *
 * Returns YB_STATUS_SUCCESS; YB_STATUS_PARAM_ERROR (ERROR) when sys_ifindex is
 * 0; YB_STATUS_ENTRY_NOT_FOUND (ERROR, two lines, with the lock held).
 */
yb_status_t net_lib_db_port_remove(uint32_t sys_ifindex);

/*
 * Copies the record out; out must not be NULL. Statuses and messages as for
 * remove. A port that was never recorded usually reads as zeros.
 */
yb_status_t net_lib_db_port_get(uint32_t sys_ifindex, yb_net_port_info_t *out);

/*
 * Copies records out, in the table's order, which means nothing to callers.
 *
 * protocol: 1 or 2 for ports with this protocol, 0 for all. out_ports: room for
 * *size records, at least one; or NULL to count only. size: in, how many records
 * at most, ignored without an array; out, how many there were or were copied.
 *
 * A *size of 0 with an array works like 1. An array of more than one record is
 * written to with the lock held; its first and last byte are touched (not
 * changed) before, so *size must be its true size; above 65,536 counts as that.
 *
 * Returns YB_STATUS_SUCCESS; YB_STATUS_ERROR (ERROR) for a NULL size, even when
 * the database is not loaded; YB_STATUS_PARAM_EXCEEDS_RANGE (ERROR) for a
 * protocol above 2.
 */
yb_status_t net_lib_db_ports_get_all(uint32_t protocol, yb_net_port_info_t *out_ports, uint32_t *size);

/*
 * Finds the system ifindex of a logical port, single or LAG, in the maps.
 *
 * Returns YB_STATUS_SUCCESS; YB_STATUS_PARAM_ERROR (ERROR) when log_port is 0;
 * YB_STATUS_PARAM_NULL (ERROR); YB_STATUS_ENTRY_NOT_FOUND (INFO), with 0 written
 * to *out_sys_ifindex.
 */
yb_status_t net_lib_db_log_port_get(uint32_t log_port, uint32_t *out_sys_ifindex);

/*
 * Reads the LAG that an MLAG id is bound to: its logical port, 0 when unbound.
 * out_log_port must not be NULL.
 *
 * Returns YB_STATUS_SUCCESS, bound or not; YB_STATUS_PARAM_EXCEEDS_RANGE (ERROR)
 * unless mlag_id is 1 to 1000. An id that is bound is logged at NOTICE, with the
 * lock held, as "not bound": expect the line.
 */
yb_status_t net_lib_db_lag_get(uint16_t mlag_id, uint32_t *out_log_port);

/*
 * Reads the MLAG id that a LAG is bound to, 0 when unbound. out_mlag_id must not
 * be NULL.
 *
 * Returns YB_STATUS_SUCCESS, bound or not; YB_STATUS_PARAM_ERROR (ERROR) when
 * log_port is not a LAG. NOTICE as for net_lib_db_lag_get().
 */
yb_status_t net_lib_db_mlag_get(uint32_t log_port, uint16_t *out_mlag_id);

/*
 * Records that a port is a member of the LAG log_port, or of none when log_port
 * is 0. Does not flush, and looks at no map: the LAG need not be recorded.
 *
 * Returns YB_STATUS_SUCCESS; YB_STATUS_PARAM_ERROR (ERROR) when sys_ifindex is 0
 * or log_port neither 0 nor a LAG; YB_STATUS_ENTRY_NOT_FOUND (ERROR, two lines,
 * with the lock held).
 */
yb_status_t net_lib_db_port_lag_set(uint32_t sys_ifindex, uint32_t log_port);

#ifdef __cplusplus
}
#endif

#endif
