// SPDX-License-Identifier: Apache-2.0
//
// A segment taken apart by the table of fields: what `ybnetctl dump` prints and
// `ybnetctl diff` compares.
#ifndef YBNET_YBNETCTL_SEE_DUMP_H
#define YBNET_YBNETCTL_SEE_DUMP_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/ybnetctl/segments/segment_copy.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

// Which elements of a region: those with something in them (is_used()), or all.
struct dump_choice {
    bool all = false;
    bool offsets = false; // text only: JSON always has them
};

// One record a block, one field a line, for people and for text tools.
void write_dump(std::ostream &out, const segment_copy &copy, const dump_choice &choice);
json dump_json(const segment_copy &copy, const dump_choice &choice);

struct changed_field {
    std::string name;
    std::string before;
    std::string after;
    json before_value;
    json after_value;
};

enum class change_kind { added, removed, changed };

// One record or number that differs.
struct difference {
    change_kind kind = change_kind::changed;
    std::string region;
    size_t before_index = 0; // of an added one: as after
    size_t after_index = 0;  // of a removed one: as before
    bool has_key = false;
    uint32_t sys_ifindex = 0;          // where it has a key
    std::vector<changed_field> fields; // before is "" in an added record, after in a removed one
};

struct comparison {
    std::vector<difference> differences;
    size_t hidden =
        0; // in free slots, lock words and other bytes that are not looked at unless all is chosen
};

// Two readings of the same kind. Records are told apart by their system ifindex, so that one that lies elsewhere in
// the table is a change of its index; what has no key is compared where it lies.
comparison compare(const segment_copy &before, const segment_copy &after, const dump_choice &choice);

} // namespace ybnetctl

#endif
