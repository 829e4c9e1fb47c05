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
 *  1. Every function returns a yb_status_t (yb_status.h), logs at most one line
 *     when it fails and writes its outputs on success only, unless it says
 *     otherwise.
 *  2. Statuses of the database are passed on unchanged: see net_lib_db.h.
 *  3. The library starts no thread, allocates no heap memory on request paths
 *     and leaves SIGCHLD, the umask and the environment alone. While a command
 *     of the host runs, system(3) ignores SIGINT and SIGQUIT, as it always does.
 *  4. Start and stop once per process, with no other call running beside them.
 *     Functions that make, change or remove netdevs, and
 *     yb_net_interface_state_set() and yb_net_virtual_net_if_alias_set(), share
 *     one netlink socket: call them from one thread at a time. Queries may run in any thread. No
 *     thread may be cancelled (pthread_cancel(3)) inside the library: it may
 *     hold a lock that other processes wait for.
 *  5. Messages go through yb_log() under "YB_NET_LIB" when the verbosity allows
 *     their level. With g_yb_log_module_func_enable set, functions also write
 *     "entered" and "left" lines at DEBUG.
 *
 * Traps
 *
 *  - Nothing is rolled back: after a failure the netdev may exist without a
 *    record. The messages say which step failed.
 *  - Commands of the host (ip(8), vconfig(8)) are run by system(3) and
 *    popen(3), found through PATH. Both report failure, although the command
 *    ran, when somebody else takes its exit status: leave SIGCHLD at SIG_DFL, or
 *    at a handler that waits for the process's own children only, never ignored
 *    (SIG_IGN) and never waitpid(-1) in a handler or another thread.
 *  - Requests to the kernel go to the network namespace in which the process was
 *    when it opened rth (yb_net_rtnl.h), also after a setns(2). Names are looked
 *    up, and commands run, in the namespace of the calling thread. Call functions
 *    that make, change or remove netdevs from the namespace of the first call.
 *  - vconfig must name VLAN netdevs DEVICE.ID without zero fill; Debian's does.
 *  - Inside a named namespace only netdevs under /sys/devices/virtual/net are
 *    found.
 *  - EDIT asks the kernel by "ip link set dev NAME type vlan id ID". Mainline
 *    Linux answers that with success and leaves the tag as it is; a switch's
 *    kernel is expected to change it. The record follows the answer.
 */
#ifndef YBNET_NET_LIB_H
#define YBNET_NET_LIB_H

#include <stdint.h>

#include "ybnet/platform/yb_log.h"
#include "ybnet/yb_access_cmd.h"
#include "ybnet/yb_ip_addr.h"
#include "ybnet/yb_net_event.h"
#include "ybnet/yb_net_interface.h"
#include "ybnet/yb_net_port.h"
#include "ybnet/yb_status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Start, stop, verbosity --------------------------------------------- */

/*
 * Starts both halves: yb_net_interfaces_init(), then, if that succeeded,
 * yb_net_ports_init(), with the same arguments. Returns the status of the first
 * that failed, else YB_STATUS_SUCCESS. What was started before a failure stays
 * started: yb_net_deinit() is due either way.
 */
yb_status_t yb_net_init(yb_log_cb_t logging_callback, uint32_t verbosity, uint32_t reinitialize);

/*
 * Stops both halves, interfaces first. Returns the bitwise OR of the two
 * results, so 0 or YB_STATUS_ERROR. Each call closes the driver handle again,
 * so one for each start.
 */
yb_status_t yb_net_deinit(void);

/*
 * Starts the interfaces half: initialises the logging library, loads the
 * interfaces database and opens the driver device.
 *
 * logging_callback: handed to yb_log_init(), may be NULL. verbosity: this
 * module's, 0 (silent) to 5 (DEBUG); the database module keeps its own.
 * reinitialize: as for net_lib_db_interfaces_load(). On a half that is started
 * already, a non-zero value opens a second driver handle; the first stays open.
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
 * params: the caller's. For CREATE of VLAN and PORT_VLAN, name is written back
 * once the netdev has its final name, also when a later step fails.
 *
 * Returns
 *   YB_STATUS_SUCCESS
 *   YB_STATUS_PARAM_NULL       params is NULL where it is needed, unlogged
 *   YB_STATUS_PARAM_ERROR      bad swid, VLAN id, name format or name; parent missing; a netdev of that name
 *                              exists already; the netdev to change or remove does not (ERROR). A bad type,
 *                              unlogged.
 *   YB_STATUS_ERROR            a command or request failed or was refused, or had no effect (ERROR; DEBUG
 *                              when it had no effect; unlogged for a loopback's command; on standard error
 *                              when rth could not be opened). A netdev that could not be moved logs one line,
 *                              and a second when it is then not found.
 *   YB_STATUS_CMD_UNSUPPORTED  another command, unlogged
 *   YB_STATUS_ENTRY_ALREADY_EXISTS, YB_STATUS_NO_RESOURCES, YB_STATUS_ENTRY_NOT_FOUND,
 *   YB_STATUS_DB_NOT_INITIALIZED  from the database
 *
 * Names that reach a shell may hold letters, digits and ._-@:+= only, and no
 * leading '-'; a namespace too, unless it is empty. With any other, nothing is
 * run, and the call ends as if the command had failed or the netdev were not
 * there.
 *
 * DESTROY of a VLAN takes the netdev "vlan%d" of its namespace if there is one,
 * whoever made it, and only then its recorded name. DESTROY of a port finds its
 * netdev in the namespace of the call only: a port that was moved elsewhere ends
 * with YB_STATUS_PARAM_ERROR, until it is moved back.
 *
 * Locks: the interfaces lock, inside each database call only.
 */
yb_status_t yb_net_interface_set(yb_access_cmd_t cmd, uint32_t sys_ifindex,
                                 yb_net_interface_params_t *params);

/*
 * yb_net_interface_set() that also records a router interface id and a VRID
 * (YB_NET_RIF_NONE, YB_NET_VRID_NONE for none) on CREATE, and holds the
 * interfaces lock across the whole CREATE, child processes included, so that no
 * other process sees the interface half-made. Messages of a CREATE are logged
 * with the lock held: a logging callback must not call into the library.
 */
yb_status_t yb_net_interface_set_full(yb_access_cmd_t cmd, uint32_t sys_ifindex,
                                      yb_net_interface_params_t *params, uint16_t rif, uint16_t vrid);

/*
 * Removes every VLAN and PORT_VLAN netdev and record, then every port netdev
 * and record. The first that fails ends it: with YB_STATUS_ERROR when a command
 * or request failed, or with YB_STATUS_PARAM_ERROR when its netdev was not found
 * (a port's only in the namespace of the call), as for DESTROY. Loopbacks stay; a
 * PKEY record ends it with YB_STATUS_PARAM_ERROR. Logs each removal at DEBUG.
 * YB_STATUS_DB_NOT_INITIALIZED (ERROR) when the database is not loaded. Locks:
 * the interfaces lock, inside each database call only.
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

/* ---- Ports -------------------------------------------------------------- */

/*
 * The switch's ports as the stack's processes record and find them. The ports
 * half must have been started (yb_net_ports_init()), else each returns
 * YB_STATUS_DB_NOT_INITIALIZED (ERROR). Statuses, messages and outputs not named
 * here are those of the net_lib_db_* function that each stands for (as the 0 that
 * yb_net_log_port_get() writes with YB_STATUS_ENTRY_NOT_FOUND); net_lib_db.h says
 * when they come, and what surprises: above all that a port which was never
 * recorded usually reads as a record of zeros with YB_STATUS_SUCCESS.
 *
 * Locks: the ports segment's, inside each call. Any thread may call them.
 */

/*
 * Records, changes or removes a port.
 *
 * cmd:
 *   YB_ACCESS_CMD_SET      net_lib_db_port_set(); YB_STATUS_PARAM_NULL for a NULL port_params (ERROR)
 *   YB_ACCESS_CMD_DESTROY  net_lib_db_port_remove(); port_params is not looked at, may be NULL
 *   any other              YB_STATUS_CMD_UNSUPPORTED (ERROR)
 */
yb_status_t yb_net_port_set(yb_access_cmd_t cmd, uint32_t sys_ifindex, const yb_net_port_info_t *port_params);

/* Copies the record out: net_lib_db_port_get(). YB_STATUS_PARAM_NULL for a NULL pointer (ERROR). */
yb_status_t yb_net_port_get(uint32_t sys_ifindex, yb_net_port_info_t *port_params);

/*
 * Lists ports: net_lib_db_ports_get_all(). ports: room for *size records, and
 * for one even when *size is 0; or NULL to count only. YB_STATUS_ERROR for a
 * NULL size (ERROR). A failure of the database is logged once more here, at
 * ERROR.
 */
yb_status_t yb_net_ports_get_all(uint32_t protocol, yb_net_port_info_t *ports, uint32_t *size);

/*
 * Binds a port to a LAG (YB_ACCESS_CMD_SET) or unbinds it (YB_ACCESS_CMD_UNSET,
 * log_port is not looked at): net_lib_db_port_lag_set(). YB_STATUS_CMD_INVALID
 * for any other command (ERROR). A failure of the database is logged once more
 * here, at ERROR.
 */
yb_status_t yb_net_port_lag_set(yb_access_cmd_t cmd, uint32_t sys_ifindex, uint32_t log_port);

/* The system ifindex of a logical port: net_lib_db_log_port_get(). YB_STATUS_PARAM_NULL (ERROR). */
yb_status_t yb_net_log_port_get(uint32_t log_port, uint32_t *sys_ifindex);

/*
 * The logical port of the LAG that an MLAG id is bound to, 0 for none:
 * net_lib_db_lag_get(). mlag_id: only its low 16 bits count, so 65,537 asks for
 * 1. YB_STATUS_PARAM_NULL (ERROR).
 */
yb_status_t yb_net_lag_get(uint32_t mlag_id, uint32_t *lag_id);

/* The MLAG id that a LAG is bound to, 0 for none: net_lib_db_mlag_get(). YB_STATUS_PARAM_NULL (ERROR). */
yb_status_t yb_net_mlag_get(uint32_t log_port, uint16_t *mlag_id);

/*
 * Reads the L2 address out of a received packet's descriptor; of it only the
 * bytes that yb_net_packet_descriptor_t covers. Needs no database, takes no lock.
 *
 * Returns YB_STATUS_SUCCESS; YB_STATUS_PARAM_NULL for a NULL l2_address (ERROR);
 * YB_STATUS_ERROR for a packet format other than 0 (ERROR), with *l2_address
 * untouched.
 */
yb_status_t yb_net_resolve_l2_attribute(yb_net_l2_address_t *l2_address,
                                        yb_net_packet_descriptor_t descriptor);

/* ---- Link events -------------------------------------------------------- */

/*
 * Kernel messages about netdevs that go up, go down, change or disappear,
 * translated to system ifindexes (netlink(7), rtnetlink(7)). The caller owns the
 * event socket (yb_net_event.h) and runs the loop:
 *
 *   yb_net_sk_t sk = {0};
 *   yb_net_register_net_if_event_group(YB_ACCESS_CMD_CREATE, YB_NET_IF_EVENT_GROUP_LINK, &sk);
 *   yb_net_set_buffer_size(&sk, 4 << 20, 4096);        if many links may change at once
 *   yb_net_get_fd(&sk, &fd);
 *   while poll(2) finds fd readable: yb_net_if_event_receive(&sk, &event)
 *   yb_net_register_net_if_event_group(YB_ACCESS_CMD_DESTROY, YB_NET_IF_EVENT_GROUP_LINK, &sk);
 *   close(fd);
 *
 * Events that were lost. A caller that reads too slowly loses events: with the
 * socket's receive buffer full, the kernel drops what comes until the caller has
 * read all that is queued. It marks the socket: poll(2) reports POLLERR beside
 * POLLIN, and one yb_net_if_event_receive() returns YB_STATUS_ERROR; the next ones
 * bring what had been queued before the loss. So take every YB_STATUS_ERROR on a
 * readable descriptor as a loss: receive until the descriptor is no longer
 * readable, then read the state of each interface that matters anew
 * (yb_net_interface_state_get()), for the events missed are gone and those queued
 * are old. /proc/net/netlink counts each socket's losses in its column Drops. A
 * larger buffer makes losses rarer, never impossible.
 *
 * Traps
 *
 *  - The socket takes the process id as its netlink port id, which one socket of
 *    a network namespace can have: register before the process sends its first
 *    request (rth usually takes the id otherwise), and one event socket at a time.
 *    yb_net_interface_state_get() in another thread may hold the id for a moment.
 *    Port ids are not kept apart by PID namespace: two processes with the same id
 *    in different PID namespaces collide when they share a network namespace.
 *  - Events are those of the network namespace in which the socket was made.
 *    Only records of the default namespace "" are found; a link of another
 *    namespace that has the same Linux ifindex is not told apart from them.
 *  - YB_NET_IF_EVENT_LINK_UP means administratively up, carrier or not, except
 *    for partition keys. The kernel announces a carrier that came or went without
 *    marking it as changed: that is YB_NET_IF_EVENT_LINK_CHANGE.
 *  - YB_NET_IF_EVENT_LINK_DELETED also comes for a netdev that leaves a bridge.
 *    yb_net_interface_state_get() tells which: it still finds such a netdev.
 *
 * Threads: one at a time per event socket. Locks: the interfaces lock, for a
 * moment inside yb_net_if_event_receive().
 */

/*
 * Subscribes a socket to a group of kernel messages, or ends that.
 *
 * cmd:
 *   YB_ACCESS_CMD_CREATE   makes a raw netlink socket (close-on-exec, blocking) in *in_net_sk; what that held
 *                          before is forgotten. group: YB_NET_IF_EVENT_GROUP_LINK, the only one.
 *   YB_ACCESS_CMD_DESTROY  marks *in_net_sk as not registered; group is not looked at. The descriptor stays
 *                          open, in fd: closing it is the caller's, and ends the subscription.
 *
 * Returns
 *   YB_STATUS_SUCCESS
 *   YB_STATUS_PARAM_NULL       in_net_sk is NULL
 *   YB_STATUS_PARAM_ERROR      another group; DESTROY of a socket that is not YB_NET_SK_TYPE_RAW
 *   YB_STATUS_ERROR            socket(2) or bind(2) failed (ERROR). The type is YB_NET_SK_TYPE_RAW all the
 *                              same, and after a failed bind(2) fd is open and to be closed. The message
 *                              suspects a lack of rights; a port id in use (see Traps) is likelier.
 *   YB_STATUS_CMD_UNSUPPORTED  another command
 *
 * Does not block.
 */
yb_status_t yb_net_register_net_if_event_group(yb_access_cmd_t cmd, uint32_t group, yb_net_sk_t *in_net_sk);

/*
 * Receives one datagram (recv(2)) and translates its first message; the kernel
 * sends one link message in each. Blocks until one comes, unless the caller has
 * made the descriptor non-blocking.
 *
 * received_event: the caller's, filled in with YB_STATUS_SUCCESS. event_type
 * YB_NET_IF_EVENT_NONE is a message of another kind and leaves sys_ifindex as it
 * was. sys_ifindex 0 is a link without a record (DEBUG). For a partition key's
 * record, up and change become up or down by the carrier in sysfs.
 *
 * Returns
 *   YB_STATUS_SUCCESS
 *   YB_STATUS_PARAM_NULL          a pointer is NULL (ERROR)
 *   YB_STATUS_PARAM_ERROR         the socket is not YB_NET_SK_TYPE_RAW; libnl sockets are not received from
 *   YB_STATUS_ERROR               nothing could be received: events were lost, there is nothing to read on a
 *                                 non-blocking descriptor, a signal came; or what came is no netlink message
 *                                 (ERROR, "netlink message is not truncated" or "buffer is empty")
 *   YB_STATUS_DB_NOT_INITIALIZED  this process has not loaded the interfaces database (ERROR). The event was
 *                                 consumed; event_type is filled in, sys_ifindex is 0.
 */
yb_status_t yb_net_if_event_receive(yb_net_sk_t *in_net_sk, yb_net_if_event_t *received_event);

/*
 * Writes the socket's descriptor, raw or libnl's, to *out_fd; it stays the
 * socket's. Returns YB_STATUS_SUCCESS; YB_STATUS_PARAM_NULL for a NULL pointer,
 * sk of a libnl socket included (ERROR); YB_STATUS_PARAM_ERROR for a socket that
 * holds nothing.
 */
yb_status_t yb_net_get_fd(yb_net_sk_t *in_net_sk, int32_t *out_fd);

/*
 * Sets the kernel's buffers of the socket, in bytes, send side first: SO_SNDBUF
 * and SO_RCVBUF of socket(7), or nl_socket_set_buffer_size() on a libnl socket
 * (for which 0 means 32 KiB). The kernel takes at most net.core.wmem_max and
 * net.core.rmem_max, and doubles that for its own bookkeeping.
 *
 * Returns YB_STATUS_SUCCESS; YB_STATUS_PARAM_NULL for a NULL pointer, sk of a
 * libnl socket included (ERROR, in the name of yb_net_get_fd()); YB_STATUS_ERROR
 * when a size could not be set (ERROR): a failed send size leaves the receive size
 * untried, a failed receive size leaves the send size set;
 * YB_STATUS_PARAM_ERROR for a socket that holds nothing.
 */
yb_status_t yb_net_set_buffer_size(yb_net_sk_t *in_net_sk, uint32_t rx_size, uint32_t tx_size);

/* ---- Link state --------------------------------------------------------- */

/*
 * The netdev behind a router interface, up or down. All three look the record up
 * first (the interfaces lock, for a moment), whatever its namespace, and then use
 * its Linux ifindex or name: the setter of the administrative state in the
 * namespace in which rth was opened, the getter in that of the calling thread,
 * the setter of the operational state through the driver. For a record of another
 * namespace these may be another netdev's, or nobody's.
 */
enum { YB_NET_IF_STATE_DOWN = 0, YB_NET_IF_STATE_UP = 1 };

/*
 * Sets the administrative state by an RTM_NEWLINK request on rth (opened when it
 * is not) and waits for the kernel's answer, without a time-out. One thread at a
 * time. The record is not changed.
 *
 * state: YB_NET_IF_STATE_*.
 * Returns
 *   YB_STATUS_SUCCESS
 *   YB_STATUS_PARAM_ERROR  the database has no such record, for whatever reason (ERROR); another state,
 *                          unlogged; or rth could not be opened (said on standard error)
 *   YB_STATUS_ERROR        sending failed or the kernel refused (said on standard error, and ERROR)
 */
yb_status_t yb_net_interface_state_set(uint32_t sys_ifindex, uint32_t state);

/*
 * Reads the administrative state into *state, YB_NET_IF_STATE_*. A partition key
 * that is up counts as down unless sysfs shows its carrier. Asks for all links of
 * the namespace each time, on a socket of its own; any thread may call it.
 *
 * Returns
 *   YB_STATUS_SUCCESS
 *   YB_STATUS_PARAM_NULL   state is NULL, unlogged
 *   YB_STATUS_PARAM_ERROR  the kernel's answer has no netdev with the record's Linux ifindex, unlogged. Also
 *                          when the kernel cut the answer short without saying so: one netdev with very many
 *                          alternative names hides all that come after it.
 *   YB_STATUS_ERROR        the exchange failed, the kernel refused it or broke it off, or a datagram of the
 *                          answer was larger than 8192 bytes (ERROR)
 *   YB_STATUS_ENTRY_NOT_FOUND, YB_STATUS_DB_NOT_INITIALIZED  from the database (INFO here too)
 */
yb_status_t yb_net_interface_state_get(uint32_t sys_ifindex, uint32_t *state);

/*
 * Sets the operational state (the carrier) that the switch's kernel driver shows
 * for its netdev, by writing "oper_dev NAME up" or "... down" into its file
 * /proc/qrn_yb/yb_core. Blocks as long as the driver does; any thread.
 *
 * state: YB_NET_IF_STATE_*.
 * Returns YB_STATUS_SUCCESS; YB_STATUS_PARAM_ERROR when the database has no such
 * record, for whatever reason (ERROR), or for another state, unlogged;
 * YB_STATUS_ERROR when the file cannot be opened, written or closed, the last of
 * which is the driver's refusal (ERROR, two lines, or three when writing and
 * closing both failed), or when the record's name is none that a netdev can have:
 * nothing is written then (ERROR).
 */
yb_status_t yb_net_interface_oper_state_set(uint32_t sys_ifindex, uint32_t state);

/* ---- Address aliases ---------------------------------------------------- */

/*
 * Adds (YB_ACCESS_CMD_ADD) or deletes (YB_ACCESS_CMD_DELETE) a permanent IPv4
 * address with its broadcast address on the record's netdev, found by name in the
 * network namespace of the calling thread, which must be the one in which rth was
 * opened: one RTM_NEWADDR or RTM_DELADDR request on rth, and the wait for its
 * answer, without a time-out. One thread at a time.
 *
 * ip_addr, ip_prefix: the address, and the network with its mask; both read only
 * and never NULL. What to store in them is not obvious: see yb_ip_addr.h.
 * label: name of the address (IFA_LABEL), at most 15 characters for the kernel.
 * Must be a string for an add, which is not checked; not looked at by a delete.
 *
 * Deleting. The prefix must give the same prefix length as it did for the add. With
 * a length below 32, the kernel deletes all other addresses of the subnet together
 * with the first one added, unless net.ipv4.conf.*.promote_secondaries is 1.
 *
 * rth is not opened here: another request of this process must have opened it,
 * yb_net_interface_state_set() for one, else the call fails.
 *
 * Returns, checked in this order
 *   YB_STATUS_ENTRY_NOT_FOUND, YB_STATUS_DB_NOT_INITIALIZED  from the database
 *   YB_STATUS_PARAM_ERROR      no such netdev (ERROR); or, unlogged, a version other than YB_IP_VERSION_IPV4,
 *                              or an address that is not in the network
 *   YB_STATUS_CMD_UNSUPPORTED  another command, unlogged
 *   YB_STATUS_ERROR            the label does not fit the request, nothing was sent (said on standard error);
 *                              or sending failed or the kernel refused (said there too, and ERROR)
 *   YB_STATUS_SUCCESS
 */
yb_status_t yb_net_virtual_net_if_alias_set(yb_access_cmd_t cmd, uint32_t sys_ifindex, const char *label,
                                            const yb_ip_addr_t *ip_addr, const yb_ip_addr_t *ip_prefix);

/*
 * Looks at a hardware address of addr_len bytes. Returns, as no other function
 * here, a truth value, and logs nothing, "entered" and "left" included.
 *
 *   20 bytes  1 when any of the first 12 is not zero, else 0
 *   6 bytes   0
 *   other     1, with a line on standard error; addr is not looked at
 */
uint8_t yb_net_is_addr_eth(const uint8_t *addr, int32_t addr_len);

/* ---- VLAN to IP --------------------------------------------------------- */

/*
 * Hands three words to the switch's kernel driver, which owns their meaning, with
 * control command 55 on the device that yb_net_interfaces_init() opened. Whether
 * one is open is the driver access library's to notice. Blocks as long as the
 * driver does. Any thread may call it, but not beside the start or the stop of the
 * interfaces half, which replace the device.
 *
 * Returns YB_STATUS_SUCCESS, or YB_STATUS_DEVICE_ERROR, unlogged, when
 * ybd_ioctl() failed.
 */
yb_status_t yb_net_vid2ip_set(int32_t word0, uint32_t word1, int32_t word2);

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
