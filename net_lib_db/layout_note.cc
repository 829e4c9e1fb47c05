// SPDX-License-Identifier: Apache-2.0
//
// See layout_note.h. Data only, complete at compile time: nothing of it is read
// at run time by the library itself.
#include "net_lib_db/layout_note.h"

#include <elf.h>

#include "ybnet/net_lib_db_layout.h"

namespace {

// A field's place and size in its structure.
struct field_place {
    size_t offset;
    size_t size;
};
#define FIELD(type, field)                                                                                   \
    { offsetof(type, field), sizeof(static_cast<type *>(nullptr)->field) }

constexpr field_place trailer_fields[] = {
    FIELD(net_lib_db_trailer_t, plock.state),
    FIELD(net_lib_db_trailer_t, initialized_marker),
    FIELD(net_lib_db_trailer_t, user_count),
    FIELD(net_lib_db_trailer_t, size_check),
};

constexpr field_place interface_fields[] = {
    FIELD(net_lib_db_interface_entry_t, record.sys_ifindex),
    FIELD(net_lib_db_interface_entry_t, record.linux_ifindex),
    FIELD(net_lib_db_interface_entry_t, record.params.name),
    FIELD(net_lib_db_interface_entry_t, record.params.ns_name),
    FIELD(net_lib_db_interface_entry_t, record.params.vrf_name),
    FIELD(net_lib_db_interface_entry_t, record.params.vrf_valid),
    FIELD(net_lib_db_interface_entry_t, record.params.type),
    FIELD(net_lib_db_interface_entry_t, record.params.by_type.vlan.swid),
    FIELD(net_lib_db_interface_entry_t, record.params.by_type.vlan.vlan_id),
    FIELD(net_lib_db_interface_entry_t, record.params.by_type.vlan.name_format),
    FIELD(net_lib_db_interface_entry_t, record.params.by_type.vlan.parent_given),
    FIELD(net_lib_db_interface_entry_t, record.params.by_type.vlan.parent_name),
    FIELD(net_lib_db_interface_entry_t, record.params.by_type.port_vlan.vlan_id),
    FIELD(net_lib_db_interface_entry_t, record.params.by_type.port_vlan.port_name),
    FIELD(net_lib_db_interface_entry_t, record.params.by_type.port.value1),
    FIELD(net_lib_db_interface_entry_t, record.params.by_type.port.value2),
    FIELD(net_lib_db_interface_entry_t, record.rif),
    FIELD(net_lib_db_interface_entry_t, record.vrid),
    FIELD(net_lib_db_interface_entry_t, in_use),
};

constexpr field_place port_fields[] = {
    FIELD(net_lib_port_entry_t, sys_ifindex),
    FIELD(net_lib_port_entry_t, info.attr_a),
    FIELD(net_lib_port_entry_t, info.attr_b),
    FIELD(net_lib_port_entry_t, info.attr_c),
    FIELD(net_lib_port_entry_t, info.protocol),
    FIELD(net_lib_port_entry_t, info.log_port),
    FIELD(net_lib_port_entry_t, info.lag_log_port),
    FIELD(net_lib_port_entry_t, info.attr_d),
    FIELD(net_lib_port_entry_t, info.attr_e),
    FIELD(net_lib_port_entry_t, info.mlag_id),
    FIELD(net_lib_port_entry_t, info.name),
    FIELD(net_lib_port_entry_t, info.attr_f),
    FIELD(net_lib_port_entry_t, info.attr_g),
    FIELD(net_lib_port_entry_t, info.attr_h),
    FIELD(net_lib_port_entry_t, info.attr_i),
    FIELD(net_lib_port_entry_t, deleted),
    FIELD(net_lib_port_entry_t, hash),
    FIELD(net_lib_db_ports_segment_t, lag_to_mlag),
    FIELD(net_lib_db_ports_segment_t, mlag_to_lag),
    FIELD(net_lib_db_ports_segment_t, lag_to_ifindex),
    FIELD(net_lib_db_ports_segment_t, port_to_ifindex),
};

// FNV-1a, 32 bits, a word at a time: enough to tell layouts that developers make from each other.
constexpr uint32_t fingerprint_basis = 0x811C9DC5;
constexpr uint32_t fingerprint_prime = 0x01000193;

template <size_t count>
constexpr uint32_t fingerprint(const field_place (&fields)[count], uint32_t value = fingerprint_basis) {
    for (const field_place &field : fields) {
        value = (value ^ static_cast<uint32_t>(field.offset)) * fingerprint_prime;
        value = (value ^ static_cast<uint32_t>(field.size)) * fingerprint_prime;
    }
    return value;
}

// One segment's part, from the types of the segment and of its record; segment_name needs its NUL to fit.
template <typename segment_t, typename record_t, size_t name_size>
constexpr layout_note_segment describe(const char (&segment_name)[name_size], uint32_t record_count,
                                       uint32_t fields_fingerprint) {
    constexpr size_t trailer = offsetof(segment_t, trailer);
    constexpr size_t lock = trailer + offsetof(net_lib_db_trailer_t, plock);
    static_assert(name_size <= sizeof(layout_note_segment::name));
    static_assert(trailer + sizeof(net_lib_db_trailer_t) == sizeof(segment_t),
                  "the trailer ends the segment");
    layout_note_segment segment = {
        .name = {},
        .size = sizeof(segment_t),
        .record_size = sizeof(record_t),
        .record_count = record_count,
        .trailer_offset = trailer,
        .trailer_size = sizeof(net_lib_db_trailer_t),
        .lock_offset = lock,
        .lock_size = sizeof(cl_plock_t),
        .lock_format = LAYOUT_NOTE_LOCK_RWLOCK,
        .lock_state_offset = lock + offsetof(cl_plock_t, state),
        .marker_offset = trailer + offsetof(net_lib_db_trailer_t, initialized_marker),
        .user_count_offset = trailer + offsetof(net_lib_db_trailer_t, user_count),
        .size_check_offset = trailer + offsetof(net_lib_db_trailer_t, size_check),
        .fields_fingerprint = fields_fingerprint,
    };
    for (size_t i = 0; i < name_size; i++)
        segment.name[i] = segment_name[i];
    return segment;
}

struct layout_note {
    Elf64_Nhdr header;
    char owner[8]; // padded to the alignment of notes
    layout_note_description description;
};
static_assert(sizeof(Elf64_Nhdr) == 12 && alignof(layout_note) == 4);
static_assert(offsetof(layout_note, description) == 20 && sizeof(layout_note) == 204);

// Nobody refers to it: used keeps it through compilation, retain through a link with --gc-sections. Readers of
// notes refuse the alignment that compilers like to give to large constants.
[[gnu::used, gnu::retain, gnu::section(LAYOUT_NOTE_SECTION), gnu::aligned(4)]] constexpr layout_note note = {
    .header = {sizeof(LAYOUT_NOTE_OWNER), sizeof(layout_note_description), LAYOUT_NOTE_TYPE},
    .owner = LAYOUT_NOTE_OWNER,
    .description =
        {
            .version = LAYOUT_NOTE_VERSION,
            .segment_count = LAYOUT_NOTE_SEGMENTS,
            .segment_stride = sizeof(layout_note_segment),
            .reserved = 0,
            .segments =
                {
                    describe<net_lib_db_interfaces_segment_t, net_lib_db_interface_entry_t>(
                        YB_NET_INTERFACES_SEGMENT_NAME, YB_NET_INTERFACES_MAX,
                        fingerprint(interface_fields, fingerprint(trailer_fields))),
                    describe<net_lib_db_ports_segment_t, net_lib_port_entry_t>(
                        YB_NET_PORTS_SEGMENT_NAME, YB_NET_PORTS_MAX,
                        fingerprint(port_fields, fingerprint(trailer_fields))),
                },
        },
};

} // namespace
