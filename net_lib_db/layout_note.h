// SPDX-License-Identifier: Apache-2.0
//
// The ELF note in libybnet.so that tells the layout of both segments, so that a tool can see before a restart
// whether a new build fits the segments of the running one, without loading it. layout_note.cc fills it from
// the constants and structures of ybnet/net_lib_db_layout.h.
//
// Section ".note.ybnet.layout", loaded, four-byte aligned: an Elf64_Nhdr (elf(5)) of type LAYOUT_NOTE_TYPE, the
// owner "ybnet" with its NUL and padding to eight bytes, then layout_note_description. Little-endian.
//
// A reader takes the version first. It may read every version from 1 on as version 1: a later one appends to
// layout_note_segment, whose size it gives in segment_stride, or to the description behind the segments. What
// cannot be read that way gets another note type.
#ifndef YBNET_NET_LIB_DB_LAYOUT_NOTE_H
#define YBNET_NET_LIB_DB_LAYOUT_NOTE_H

#include <cstddef>
#include <cstdint>

#define LAYOUT_NOTE_SECTION ".note.ybnet.layout"
#define LAYOUT_NOTE_OWNER "ybnet"

constexpr uint32_t LAYOUT_NOTE_TYPE = 'L'; // 76: below 3 a note without a known owner is taken for a version
constexpr uint32_t LAYOUT_NOTE_VERSION = 1;
constexpr uint32_t LAYOUT_NOTE_SEGMENTS = 2;

// What the first 56 bytes of a lock are. Raised when they come to mean something else: builds that differ in
// it must not share a segment, whose size does not show the difference.
enum : uint32_t {
    LAYOUT_NOTE_LOCK_RWLOCK = 1 // glibc's pthread_rwlock_t
};

// One segment; offsets are from its start, sizes in bytes. Two builds may share it when all of this agrees.
struct layout_note_segment {
    char name[32];               // as shm_open(3) takes it, padded with NULs
    uint32_t size;               // of the segment: the value of its size check
    uint32_t record_size;        // of one record
    uint32_t record_count;       // how many there are, from offset 0 on
    uint32_t trailer_offset;     // where the trailer begins; what lies between is the ports segment's maps
    uint32_t trailer_size;       // to the segment's end
    uint32_t lock_offset;        // the lock
    uint32_t lock_size;          // with its state
    uint32_t lock_format;        // LAYOUT_NOTE_LOCK_*
    uint32_t lock_state_offset;  // CL_PLOCK_*, 4 bytes
    uint32_t marker_offset;      // the initialised marker, 1 byte
    uint32_t user_count_offset;  // 4 bytes
    uint32_t size_check_offset;  // 4 bytes
    uint32_t fields_fingerprint; // of the offset and size of every field in records, maps and trailer
};

struct layout_note_description {
    uint32_t version;        // LAYOUT_NOTE_VERSION
    uint32_t segment_count;  // LAYOUT_NOTE_SEGMENTS
    uint32_t segment_stride; // from one segment's beginning to the next one's
    uint32_t reserved;       // 0
    layout_note_segment segments[LAYOUT_NOTE_SEGMENTS];
};

static_assert(sizeof(layout_note_segment) == 84 && alignof(layout_note_segment) == 4);
static_assert(offsetof(layout_note_segment, size) == 32);
static_assert(offsetof(layout_note_segment, record_size) == 36);
static_assert(offsetof(layout_note_segment, record_count) == 40);
static_assert(offsetof(layout_note_segment, trailer_offset) == 44);
static_assert(offsetof(layout_note_segment, trailer_size) == 48);
static_assert(offsetof(layout_note_segment, lock_offset) == 52);
static_assert(offsetof(layout_note_segment, lock_size) == 56);
static_assert(offsetof(layout_note_segment, lock_format) == 60);
static_assert(offsetof(layout_note_segment, lock_state_offset) == 64);
static_assert(offsetof(layout_note_segment, marker_offset) == 68);
static_assert(offsetof(layout_note_segment, user_count_offset) == 72);
static_assert(offsetof(layout_note_segment, size_check_offset) == 76);
static_assert(offsetof(layout_note_segment, fields_fingerprint) == 80);
static_assert(sizeof(layout_note_description) == 184 && alignof(layout_note_description) == 4);
static_assert(offsetof(layout_note_description, version) == 0);
static_assert(offsetof(layout_note_description, segment_count) == 4);
static_assert(offsetof(layout_note_description, segment_stride) == 8);
static_assert(offsetof(layout_note_description, segments) == 16);

#endif
