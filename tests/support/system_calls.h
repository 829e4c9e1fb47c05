// SPDX-License-Identifier: Apache-2.0
//
// The C library's functions that the library under test calls, made to fail on
// demand. The test program defines them, so they are called instead; without a
// failure or a replacement set they call the real ones.
#ifndef YBNET_TESTS_SYSTEM_CALLS_H
#define YBNET_TESTS_SYSTEM_CALLS_H

#include <cstdio>
#include <functional>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace calls {

// Lets the call number nth (1 = the next) of a function fail with this errno (pthread functions: return it;
// popen, mmap, fopen: their failure value). Functions: shm_open, shm_unlink, ftruncate, fstat, flock, posix_fallocate, mmap, munmap,
// msync, pthread_rwlockattr_setpshared, pthread_rwlockattr_init, pthread_rwlockattr_destroy,
// pthread_rwlock_init, pthread_rwlock_destroy, pthread_rwlock_wrlock, pthread_rwlock_unlock,
// backtrace_symbols, socket, setsockopt, bind, getsockname, sendmsg, recvmsg, recv, system, popen, fopen,
// fclose, fcntl, open, dup3, mremap, madvise, __register_atfork, pthread_key_create, nanosleep, clock_gettime. Aborts for another name.
void fail(const std::string &function, int reason, int nth = 1);

// How often the function was called since reset(). Of "segment_lock": how often this thread took and released
// either segment's lock.
int count(const std::string &function);

// Runs hook in front of each call of the function, with the number of the call since reset() (1 = the first):
// to look at the world, or to change it, at that moment. Calls that the hook makes itself are neither counted
// nor failed.
void before(const std::string &function, std::function<void(int)> hook);

// Commands given to system() and popen(), in order, since reset().
const std::vector<std::string> &commands();

// Stand in for the real function while set; called instead of it.
std::function<int(void *, size_t, int)> &on_msync();
std::function<ssize_t(int, const struct msghdr *, int)> &on_sendmsg();
std::function<ssize_t(int, struct msghdr *, int)> &on_recvmsg();
std::function<ssize_t(int, void *, size_t, int)> &on_recv();
std::function<int(int, struct sockaddr *, socklen_t *)> &on_getsockname();
std::function<int(const char *)> &on_system();

// Forgets failures, replacements, counts and commands.
void reset();

} // namespace calls

#endif
