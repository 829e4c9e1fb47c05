// SPDX-License-Identifier: Apache-2.0
//
// The bytes of both segments, field by field: one table from which dumps and
// comparisons are decoded and the format pages of the documentation are made.
// The offsets come from the structures of net_lib_db_layout.h; that no byte is
// left out and none is named twice is tested.
#ifndef YBNET_YBNETCTL_SEGMENTS_FIELDS_H
#define YBNET_YBNETCTL_SEGMENTS_FIELDS_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace ybnetctl {

enum class field_kind {
    number,   // unsigned, of 1, 2, 4 or 8 bytes
    hex,      // the same, read best as hexadecimal: logical ports, lock words
    text,     // characters, ended by a NUL or by the field's end
    bytes,    // opaque
    reserved, // kept by every writer, meaning nothing
};

// Which records of a structure have the field; the interface record has one part for each interface type.
constexpr uint32_t every_type = UINT32_MAX;

struct field {
    const char *name; // also the key in JSON
    size_t offset;    // in the structure
    size_t size;      // of one element
    size_t count;     // of elements; more than 1 is an array
    field_kind kind;
    uint32_t type; // every_type, or the YB_L2_INTERFACE_TYPE_* whose records have it
    const char *meaning;
};

struct structure {
    const char *name; // as in net_lib_db_layout.h
    size_t size;
    std::span<const field> fields;
    const char *meaning;
};

extern const structure interface_entry_structure;
extern const structure port_entry_structure;
extern const structure trailer_structure;

// One run of equal things in a segment: an array of structures or of plain numbers, or the trailer.
struct region {
    const char *name;
    size_t offset;
    size_t count;
    const structure *element; // NULL: plain numbers of element_size bytes
    size_t element_size;
    field_kind kind; // of plain numbers
    const char *meaning;
};

enum class segment_kind { interfaces, ports };

struct segment_format {
    segment_kind kind;
    const char *name; // "/net_lib_ifc", as for shm_open(3)
    size_t size;
    size_t trailer_offset;
    std::span<const region> regions;
    const char *meaning;
};

const segment_format &format_of(segment_kind kind);

} // namespace ybnetctl

#endif
