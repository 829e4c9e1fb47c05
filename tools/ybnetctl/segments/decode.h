// SPDX-License-Identifier: Apache-2.0
//
// Bytes of a segment as values, by the table of fields (fields.h): for dumps,
// comparisons and the complete view of one record.
#ifndef YBNET_YBNETCTL_SEGMENTS_DECODE_H
#define YBNET_YBNETCTL_SEGMENTS_DECODE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/ybnetctl/segments/fields.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

// Little-endian, of 1 to 8 bytes.
uint64_t number_at(const std::byte *bytes, size_t size);

// Up to the first NUL or the end of the field, whatever the bytes are.
std::string text_at(const std::byte *bytes, size_t size);

// A number of 1 to 4 bytes as C writes it: "0x10100".
std::string hexadecimal(uint64_t number);

// The fields that this record has, in the table's order. An interface record of a type that the table does not know
// has its type-dependent part as one field of opaque bytes: no byte is ever left out.
std::vector<const field *> fields_of(const structure &what, const std::byte *record);

// One field of a record, for people (0x10100, "swp1", [1, 2, 3], 00 00 ff) and for JSON, where opaque bytes are such
// a text too.
std::string field_text(const field &what, const std::byte *record);
json field_json(const field &what, const std::byte *record);

// One number of a region of plain numbers.
std::string number_text(const region &where, const std::byte *element);

// All fields of a record by name.
json record_json(const structure &what, const std::byte *record);

// Whether a record, or a plain number, is worth showing: a slot in use, a bucket or a number with anything in it.
bool is_used(const region &where, const std::byte *element);

} // namespace ybnetctl

#endif
