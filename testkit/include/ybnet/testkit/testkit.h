/* SPDX-License-Identifier: Apache-2.0 */
/*
 * libybnet-testkit: tests of programs that use libybnet, as an ordinary user,
 * without a switch, a kernel module or a namespace of one's own.
 *
 * What it puts in place of what
 *
 *   the platform's functions (yb_log(), ybd_ioctl(), crc_16() ...)   platform.h
 *   netdevs, namespaces, link events                                 netdevs.h
 *   NETLINK_ROUTE sockets                                            rtnetlink.h
 *   ip(8) and vconfig(8), found through PATH                         tools.h
 *   POSIX shared memory (shm_open(3), shm_unlink(3)): a directory of the test
 *   /proc/qrn_yb/yb_core, the driver's command file                  platform.h
 *
 * libybnet itself is the real one, unchanged.
 *
 * How the stand-ins come first
 *
 * The kit defines the platform's functions and, of the C library's, socket(),
 * bind(), close(), getsockname(), setsockopt(), send*(), recv*(), shm_open(),
 * shm_unlink(), if_nametoindex(), if_indextoname(), fopen() and fopen64(). The
 * dynamic linker takes the first definition it meets, in the order program,
 * preloaded libraries, libraries as they were linked. So either
 *
 *  - link the test with the kit in front of any other library that defines the
 *    platform's functions, and keep it although nothing may refer to it:
 *      cc test.c -Wl,--no-as-needed -lybnet-testkit -lybnet
 *    (pkg-config libybnet-testkit, or the CMake target ybnet::testkit named
 *    before ybnet::ybnet; libc comes last by itself), or
 *  - run any program, linked as it is for the switch, under
 *      ybnet-testkit-run PROGRAM ARGUMENTS...
 *    which preloads the kit. Set-user-ID programs do not let themselves preload.
 *
 * It is a shared library for that reason: from a static one the linker takes
 * only what somebody misses, and nobody misses socket().
 *
 * The directory
 *
 * All that several processes of one test must agree on lies in a directory,
 * named by YBNET_TESTKIT_DIR in the environment. Processes that inherit the
 * variable belong to the test, after fork(2) and after execve(2). Without it the
 * kit is inactive: the platform's functions still record, everything else that
 * it interposes calls the C library's own.
 *
 * A private /dev/shm by unshare(2) is not used: it needs user namespaces, which
 * many hosts refuse to ordinary users, a process with a single thread, and every
 * process of the test inside it. Redirecting shm_open() always works.
 *
 * Conventions: functions return 0, or -1 with errno, unless they say otherwise.
 * They may be called from any thread, ybtk_begin(), ybtk_end() and ybtk_reset()
 * while no other runs. A NULL or "" namespace is the test's own.
 */
#ifndef YBNET_TESTKIT_TESTKIT_H
#define YBNET_TESTKIT_TESTKIT_H

#include "ybnet/testkit/netdevs.h"
#include "ybnet/testkit/platform.h"
#include "ybnet/testkit/rtnetlink.h"
#include "ybnet/testkit/tools.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Begins a test: makes a fresh directory (on /dev/shm, which is memory, else in
 * TMPDIR or /tmp), names it in YBNET_TESTKIT_DIR and puts the kit's ip and
 * vconfig in front of PATH. In a process that inherited a directory, joins that
 * test and makes nothing. Call it before the program starts threads: it changes
 * the environment.
 *
 * Errors: those of mkdtemp(3); ENAMETOOLONG for a directory of more than 80
 * bytes; ENOENT when the tools are not found (YBNET_TESTKIT_TOOLS names their
 * directory); EBUSY when the kit is not first, for socket() or yb_log(), so that
 * nothing would be stood in for.
 */
int ybtk_begin(void);

/*
 * Ends it: takes the variable and the tools away again and, in the process that
 * made the directory, removes it. Stop libybnet and end the children before. Once
 * per program is best: sockets do not live beyond their test, and libybnet keeps
 * its request socket, on which requests then fail with ENETDOWN.
 */
int ybtk_end(void);

/*
 * Forgets everything: records, scripts, failures, netdevs, shared memory. For the
 * start of each test of a program. No process may have segments of the last test
 * loaded. Sockets stay as they are: close event sockets before.
 */
int ybtk_reset(void);

/* The directory; "" while the kit is inactive. Valid until the thread's next call. */
const char *ybtk_directory(void);

#ifdef __cplusplus
}
#endif

#endif
