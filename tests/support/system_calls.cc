// SPDX-License-Identifier: Apache-2.0
//
// See system_calls.h.
#include "tests/support/system_calls.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <iterator>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <utility>

#include "net_lib_db/segment.h"

namespace {

struct plan {
    int reason = 0;
    int countdown = 0;
    std::atomic<int> calls = 0; // threads that test nothing of it call the function too
    std::function<void(int)> before;
};

std::vector<std::string> &command_list() {
    static auto &all = *new std::vector<std::string>;
    return all;
}

const char *const known[] = {"shm_open",
                             "shm_unlink",
                             "ftruncate",
                             "fstat",
                             "flock",
                             "posix_fallocate",
                             "mmap",
                             "munmap",
                             "msync",
                             "pthread_rwlockattr_init",
                             "pthread_rwlockattr_setpshared",
                             "pthread_rwlockattr_destroy",
                             "pthread_rwlock_init",
                             "pthread_rwlock_destroy",
                             "pthread_rwlock_wrlock",
                             "pthread_rwlock_unlock",
                             "backtrace_symbols",
                             "socket",
                             "setsockopt",
                             "bind",
                             "getsockname",
                             "sendmsg",
                             "recvmsg",
                             "recv",
                             "system",
                             "popen",
                             "fopen",
                             "fclose",
                             "fcntl",
                             "open",
                             "dup3",
                             "mremap",
                             "madvise",
                             "__register_atfork", // which is what pthread_atfork() calls
                             "pthread_key_create",
                             "nanosleep",
                             "clock_gettime"};

// Never destroyed: the interposed functions are called until the process is gone.
plan *find_plan(const char *function) {
    static auto *const all = new plan[std::size(known)];
    for (size_t i = 0; i < std::size(known); i++) {
        if (strcmp(known[i], function) == 0)
            return &all[i];
    }
    return nullptr;
}

// The errno with which this call is to fail, or 0. The interposed functions may run before main() and inside
// the runtime: nothing is looked up unless a test has asked for something.
bool watching = false;
thread_local bool in_hook = false;
int due(const char *function) {
    if (!watching || in_hook)
        return 0;
    plan &p = *find_plan(function);
    const int call = ++p.calls;
    if (p.before) {
        in_hook = true;
        p.before(call);
        in_hook = false;
    }
    if (p.countdown == 0 || --p.countdown != 0)
        return 0;
    return p.reason;
}

plan &plan_of(const std::string &function) {
    plan *const found = find_plan(function.c_str());
    if (found == nullptr) {
        (void)fprintf(stderr, "system_calls: unknown function %s\n", function.c_str());
        abort();
    }
    watching = true;
    return *found;
}

template <typename function_t> function_t *real(const char *name) {
    void *const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr)
        abort();
    return reinterpret_cast<function_t *>(found);
}

} // namespace

namespace calls {

void fail(const std::string &function, int reason, int nth) {
    plan &p = plan_of(function);
    p.reason = reason;
    p.countdown = nth;
}

void before(const std::string &function, std::function<void(int)> hook) {
    plan_of(function).before = std::move(hook);
}

// The library's own count, of this thread.
static uint32_t lock_turns() {
    uint32_t turns = 0;
    for (const cl_plock_user &user : segment_lock_users)
        turns += user.turns;
    return turns;
}
static uint32_t lock_turns_at_reset;

int count(const std::string &function) {
    if (function == "segment_lock")
        return static_cast<int>((lock_turns() - lock_turns_at_reset) / 2);
    return plan_of(function).calls;
}

const std::vector<std::string> &commands() {
    return command_list();
}

std::function<int(void *, size_t, int)> &on_msync() {
    static std::function<int(void *, size_t, int)> replacement;
    return replacement;
}
std::function<ssize_t(int, const struct msghdr *, int)> &on_sendmsg() {
    static std::function<ssize_t(int, const struct msghdr *, int)> replacement;
    return replacement;
}
std::function<ssize_t(int, struct msghdr *, int)> &on_recvmsg() {
    static std::function<ssize_t(int, struct msghdr *, int)> replacement;
    return replacement;
}
std::function<ssize_t(int, void *, size_t, int)> &on_recv() {
    static std::function<ssize_t(int, void *, size_t, int)> replacement;
    return replacement;
}
std::function<int(int, struct sockaddr *, socklen_t *)> &on_getsockname() {
    static std::function<int(int, struct sockaddr *, socklen_t *)> replacement;
    return replacement;
}
std::function<int(const char *)> &on_system() {
    static std::function<int(const char *)> replacement;
    return replacement;
}

void reset() {
    lock_turns_at_reset = lock_turns();
    for (const char *const name : known) {
        plan &p = *find_plan(name);
        p.reason = 0;
        p.countdown = 0;
        p.calls = 0;
        p.before = nullptr;
    }
    command_list().clear();
    on_msync() = nullptr;
    on_sendmsg() = nullptr;
    on_recvmsg() = nullptr;
    on_recv() = nullptr;
    on_getsockname() = nullptr;
    on_system() = nullptr;
    watching = true;
}

} // namespace calls

// Fails when it is due, else calls the real function.
#define INTERPOSE(result_t, name, parameters, arguments, failure)                                            \
    result_t name parameters {                                                                               \
        if (const int reason = due(#name); reason != 0) {                                                    \
            errno = reason;                                                                                  \
            return failure;                                                                                  \
        }                                                                                                    \
        static auto *const next = real<result_t parameters>(#name);                                          \
        return next arguments;                                                                               \
    }

// glibc declares some of these functions noexcept; the definitions match it through their declarations'
// types.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas"
#pragma GCC diagnostic ignored "-Wshadow"

extern "C" {

INTERPOSE(int, shm_open, (const char *name, int flags, mode_t mode), (name, flags, mode), -1)
INTERPOSE(int, shm_unlink, (const char *name), (name), -1)
INTERPOSE(int, ftruncate, (int descriptor, off_t size) noexcept, (descriptor, size), -1)
INTERPOSE(int, fstat, (int descriptor, struct stat *status) noexcept, (descriptor, status), -1)
INTERPOSE(int, flock, (int descriptor, int operation) noexcept, (descriptor, operation), -1)
INTERPOSE(int, posix_fallocate, (int descriptor, off_t offset, off_t size), (descriptor, offset, size),
          reason)
INTERPOSE(void *, mmap,
          (void *address, size_t size, int protection, int flags, int descriptor, off_t offset) noexcept,
          (address, size, protection, flags, descriptor, offset), MAP_FAILED)
INTERPOSE(int, munmap, (void *address, size_t size) noexcept, (address, size), -1)
INTERPOSE(int, pthread_rwlockattr_init, (pthread_rwlockattr_t * attribute) noexcept, (attribute), reason)
INTERPOSE(int, pthread_rwlockattr_setpshared, (pthread_rwlockattr_t * attribute, int shared) noexcept,
          (attribute, shared), reason)
INTERPOSE(int, pthread_rwlockattr_destroy, (pthread_rwlockattr_t * attribute) noexcept, (attribute), reason)
INTERPOSE(int, pthread_rwlock_destroy, (pthread_rwlock_t * lock) noexcept, (lock), reason)
INTERPOSE(char **, backtrace_symbols, (void *const *frames, int count) noexcept, (frames, count), nullptr)
INTERPOSE(int, pthread_rwlock_init, (pthread_rwlock_t * lock, const pthread_rwlockattr_t *attribute) noexcept,
          (lock, attribute), reason)
INTERPOSE(int, pthread_rwlock_wrlock, (pthread_rwlock_t * lock) noexcept, (lock), reason)
INTERPOSE(int, pthread_rwlock_unlock, (pthread_rwlock_t * lock) noexcept, (lock), reason)
INTERPOSE(int, socket, (int domain, int type, int protocol) noexcept, (domain, type, protocol), -1)
INTERPOSE(int, setsockopt,
          (int descriptor, int level, int option, const void *value, socklen_t size) noexcept,
          (descriptor, level, option, value, size), -1)
INTERPOSE(int, bind, (int descriptor, const struct sockaddr *address, socklen_t size) noexcept,
          (descriptor, address, size), -1)
INTERPOSE(int, madvise, (void *address, size_t size, int advice) noexcept, (address, size, advice), -1)
INTERPOSE(int, __register_atfork, (void (*before)(), void (*in_parent)(), void (*in_child)(), void *caller),
          (before, in_parent, in_child, caller), reason)
INTERPOSE(int, pthread_key_create, (pthread_key_t * key, void (*destructor)(void *)) noexcept,
          (key, destructor), reason)
INTERPOSE(int, nanosleep, (const struct timespec *length, struct timespec *left), (length, left), -1)
INTERPOSE(int, clock_gettime, (clockid_t clock, struct timespec *now) noexcept, (clock, now), -1)
INTERPOSE(FILE *, fopen, (const char *path, const char *mode), (path, mode), nullptr)

int msync(void *address, size_t size, int flags) {
    if (const int reason = due("msync"); reason != 0) {
        errno = reason;
        return -1;
    }
    if (calls::on_msync())
        return calls::on_msync()(address, size, flags);
    static auto *const next = real<int(void *, size_t, int)>("msync");
    return next(address, size, flags);
}

INTERPOSE(int, dup3, (int from, int to, int flags) noexcept, (from, to, flags), -1)

// The mode and the new address: there or not, they are passed on.
int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (const int reason = due("open"); reason != 0) {
        errno = reason;
        return -1;
    }
    static auto *const next = real<int(const char *, int, ...)>("open");
    return next(path, flags, mode);
}
void *mremap(void *address, size_t old_size, size_t new_size, int flags, ...) noexcept {
    va_list arguments;
    va_start(arguments, flags);
    void *const new_address = va_arg(arguments, void *);
    va_end(arguments);
    if (const int reason = due("mremap"); reason != 0) {
        errno = reason;
        return MAP_FAILED;
    }
    static auto *const next = real<void *(void *, size_t, size_t, int, ...)>("mremap");
    return next(address, old_size, new_size, flags, new_address);
}

// All commands take an argument of a pointer's size or none.
int fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    if (const int reason = due("fcntl"); reason != 0) {
        errno = reason;
        return -1;
    }
    static auto *const next = real<int(int, int, ...)>("fcntl");
    return next(descriptor, command, argument);
}

// What fclose() does is done, also when it is to fail: the descriptor must not leak.
int fclose(FILE *file) {
    static auto *const next = real<int(FILE *)>("fclose");
    const int result = next(file);
    if (const int reason = due("fclose"); reason != 0) {
        errno = reason;
        return EOF;
    }
    return result;
}

int getsockname(int descriptor, struct sockaddr *address, socklen_t *size) noexcept {
    if (const int reason = due("getsockname"); reason != 0) {
        errno = reason;
        return -1;
    }
    if (calls::on_getsockname())
        return calls::on_getsockname()(descriptor, address, size);
    static auto *const next = real<int(int, struct sockaddr *, socklen_t *)>("getsockname");
    return next(descriptor, address, size);
}

ssize_t sendmsg(int descriptor, const struct msghdr *message, int flags) {
    if (const int reason = due("sendmsg"); reason != 0) {
        errno = reason;
        return -1;
    }
    if (calls::on_sendmsg())
        return calls::on_sendmsg()(descriptor, message, flags);
    static auto *const next = real<ssize_t(int, const struct msghdr *, int)>("sendmsg");
    return next(descriptor, message, flags);
}

ssize_t recvmsg(int descriptor, struct msghdr *message, int flags) {
    if (const int reason = due("recvmsg"); reason != 0) {
        errno = reason;
        return -1;
    }
    if (calls::on_recvmsg())
        return calls::on_recvmsg()(descriptor, message, flags);
    static auto *const next = real<ssize_t(int, struct msghdr *, int)>("recvmsg");
    return next(descriptor, message, flags);
}

ssize_t recv(int descriptor, void *buffer, size_t size, int flags) {
    if (const int reason = due("recv"); reason != 0) {
        errno = reason;
        return -1;
    }
    if (calls::on_recv())
        return calls::on_recv()(descriptor, buffer, size, flags);
    static auto *const next = real<ssize_t(int, void *, size_t, int)>("recv");
    return next(descriptor, buffer, size, flags);
}

int system(const char *command) {
    command_list().emplace_back(command);
    if (const int reason = due("system"); reason != 0) {
        errno = reason;
        return -1;
    }
    if (calls::on_system())
        return calls::on_system()(command);
    static auto *const next = real<int(const char *)>("system");
    return next(command);
}

FILE *popen(const char *command, const char *mode) {
    command_list().emplace_back(command);
    if (const int reason = due("popen"); reason != 0) {
        errno = reason;
        return nullptr;
    }
    static auto *const next = real<FILE *(const char *, const char *)>("popen");
    return next(command, mode);
}

} // extern "C"

#pragma GCC diagnostic pop
