// SPDX-License-Identifier: Apache-2.0
//
// Beginning and ending a test: the directory and PATH. See ybnet/testkit/testkit.h.
#include "ybnet/testkit/testkit.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <unistd.h>

#include "testkit/directory.h"
#include "testkit/export.h"
#include "testkit/recording_platform.h"

namespace fs = std::filesystem;

namespace {

using namespace testkit;

// What this process made and changed.
std::string made;
std::string old_path;

// The definition that callers reach is this library's.
bool is_first(const char *function) {
    Dl_info found = {};
    Dl_info here = {};
    void *const address = dlsym(RTLD_DEFAULT, function);
    return address != nullptr && dladdr(address, &found) != 0 &&
           dladdr(reinterpret_cast<void *>(&ybtk_begin), &here) != 0 && found.dli_fbase == here.dli_fbase;
}

} // namespace

int ybtk_begin(void) {
    if (!is_first("socket") || !is_first("yb_log"))
        return result_of(EBUSY);
    const std::string tools = tools_directory();
    if (tools.empty())
        return result_of(ENOENT);
    const std::string path = text_or_empty(getenv("PATH"));
    const bool joins = is_active();
    if (!joins && !directory_make(&made))
        return -1;
    if (const int error = directory_fill(joins ? directory() : made); error != 0)
        return result_of(error);
    if (!joins)
        (void)setenv(directory_variable, made.c_str(), 1);
    if (path.rfind(tools + ":", 0) != 0) {
        old_path = path;
        (void)setenv("PATH", (tools + ":" + path).c_str(), 1);
    }
    return 0;
}

int ybtk_end(void) {
    if (!old_path.empty())
        (void)setenv("PATH", old_path.c_str(), 1);
    old_path.clear();
    (void)unsetenv(directory_variable);
    std::error_code failed;
    if (!made.empty())
        fs::remove_all(made, failed);
    made.clear();
    return result_of(failed.value());
}

int ybtk_reset(void) {
    platform::reset();
    ybtk_log_hook(nullptr, nullptr);
    if (!is_active())
        return 0;
    const directory_lock lock;
    for (const std::string &name : names_in(directory())) {
        std::error_code failed;
        if (name != "lock" && name != "nl") // sockets live on: libybnet never closes its own
            fs::remove_all(path_of(name), failed);
        if (failed)
            return result_of(failed.value());
    }
    return result_of(directory_fill(directory()));
}

const char *ybtk_directory(void) {
    thread_local std::string current;
    current = directory();
    return current.c_str();
}
