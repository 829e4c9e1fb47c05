// SPDX-License-Identifier: Apache-2.0
//
// See handle_table.h.
#include "platform/ybd/handle_table.h"

#include <cerrno>
#include <pthread.h>
#include <unistd.h>

namespace ybd {

namespace {

// Handle: the slot's number plus one in the low bits, above them how often the slot was given out.
constexpr uint32_t slot_bits = 8;
static_assert(max_open_devices < (1u << slot_bits));

struct open_device {
    uint32_t handle; // 0: closed; the slot is free once nobody uses it either
    uint32_t generation;
    uint32_t users;
    int descriptor;
};

open_device table[max_open_devices];
// Not std::mutex, whose errors are exceptions.
pthread_mutex_t table_mutex = PTHREAD_MUTEX_INITIALIZER;

class table_lock {
  public:
    table_lock() {
        (void)pthread_mutex_lock(&table_mutex); // a plain mutex that is not held: cannot fail
    }
    ~table_lock() {
        (void)pthread_mutex_unlock(&table_mutex);
    }
    table_lock(const table_lock &) = delete;
    table_lock &operator=(const table_lock &) = delete;
};

// The slot of an open handle, or max_open_devices.
uint32_t slot_of(uint32_t handle) {
    const uint32_t slot = (handle & ((1u << slot_bits) - 1)) - 1; // 0 wraps around to no slot
    return slot < max_open_devices && table[slot].handle == handle ? slot : max_open_devices;
}

int close_descriptor(int descriptor) {
    if (descriptor == soft_device_descriptor)
        return 0;
    // Linux has closed it even when it says EINTR.
    return close(descriptor) == 0 || errno == EINTR ? 0 : errno;
}

} // namespace

uint32_t table_add(int descriptor) {
    const table_lock lock;
    for (uint32_t slot = 0; slot < max_open_devices; ++slot) {
        open_device &device = table[slot];
        if (device.handle != 0 || device.users != 0)
            continue;
        device.descriptor = descriptor;
        device.handle = (++device.generation << slot_bits) | (slot + 1);
        return device.handle;
    }
    return 0;
}

int table_remove(uint32_t handle) {
    int descriptor = soft_device_descriptor;
    {
        const table_lock lock;
        const uint32_t slot = slot_of(handle);
        if (slot == max_open_devices)
            return EBADF;
        table[slot].handle = 0;
        if (table[slot].users == 0)
            descriptor = table[slot].descriptor;
        // else the last user closes it
    }
    return close_descriptor(descriptor);
}

device_use::device_use(uint32_t handle) : descriptor_(soft_device_descriptor) {
    const table_lock lock;
    slot_ = slot_of(handle);
    if (valid()) {
        ++table[slot_].users;
        descriptor_ = table[slot_].descriptor;
    }
}

device_use::~device_use() {
    if (!valid())
        return;
    bool close_now = false;
    {
        const table_lock lock;
        --table[slot_].users;
        close_now = table[slot_].users == 0 && table[slot_].handle == 0;
    }
    if (close_now)
        (void)close_descriptor(descriptor_); // whoever closed the handle has had its answer
}

} // namespace ybd
