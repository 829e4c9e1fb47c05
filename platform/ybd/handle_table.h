// SPDX-License-Identifier: Apache-2.0
//
// The open devices of the process: a small fixed table from handles to file
// descriptors. A handle is never 0 and is not given out again soon, so a stale
// one is recognised; a descriptor is not closed while it is being used.
#ifndef YBNET_PLATFORM_YBD_HANDLE_TABLE_H
#define YBNET_PLATFORM_YBD_HANDLE_TABLE_H

#include <cstdint>

namespace ybd {

constexpr uint32_t max_open_devices = 16;
// In place of the descriptor of a device that has none.
constexpr int soft_device_descriptor = -1;

// The new handle, or 0 when the table is full. The table owns descriptor from then on.
uint32_t table_add(int descriptor);

// Makes handle unknown. 0, or an errno value; EBADF when it was not open.
int table_remove(uint32_t handle);

// One use of an open device: valid() says whether the handle was open, and
// descriptor() stays open until the use ends even if the handle is closed.
class device_use {
  public:
    explicit device_use(uint32_t handle);
    ~device_use();
    device_use(const device_use &) = delete;
    device_use &operator=(const device_use &) = delete;

    bool valid() const {
        return slot_ < max_open_devices;
    }
    int descriptor() const {
        return descriptor_;
    }

  private:
    uint32_t slot_;
    int descriptor_;
};

} // namespace ybd

#endif
