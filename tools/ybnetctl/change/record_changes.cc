// SPDX-License-Identifier: Apache-2.0
//
// See record_changes.h.
#include "tools/ybnetctl/change/record_changes.h"

#include <cstring>

#include "tools/ybnetctl/segments/decode.h"
#include "ybnet/net_lib_db_layout.h"

namespace ybnetctl {

namespace {

using byte_span = std::span<const std::byte>;

constexpr const char *kernels_number = "(the kernel's)";

void add(const char *name, const std::string &from, const json &from_value, const std::string &to,
         const json &to_value, record_change *change) {
    json &fields = change->details["fields"];
    change->text += (fields.empty() ? ": " : ", ") + std::string(name) + ' ' + from + " -> " + to;
    fields.push_back({{"field", name}, {"from", from_value}, {"to", to_value}});
}

// Whose record it is, when that stays: both structures begin with their key.
std::string key_of(byte_span before, byte_span after) {
    const uint64_t key = number_at(after.data(), sizeof(uint32_t));
    return key != 0 && key == number_at(before.data(), sizeof(uint32_t))
               ? " (sys_ifindex " + std::to_string(key) + ')'
               : "";
}

void compare_records(const structure &element, byte_span before, byte_span after, const is_stand_in &stand_in,
                     record_change *change) {
    // Of the type-dependent part, the fields of the type that the record has afterwards.
    for (const field *const each : fields_of(element, after.data())) {
        const size_t size = each->size * each->count;
        if (std::memcmp(before.data() + each->offset, after.data() + each->offset, size) == 0)
            continue;
        const bool unknown = stand_in(*each, number_at(after.data() + each->offset, each->size));
        add(each->name, field_text(*each, before.data()), field_json(*each, before.data()),
            unknown ? kernels_number : field_text(*each, after.data()),
            unknown ? json(nullptr) : field_json(*each, after.data()), change);
    }
}

record_change compare_elements(const segment_format &format, const region &part, size_t index,
                               byte_span before, byte_span after, const is_stand_in &stand_in) {
    record_change change;
    change.text = std::string(part.name) + '[' + std::to_string(index) + ']';
    change.details = {
        {"segment", format.name}, {"region", part.name}, {"index", index}, {"fields", json::array()}};
    if (part.element == nullptr) {
        add("value", number_text(part, before.data()), number_at(before.data(), part.element_size),
            number_text(part, after.data()), number_at(after.data(), part.element_size), &change);
    } else {
        change.text += key_of(before, after);
        compare_records(*part.element, before, after, stand_in, &change);
    }
    return change;
}

} // namespace

std::vector<record_change> record_changes(const segment_format &format, byte_span before, byte_span after,
                                          const is_stand_in &stand_in) {
    std::vector<record_change> changes;
    for (const region &part : format.regions) {
        const size_t whole = part.count * part.element_size;
        if (part.offset >= format.trailer_offset ||
            std::memcmp(before.data() + part.offset, after.data() + part.offset, whole) == 0)
            continue;
        for (size_t index = 0; index < part.count; index++) {
            const size_t at = part.offset + index * part.element_size;
            const byte_span old_bytes = before.subspan(at, part.element_size);
            const byte_span new_bytes = after.subspan(at, part.element_size);
            if (std::memcmp(old_bytes.data(), new_bytes.data(), part.element_size) != 0)
                changes.push_back(compare_elements(format, part, index, old_bytes, new_bytes, stand_in));
        }
    }
    return changes;
}

} // namespace ybnetctl
