// SPDX-License-Identifier: Apache-2.0
//
// See doors.h and rehearsal.h. Rests on the rules of ld.so(8): an executable's symbols come first, for every library.
#include "tools/ybnetctl/change/doors.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <net/if.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include "tools/ybnetctl/change/interrupts.h"
#include "tools/ybnetctl/change/port_driver.h"
#include "tools/ybnetctl/change/rehearsal.h"
#include "ybnet/platform/ybd.h"
#include "ybnet/yb_net_rtnl.h"

// The C library declares some of these with attributes that a definition need not repeat.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas"
#pragma GCC diagnostic ignored "-Wunknown-warning-option"
#pragma GCC diagnostic ignored "-Wmissing-attributes"

using ybnetctl::rehearsal;

namespace {

// The next definition behind the program's: the C library's or the driver access library's.
template <class function_t> function_t *next(const char *name) {
    void *const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr)
        std::abort(); // it was linked against
    return reinterpret_cast<function_t *>(found);
}

#define NEXT(function)                                                                                       \
    ([] {                                                                                                    \
        static auto *const found = next<decltype(::function)>(#function);                                    \
        return found;                                                                                        \
    }())

} // namespace

extern "C" {

int system(const char *command) {
    rehearsal *const closed = rehearsal::now();
    if (closed != nullptr && command != nullptr)
        return closed->run_command(command);
    const int status = NEXT(system)(command);
    constexpr int shell_said_so = 128 + SIGINT;
    if (status != -1 && ((WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) ||
                         (WIFEXITED(status) && WEXITSTATUS(status) == shell_said_so)))
        ybnetctl::note_interrupt(SIGINT);
    return status;
}

FILE *popen(const char *command, const char *mode) {
    rehearsal *const closed = rehearsal::now();
    return closed != nullptr ? closed->look(command) : NEXT(popen)(command, mode);
}

int pclose(FILE *stream) {
    rehearsal *const closed = rehearsal::now();
    return closed != nullptr && closed->is_look(stream) ? closed->end_look(stream) : NEXT(pclose)(stream);
}

unsigned if_nametoindex(const char *name) noexcept {
    rehearsal *const closed = rehearsal::now();
    return closed != nullptr ? closed->index_of(name) : NEXT(if_nametoindex)(name);
}

ssize_t sendmsg(int descriptor, const struct msghdr *message, int flags) {
    rehearsal *const closed = rehearsal::now();
    return closed != nullptr ? closed->send(message) : NEXT(sendmsg)(descriptor, message, flags);
}

ssize_t recvmsg(int descriptor, struct msghdr *message, int flags) {
    rehearsal *const closed = rehearsal::now();
    return closed != nullptr ? closed->receive(message) : NEXT(recvmsg)(descriptor, message, flags);
}

FILE *fopen(const char *path, const char *mode) {
    rehearsal *const closed = rehearsal::now();
    if (closed != nullptr && std::strcmp(path, ybnetctl::port_driver_file) == 0)
        return closed->open_driver_file(path);
    return NEXT(fopen)(path, mode);
}

int shm_open(const char *name, int flags, mode_t mode) {
    rehearsal *const closed = rehearsal::now();
    return closed != nullptr ? closed->open_segment(name, flags) : NEXT(shm_open)(name, flags, mode);
}

int shm_unlink(const char *name) {
    rehearsal *const closed = rehearsal::now();
    return closed != nullptr ? closed->unlink_segment(name) : NEXT(shm_unlink)(name);
}

int fstat(int descriptor, struct stat *status) noexcept {
    const int result = NEXT(fstat)(descriptor, status);
    if (rehearsal *const closed = rehearsal::now(); closed != nullptr && result == 0)
        closed->show_as_named(status);
    return result;
}

int ybd_open_device(const char *name, uint32_t *handle) {
    rehearsal *const closed = rehearsal::now();
    return closed != nullptr ? closed->open_device(name, handle) : NEXT(ybd_open_device)(name, handle);
}

int ybd_ioctl(uint32_t handle, void *control_record) {
    rehearsal *const closed = rehearsal::now();
    return closed != nullptr ? closed->control_device(handle) : NEXT(ybd_ioctl)(handle, control_record);
}

int ybd_close_device(uint32_t handle) {
    rehearsal *const closed = rehearsal::now();
    return closed != nullptr ? closed->close_device(handle) : NEXT(ybd_close_device)(handle);
}

} // extern "C"

#pragma GCC diagnostic pop

namespace ybnetctl {

namespace {

struct door {
    const char *name;
    void *ours;
};

#define DOOR(function)                                                                                       \
    door {                                                                                                   \
#function, reinterpret_cast < void *>(&::function)                                                   \
    }

} // namespace

const char *first_open_door() {
    const std::array doors = {DOOR(system),    DOOR(popen),           DOOR(pclose),    DOOR(if_nametoindex),
                              DOOR(sendmsg),   DOOR(recvmsg),         DOOR(fopen),     DOOR(shm_open),
                              DOOR(fstat),     DOOR(ybd_open_device), DOOR(ybd_ioctl), DOOR(ybd_close_device),
                              DOOR(shm_unlink)};
    Dl_info program = {};
    Dl_info found = {};
    if (dladdr(reinterpret_cast<void *>(&first_open_door), &program) == 0)
        return "dladdr";
    for (const door &each : doors) {
        void *const resolved = dlsym(RTLD_DEFAULT, each.name);
        if (resolved == nullptr || resolved != each.ours || dladdr(resolved, &found) == 0 ||
            found.dli_fbase != program.dli_fbase)
            return each.name;
    }
    return nullptr;
}

namespace {

__attribute__((constructor)) void put_doors_in_place() {
    look_for_open_door = &first_open_door;
}

} // namespace

} // namespace ybnetctl
