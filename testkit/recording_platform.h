// SPDX-License-Identifier: Apache-2.0
//
// Stand-ins for the stack's logging, utility and driver access libraries that
// record what they are told and fail on demand: part of the test kit, and linked
// into the project's own test programs, where they also show that a process's own
// definitions are the ones that get called.
#ifndef YBNET_TESTKIT_RECORDING_PLATFORM_H
#define YBNET_TESTKIT_RECORDING_PLATFORM_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "ybnet/platform/yb_log.h"
#include "ybnet/platform/ybd.h"

namespace platform {

// One call of yb_log().
struct log_line {
    uint32_t severity;
    std::string module;
    std::string format; // as passed
    std::string text;   // formatted
};

// One call of ybd_ioctl().
struct control {
    uint32_t handle;
    ybd_ioctl_cmd_t record;
    int32_t words[3]; // what the argument of command 55 points to
};

struct recording {
    std::vector<log_line> log;
    std::vector<std::string> trace_formats; // formats of yb_trace_cbuff_log()
    std::vector<std::string> trace;         // formatted
    std::vector<std::string>
        calls; // names of all other platform functions called, in order, "yb_log_init" and so on
    uint32_t log_init_args[2];
    yb_log_cb_t log_callback;
    uint32_t dev_list_room; // the count that ybd_get_dev_list() was given
    std::vector<control> controls;
    std::vector<uint32_t> closed_handles;

    // Texts of the log lines with this severity (1 ERROR, 3 WARN, 7 NOTICE, 15 INFO, 31 DEBUG).
    std::vector<std::string> texts(uint32_t severity) const;
    // Number of log lines with exactly this text and severity.
    size_t count(uint32_t severity, const std::string &text) const;
};
recording &recorded();
// Held while the recording grows; readers beside logging threads hold it too.
std::mutex &recorded_mutex();

// Errno with which the next calls fail; 0 = succeed, unless the test kit's directory has a file fail/NAME
// with an errno in it, which holds for every process of a test.
struct failures {
    int get_dev_list;
    int open_device;
    int ioctl_multi_packet;
    int ioctl_blocking;
    int ioctl_vid2ip;
    int close_device;
};
failures &fail();

// The handle that ybd_open_device() hands out next; counts up from 1.
uint32_t &next_handle();

// Called in the middle of yb_log() when set: to look at the world at that moment (for example at a lock).
using log_hook = void (*)(const log_line &line);
log_hook &on_log();

// When set, crc_16() returns what it returns; otherwise a CRC-16 with the parameter as polynomial.
using crc_function = uint16_t (*)(void *work_area, const uint8_t *data, uint32_t length, uint16_t parameter);
crc_function &crc_override();

// Forgets everything recorded, and all failures, hooks and flags.
void reset();

} // namespace platform

#endif
