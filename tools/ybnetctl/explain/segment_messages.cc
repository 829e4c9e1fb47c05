// SPDX-License-Identifier: Apache-2.0
//
// Messages of loading, unloading and repairing the two segments, and of the
// library's frame.
#include "tools/ybnetctl/explain/catalogue.h"

namespace ybnetctl {

namespace {

constexpr message_entry entries[] = {
    {"net_lib_interfaces_db_init(): Shared memory of the Net-lib interfaces DB already exists,"
     "\n"
     "net_lib_ports_db_init(): Shared memory of the Net-lib ports DB already exists,",
     {"Another process made the segment a moment earlier; this one uses that. Not a failure.", "", ""}},
    {"Failed to create shared memory for the Net-lib interfaces DB"
     "\n"
     "Failed to create shared memory for the Net-lib ports DB",
     {"shm_open(3) refused to make the segment.",
      "/dev/shm is not mounted or read-only, the process may not write there, or it has too many open "
      "files.",
      "mount | grep /dev/shm; ls -ld /dev/shm"}},
    {"Failed to set shared memory size for the Net-lib interfaces DB"
     "\n"
     "Failed to set shared memory size for the Net-lib ports DB",
     {"The segment was made but there is no memory for it; it was taken back.",
      "/dev/shm is full: the two segments need 6 MB together.",
      "df -h /dev/shm; remove what does not belong there, or mount it larger."}},
    {"Failed to map the shared memory of the Net-lib interfaces DB"
     "\n"
     "Failed to map the shared memory of the Net-lib ports DB",
     {"mmap(2) of the segment failed; the process has no database.",
      "A limit of the process's address space (ulimit -v), or of the system's.",
      "Raise the limit and restart the process."}},
    {"Failed to initialize the Net-lib interfaces DB rwlock"
     "\n"
     "Failed to initialize the Net-lib ports DB rwlock",
     {"The segment's lock could not be made; the segment was taken back.",
      "The C library has no process-shared locks for this process.",
      "Check that the stack runs with the system's own C library."}},
    {"Net-lib Interfaces DB was already initialized"
     "\n"
     "Net-lib port DB was already initialized",
     {"The process had loaded this database before; nothing was done.",
      "yb_net_init() twice in one process, without the re-initialise flag.",
      "Harmless where it is expected."}},
    {"Net-lib Interfaces DB does not match the library version, Consider deinit all users of YB net and "
     "re-init "
     "or delete /dev/shm/net_lib_ifc"
     "\n"
     "Net-lib Interfaces DB does not match the library version, Consider deinit all users of YB net and "
     "re-init "
     "or delete /dev/shm/net_lib_port"
     "\n"
     "Net-lib ports DB does not match the library version, Consider deinit all users of YB net and "
     "re-init",
     {"The segment under /dev/shm was made by a build with another layout, or its creator died before it "
      "was "
      "done. It was not used. (One text of the interfaces database names the ports file: the interfaces "
      "file, "
      "net_lib_ifc, is meant.)",
      "An upgrade or downgrade while processes of the other build still run, or a crash during creation.",
      "ybnetctl status tells who maps it and whether deleting is safe. End all users, then delete the "
      "file. "
      "ybnetctl check-upgrade tells before a restart whether a build fits."}},
    {"Failed to init the Net-lib interfaces DB shared memory"
     "\n"
     "Failed to init the Net-lib ports DB shared memory",
     {"The load gave up: the segment could neither be opened nor made.",
      "The line before says why. Alone, it means that the file exists and may not be opened: it belongs "
      "to "
      "another user.",
      "ls -l /dev/shm/net_lib_*; run all processes of the stack as one user."}},
    {"Net-lib interfaces DB is not yet initialized"
     "\n"
     "Net-lib ports DB is not yet initialized",
     {"The segment has the right layout, but its contents were never initialised; the process is "
      "registered and "
      "the load failed.",
      "Somebody changed the segment's marker from outside.",
      "End all users and delete the file: ybnetctl status tells whether that is safe."}},
    {"Failed to unmap the shared memory of the Net-lib interfaces DB"
     "\n"
     "Failed to unmap the shared memory of the Net-lib ports DB",
     {"munmap(2) of the segment failed. The process counts as unloaded; its memory stays mapped.",
      "The process's mappings were changed behind the library's back.", "Restart the process."}},
    {"Net-lib Interfaces DB was not initialized"
     "\n"
     "Net-lib ports DB was not initialized",
     {"A function was called in a process that has not loaded this database.",
      "A call before yb_net_init() or after yb_net_deinit(), or the load had failed.",
      "Look for the load's own message earlier in the process's log."}},
    {"%s - lock taken over from thread %u%s, which died holding it",
     {"The holder of the segment's lock died; the next one took the lock and repaired what was left "
      "half-done.",
      "A process of the stack crashed or was killed inside a change. The lines behind this one say what "
      "was "
      "repaired.",
      "Find out why that process died. ybnetctl audit shows whether an interface was left half-made."}},
    {"%s - its file cannot be opened a second time (errno %d): should that last, no lock is taken over from "
     "a "
     "process that dies",
     {"The load worked. What is missing is a second descriptor of the segment, with which a dead holder of "
      "its lock "
      "is told from a living one.",
      "The process has too many open files, or may not open the segment by /proc/self/fd or by its name.",
      "errno(3) explains the number. Raise the limit (ulimit -n), or mount /proc for the process, and "
      "restart it. "
      "Until then "
      "other processes have to take locks over."}},
    {"Net-lib interfaces DB - it was being erased: erased now"
     "\n"
     "Netlib ports DB - it was being erased: erased now",
     {"A process died while it erased the database for re-initialisation; that was completed.",
      "A start with the re-initialise flag was killed.", "Nothing: the database is empty, as was asked."}},
    {"Net-lib interfaces DB - record %u was left half changed: it is free",
     {"A process died while it wrote an interface record; the slot was freed, for half a record is none.",
      "A process of the stack was killed inside a change.",
      "ybnetctl audit: the interface's netdev may have lost its record."}},
    {"Netlib ports DB - spare bucket %u was left in use: cleared"
     "\n"
     "Netlib ports DB - the buckets behind bucket %u were left in use: cleared",
     {"A process died while it changed a port, just before or just after the change itself; what that had "
      "needed beside the port was cleared.",
      "The port's owner was killed inside a change.",
      "Compare with ybnetctl port show; set it again if need be."}},
    {"Netlib ports DB - bucket %u was left half written: taken back",
     {"A process died while it entered a port; what it had begun was taken back.",
      "The port's owner was killed inside a change.", "Set the port again."}},
    {"Netlib ports DB - bucket %u was left half removed: removed"
     "\n"
     "Netlib ports DB - port %u was not in the maps yet: entered"
     "\n"
     "Netlib ports DB - the move of port %u was left half done: completed"
     "\n"
     "Netlib ports DB - the change of port %u was left half done: completed",
     {"A process died while it changed a port; the change was completed.",
      "The port's owner was killed inside a change.",
      "Compare with ybnetctl port show; set it again if need be."}},
    {"yb_net_log_verbosity_level: Reached default access command : [%s]"
     "\n"
     "Reached default access command : [%s]",
     {"The verbosity can be set and read only; the command was another.", "A mistake in the caller.",
      "Use YB_ACCESS_CMD_SET or YB_ACCESS_CMD_GET."}},
    {"%s - entered"
     "\n"
     "%s - left",
     {"The function trace: a function began or ended. Not a failure.", "",
      "Clear the logging library's function-trace flag to be rid of it."}},
    {"ASSERT in %s[%d]- %s"
     "\n"
     "ASSERT - Retrieved a list of %zd elements."
     "\n"
     "ASSERT - Element %zd: %s.",
     {"A lock of shared memory was used that is not initialised, or could not be made, taken or "
      "released; behind "
      "it comes the call stack, one element a line.",
      "The segment was deleted or destroyed while the process used it, or its memory was overwritten.",
      "ybnetctl status. Keep the stack's lines for a report, and restart all users of the segment."}},
};

} // namespace

std::span<const message_entry> segment_messages() {
    return entries;
}

} // namespace ybnetctl
