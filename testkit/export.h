// SPDX-License-Identifier: Apache-2.0
//
// Helpers of the C functions: their results, their namespaces, their waiting.
#ifndef YBNET_TESTKIT_EXPORT_H
#define YBNET_TESTKIT_EXPORT_H

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

namespace testkit {

// 0, or -1 with this errno.
inline int result_of(int error) {
    if (error == 0)
        return 0;
    errno = error;
    return -1;
}

inline int result_of_write(bool written) {
    return written ? 0 : -1;
}

inline std::string text_or_empty(const char *text) {
    return text == nullptr ? "" : text;
}

// Polls, because what is waited for happens in other processes.
template <typename condition_t> int wait_until(condition_t condition, unsigned limit_ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return result_of(ETIMEDOUT);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return 0;
}

} // namespace testkit

#endif
