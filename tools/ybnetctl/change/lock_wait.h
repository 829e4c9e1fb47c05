// SPDX-License-Identifier: Apache-2.0
//
// Waiting in front of the library's own wait for a lock, which hears no signal and says nothing. Rests on what
// see/lock_watch.h finds out from outside.
#ifndef YBNET_YBNETCTL_CHANGE_LOCK_WAIT_H
#define YBNET_YBNETCTL_CHANGE_LOCK_WAIT_H

#include <csignal>

#include "tools/ybnetctl/segments/fields.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

// Waits as long as a thread that sleeps or is stopped holds the lock of a live segment, and after a second notes whom
// it waits for. The signal that ended the wait: one of these, which are blocked, or interrupted(). 0 when the library is
// to be called: it gets its turn behind a holder that works, where only looking would always come too late, and takes
// the lock over from one that is dead.
int wait_behind_sleeper(session &run, segment_kind kind, const sigset_t &signals);

} // namespace ybnetctl

#endif
