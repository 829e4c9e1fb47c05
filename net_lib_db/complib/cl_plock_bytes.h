// SPDX-License-Identifier: Apache-2.0
//
// Where the announcements of a lock's takers stand on the file of its segment: each is a lock on one byte, see
// cl_plock_owner.h. Shared by all processes of the stack, as the segments are; ybnetctl reads them, too.
#ifndef YBNET_COMPLIB_CL_PLOCK_BYTES_H
#define YBNET_COMPLIB_CL_PLOCK_BYTES_H

#include <cstdint>
#include <sys/types.h>

namespace cl_plock_bytes {

// Beyond any file; thread id above PID namespace, so that all bytes of one id are one range.
constexpr off_t bytes_begin = off_t{1} << 60;
constexpr int id_shift = 32;
constexpr off_t bytes_of_one_id = off_t{1} << id_shift;

constexpr off_t first_byte_of(uint32_t id) {
    return bytes_begin + (static_cast<off_t>(id) << id_shift);
}

} // namespace cl_plock_bytes

#endif
