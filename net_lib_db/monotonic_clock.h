// SPDX-License-Identifier: Apache-2.0
//
// Time as one number, so that deadlines are sums and comparisons. Both waits
// of the databases use it: for a segment's creator and for a lock.
#ifndef YBNET_NET_LIB_DB_MONOTONIC_CLOCK_H
#define YBNET_NET_LIB_DB_MONOTONIC_CLOCK_H

#include <cstdint>
#include <ctime>

constexpr int64_t nanoseconds_of_a_second = 1'000'000'000;

// In nanoseconds; the end of time where the clock cannot be read, as under a filter of system calls.
inline int64_t monotonic_now() {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0)
        return INT64_MAX;
    return now.tv_sec * nanoseconds_of_a_second + now.tv_nsec;
}

// That long from now; without a clock past already, so that nobody waits for ever.
inline int64_t monotonic_deadline(int64_t length) {
    const int64_t now = monotonic_now();
    return now == INT64_MAX ? 0 : now + length;
}

inline timespec monotonic_timespec(int64_t moment) {
    return {static_cast<time_t>(moment / nanoseconds_of_a_second),
            static_cast<long>(moment % nanoseconds_of_a_second)};
}

#endif
