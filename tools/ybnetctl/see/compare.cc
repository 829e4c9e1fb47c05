// SPDX-License-Identifier: Apache-2.0
//
// The comparison of dump.h, without any printing.
#include <algorithm>
#include <cstring>
#include <map>
#include <set>

#include "tools/ybnetctl/see/dump.h"
#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/segments/port_search.h"

namespace ybnetctl {

namespace {

// A record's key, and how many records with the same key lie before it.
using record_key = std::pair<uint32_t, size_t>;

struct keyed_records {
    std::map<record_key, size_t> index_of;
    std::set<size_t> indexes;
};

bool has_key(const region &where, const std::byte *record) {
    if (where.element == &interface_entry_structure)
        return is_used(where, record);
    if (where.element != &port_entry_structure)
        return false;
    const bucket_state state = state_of(*reinterpret_cast<const net_lib_port_entry_t *>(record));
    return state == bucket_state::recorded || state == bucket_state::uncounted;
}

// Both structures begin with their key.
uint32_t key_of(const std::byte *record) {
    return static_cast<uint32_t>(number_at(record, sizeof(uint32_t)));
}

keyed_records keys_in(const region &where, const std::byte *first) {
    keyed_records found;
    std::map<uint32_t, size_t> seen;
    for (size_t i = 0; i < where.count; i++) {
        const std::byte *const record = first + i * where.element_size;
        if (!has_key(where, record))
            continue;
        const uint32_t key = key_of(record);
        found.index_of[{key, seen[key]++}] = i;
        found.indexes.insert(i);
    }
    return found;
}

bool is_lock_word(const field &each) {
    return std::strncmp(each.name, "lock_", 5) == 0 && std::strcmp(each.name, "lock_state") != 0;
}

// What a reader looks at only when asked to: bytes that mean nothing, and the words of a lock, which move by themselves.
bool is_hidden(const field &each, const dump_choice &choice) {
    return !choice.all && (each.kind == field_kind::reserved || is_lock_word(each));
}

changed_field change_of(const field &each, const std::byte *before, const std::byte *after) {
    changed_field change;
    change.name = each.name;
    if (before != nullptr) {
        change.before = field_text(each, before);
        change.before_value = field_json(each, before);
    }
    if (after != nullptr) {
        change.after = field_text(each, after);
        change.after_value = field_json(each, after);
    }
    return change;
}

// All that one of two records has (the other is NULL), or what differs between them.
std::vector<changed_field> fields_changed(const structure &what, const std::byte *before,
                                          const std::byte *after, const dump_choice &choice, size_t *hidden) {
    std::vector<changed_field> changes;
    const auto collect = [&](const field &each, const std::byte *one, const std::byte *other) {
        if (is_hidden(each, choice))
            ++*hidden;
        else
            changes.push_back(change_of(each, one, other));
    };
    if (before == nullptr || after == nullptr) {
        for (const field *each : fields_of(what, before != nullptr ? before : after)) {
            if (!is_hidden(*each, choice))
                changes.push_back(change_of(*each, before, after));
        }
        return changes;
    }
    const std::vector<const field *> in_before = fields_of(what, before);
    const std::vector<const field *> in_after = fields_of(what, after);
    const auto has = [](const std::vector<const field *> &list, const field *one) {
        return std::find(list.begin(), list.end(), one) != list.end();
    };
    for (const field *each : in_before) {
        if (!has(in_after, each))
            collect(*each, before, nullptr); // of another type
        else if (std::memcmp(before + each->offset, after + each->offset, each->size * each->count) != 0)
            collect(*each, before, after);
    }
    for (const field *each : in_after) {
        if (!has(in_before, each))
            collect(*each, nullptr, after);
    }
    return changes;
}

class comparer {
  public:
    comparer(const region &where, const std::byte *before, const std::byte *after, const dump_choice &choice,
             comparison &result)
        : where_(where), before_(before), after_(after), choice_(choice), result_(result) {}

    void run() {
        if (where_.element == nullptr) {
            compare_numbers();
            return;
        }
        const keyed_records in_before = keys_in(where_, before_);
        const keyed_records in_after = keys_in(where_, after_);
        for (const auto &[key, index] : in_before.index_of) {
            const auto other = in_after.index_of.find(key);
            if (other == in_after.index_of.end())
                add_record(change_kind::removed, index, index);
            else
                add_record(change_kind::changed, index, other->second);
        }
        for (const auto &[key, index] : in_after.index_of) {
            if (in_before.index_of.count(key) == 0)
                add_record(change_kind::added, index, index);
        }
        compare_the_rest(in_before, in_after);
    }

  private:
    [[nodiscard]] const std::byte *at(const std::byte *first, size_t index) const {
        return first + index * where_.element_size;
    }
    [[nodiscard]] bool same(size_t before_index, size_t after_index) const {
        return std::memcmp(at(before_, before_index), at(after_, after_index), where_.element_size) == 0;
    }

    void add_record(change_kind kind, size_t before_index, size_t after_index) {
        if (kind == change_kind::changed && before_index == after_index && same(before_index, after_index))
            return;
        const std::byte *const before = kind == change_kind::added ? nullptr : at(before_, before_index);
        const std::byte *const after = kind == change_kind::removed ? nullptr : at(after_, after_index);
        difference one{kind,        where_.name, before_index,
                       after_index, true,        key_of(after != nullptr ? after : before),
                       {}};
        one.fields = fields_changed(*where_.element, before, after, choice_, &result_.hidden);
        if (!one.fields.empty() || before_index != after_index)
            result_.differences.push_back(std::move(one));
    }

    // Slots that hold no record in either reading: free ones, removed ports, the trailer.
    void compare_the_rest(const keyed_records &in_before, const keyed_records &in_after) {
        const bool counts = where_.element == &trailer_structure;
        for (size_t i = 0; i < where_.count; i++) {
            if (in_before.indexes.count(i) != 0 || in_after.indexes.count(i) != 0 || same(i, i))
                continue;
            if (!counts && !choice_.all) {
                result_.hidden++;
                continue;
            }
            difference one{change_kind::changed, where_.name, i, i, false, 0, {}};
            one.fields =
                fields_changed(*where_.element, at(before_, i), at(after_, i), choice_, &result_.hidden);
            if (!one.fields.empty())
                result_.differences.push_back(std::move(one));
        }
    }

    void compare_numbers() {
        for (size_t i = 0; i < where_.count; i++) {
            if (same(i, i))
                continue;
            const std::byte *const before = at(before_, i);
            const std::byte *const after = at(after_, i);
            difference one{change_kind::changed, where_.name, i, i, false, 0, {}};
            one.fields.push_back({"value", number_text(where_, before), number_text(where_, after),
                                  number_at(before, where_.element_size),
                                  number_at(after, where_.element_size)});
            result_.differences.push_back(std::move(one));
        }
    }

    const region &where_;
    const std::byte *before_;
    const std::byte *after_;
    const dump_choice &choice_;
    comparison &result_;
};

} // namespace

comparison compare(const segment_copy &before, const segment_copy &after, const dump_choice &choice) {
    comparison result;
    for (const region &where : before.format().regions)
        comparer(where, before.bytes.data() + where.offset, after.bytes.data() + where.offset, choice, result)
            .run();
    return result;
}

} // namespace ybnetctl
