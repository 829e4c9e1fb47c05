// SPDX-License-Identifier: Apache-2.0
//
// See decode.h.
#include "tools/ybnetctl/segments/decode.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/ybnetctl/table.h"
#include "ybnet/net_lib_db_layout.h"

namespace ybnetctl {

namespace {

constexpr field part_of_unknown_type = {"by_type",
                                        offsetof(net_lib_db_interface_entry_t, record.params.by_type),
                                        sizeof(yb_net_interface_params_t{}.by_type),
                                        1,
                                        field_kind::bytes,
                                        every_type,
                                        "type-dependent part of a type that is not known"};

std::string bytes_text(const std::byte *bytes, size_t size) {
    std::string text;
    for (size_t i = 0; i < size; i++) {
        std::array<char, 4> hex{};
        (void)std::snprintf(hex.data(), hex.size(), i == 0 ? "%02x" : " %02x",
                            std::to_integer<unsigned>(bytes[i]));
        text += hex.data();
    }
    return text;
}

std::string element_text(const field &what, const std::byte *element) {
    switch (what.kind) {
    case field_kind::number:
        return std::to_string(number_at(element, what.size));
    case field_kind::hex:
        return hexadecimal(number_at(element, what.size));
    case field_kind::text:
        return '"' + printable(text_at(element, what.size)) + '"';
    case field_kind::bytes:
    case field_kind::reserved:
        break;
    }
    return bytes_text(element, what.size);
}

json element_json(const field &what, const std::byte *element) {
    switch (what.kind) {
    case field_kind::number:
    case field_kind::hex:
        return number_at(element, what.size);
    case field_kind::text:
        return text_at(element, what.size);
    case field_kind::bytes:
    case field_kind::reserved:
        break;
    }
    return bytes_text(element, what.size);
}

bool all_zero(const std::byte *bytes, size_t size) {
    return std::all_of(bytes, bytes + size, [](std::byte each) { return each == std::byte{0}; });
}

} // namespace

uint64_t number_at(const std::byte *bytes, size_t size) {
    uint64_t number = 0;
    for (size_t i = size; i-- > 0;)
        number = number << 8 | std::to_integer<uint64_t>(bytes[i]);
    return number;
}

std::string text_at(const std::byte *bytes, size_t size) {
    const auto *const characters = reinterpret_cast<const char *>(bytes);
    return {characters, std::find(characters, characters + size, '\0')};
}

std::string hexadecimal(uint64_t number) {
    std::array<char, 20> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%llx", static_cast<unsigned long long>(number));
    return text.data();
}

std::vector<const field *> fields_of(const structure &what, const std::byte *record) {
    const bool by_type = &what == &interface_entry_structure;
    const size_t type_offset = offsetof(net_lib_db_interface_entry_t, record.params.type);
    const uint32_t type =
        by_type ? static_cast<uint32_t>(number_at(record + type_offset, sizeof(uint32_t))) : every_type;
    const bool known = !by_type || (type != every_type &&
                                    std::any_of(what.fields.begin(), what.fields.end(),
                                                [type](const field &each) { return each.type == type; }));
    std::vector<const field *> fields;
    for (const field &each : what.fields) {
        if (each.type != every_type && (!known || each.type != type))
            continue;
        if (!known && each.offset > part_of_unknown_type.offset &&
            (fields.empty() || fields.back()->offset < part_of_unknown_type.offset))
            fields.push_back(&part_of_unknown_type);
        fields.push_back(&each);
    }
    return fields;
}

std::string field_text(const field &what, const std::byte *record) {
    const std::byte *const at = record + what.offset;
    if (what.count == 1)
        return element_text(what, at);
    std::string text;
    for (size_t i = 0; i < what.count; i++)
        text += (i == 0 ? "[" : ", ") + element_text(what, at + i * what.size);
    return text + ']';
}

json field_json(const field &what, const std::byte *record) {
    const std::byte *const at = record + what.offset;
    if (what.count == 1)
        return element_json(what, at);
    json values = json::array();
    for (size_t i = 0; i < what.count; i++)
        values.push_back(element_json(what, at + i * what.size));
    return values;
}

std::string number_text(const region &where, const std::byte *element) {
    const uint64_t number = number_at(element, where.element_size);
    return where.kind == field_kind::hex ? hexadecimal(number) : std::to_string(number);
}

json record_json(const structure &what, const std::byte *record) {
    json fields = json::object();
    for (const field *each : fields_of(what, record))
        fields[each->name] = field_json(*each, record);
    return fields;
}

bool is_used(const region &where, const std::byte *element) {
    if (where.element == &interface_entry_structure)
        return element[offsetof(net_lib_db_interface_entry_t, in_use)] != std::byte{0};
    return where.element == &trailer_structure || !all_zero(element, where.element_size);
}

} // namespace ybnetctl
