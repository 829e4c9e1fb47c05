// SPDX-License-Identifier: Apache-2.0
//
// The rare parts of a segment's lock (segment.h): a thread's first time, and
// what comes after a takeover. The common part is inline; how a dead holder is
// known is complib's (cl_passivelock.h).
#include <sys/syscall.h>
#include <unistd.h>

#include "net_lib_db/complib/cl_plock_owner.h"
#include "net_lib_db/forked_child.h"
#include "net_lib_db/net_lib_db_log.h"
#include "net_lib_db/segment.h"

__thread cl_plock_user segment_lock_users[SEGMENTS];

void segment_announce(segment &seg, cl_plock_user &user) {
    user.id = static_cast<uint32_t>(syscall(SYS_gettid));
    user.announced_id = 0;
    // A child that is not seen to be one would go on under its parent's id: better to ask at each lock then.
    if (!forked_children_are_seen() || !cl_plock_is_file(seg.descriptor, seg.device, seg.inode) ||
        !cl_plock_announce(seg.descriptor, user.id))
        return;
    user.announced_id = user.id;
    user.announced_on = seg.descriptors;
}

void segment_taken_over(segment &seg, uint32_t dead) {
    NET_LIB_DB_LOG(YB_LEVEL_WARN, "%s - lock taken over from thread %u, which died holding it\n",
                   seg.description.title, dead);
    seg.description.repair_body(seg.body);
    segment_flush(seg);
}
