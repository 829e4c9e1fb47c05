// SPDX-License-Identifier: Apache-2.0
//
// The program's own versions of the functions by which libybnet acts on the outside. The dynamic linker finds them in
// front of the C library's; outside a rehearsal they call those. Part of the program ybnetctl only: whatever else
// links ybnetctl_parts keeps its doors as they are, and cannot rehearse.
#ifndef YBNET_YBNETCTL_CHANGE_DOORS_H
#define YBNET_YBNETCTL_CHANGE_DOORS_H

namespace ybnetctl {

// The first of the functions that the dynamic linker does not resolve to the program's version, NULL when all are:
// only then would a rehearsal touch nothing.
const char *first_open_door();

// Set by doors.cc before main().
extern const char *(*look_for_open_door)();

} // namespace ybnetctl

#endif
