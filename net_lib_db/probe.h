// SPDX-License-Identifier: Apache-2.0
//
// Static tracepoints (USDT, <sys/sdt.h>) of provider "ybnet" for bpftrace(8), perf(1) and gdb(1): one nop each
// while nobody listens, and nothing where that header is missing or YBNET_USDT is 0. docs/probes.md lists
// every probe and tools/bpftrace/ reads them; a probe that is not in that list fails the build's tests.
#ifndef YBNET_NET_LIB_DB_PROBE_H
#define YBNET_NET_LIB_DB_PROBE_H

// The lock's probes (segment: the segment's name, const char *; lock: the lock's address; tid: the caller as
// the lock records it, never a gettid(2) of the probe's own):
//   lock_wait(segment, lock, tid, holder)      the lock is taken: about to wait; holder 0 when not known
//   lock_acquired(segment, lock, tid)          the caller holds it, waited or not
//   lock_release(segment, lock, tid)           about to be given back: still held
//   lock_takeover(segment, lock, tid, dead)    taken from a holder that died; lock_acquired follows

#ifndef YBNET_USDT
#if defined(__has_include) && __has_include(<sys/sdt.h>)
#define YBNET_USDT 1
#else
#define YBNET_USDT 0
#endif
#endif

#if YBNET_USDT
#define SDT_USE_VARIADIC 1
#include <sys/sdt.h>
// Arguments are computed whether anybody listens or not: only what is at hand, no calls.
#define YB_PROBE(name, ...) STAP_PROBEV(ybnet, name, __VA_ARGS__)
#else
template <typename... argument_t> inline void yb_probe_is_left_out(const argument_t &...) {}
#define YB_PROBE(name, ...) yb_probe_is_left_out(__VA_ARGS__)
#endif

#endif
