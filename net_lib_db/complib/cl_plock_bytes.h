// SPDX-License-Identifier: Apache-2.0
//
// What a lock records of its owner, and where the announcements of owners stand on the file of its segment: each is a
// lock on one byte, see cl_plock_owner.h. Shared by all processes of the stack, as the segments are; ybnetctl reads
// them, too.
#ifndef YBNET_COMPLIB_CL_PLOCK_BYTES_H
#define YBNET_COMPLIB_CL_PLOCK_BYTES_H

#include <cstdint>
#include <sys/types.h>

namespace cl_plock_bytes {

// An owner, 31 bits: a thread id (the kernel's have 22 at most) and eight bits of the number of its PID namespace,
// without which namesakes in two namespaces would be taken for one another. Namespaces get their numbers one by one,
// so the lowest eight say most. Bit 31 of the word that it is recorded in is glibc's.
constexpr int id_bits = 22;
constexpr uint32_t id_mask = (1U << id_bits) - 1;
constexpr uint32_t space_mask = 0xFF;
// Instead of a namespace: of a thread that could not announce itself. Nobody can tell whether it lives.
constexpr uint32_t unannounced = 1U << 30;

constexpr uint32_t owner_of(uint32_t id, uint32_t space) {
    return id | (space & space_mask) << id_bits;
}
constexpr uint32_t id_of(uint32_t owner) {
    return owner & id_mask;
}

// Bytes beyond any file. All of one id are one range, and in that all of one owner.
constexpr off_t bytes_begin = off_t{1} << 60;
constexpr int id_shift = 32;
constexpr off_t bytes_of_one_id = off_t{1} << id_shift;
constexpr int space_shift = 24;
constexpr off_t bytes_of_one_owner = off_t{1} << space_shift;

constexpr off_t first_byte_of_id(uint32_t id) {
    return bytes_begin + (static_cast<off_t>(id) << id_shift);
}
constexpr off_t first_byte_of_owner(uint32_t owner) {
    return first_byte_of_id(id_of(owner)) +
           (static_cast<off_t>(owner >> id_bits & space_mask) << space_shift);
}
constexpr off_t byte_of(uint32_t id, uint32_t space) {
    return first_byte_of_owner(owner_of(id, space)) + (space >> 8);
}

} // namespace cl_plock_bytes

#endif
