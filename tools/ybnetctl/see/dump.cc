// SPDX-License-Identifier: Apache-2.0
//
// `ybnetctl dump`: every byte of a segment by its name. See dump.h; diff.cc is its
// neighbour.
#include "tools/ybnetctl/see/dump.h"

#include <array>
#include <cstdio>
#include <ostream>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/see/diff.h"
#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

struct dump_options {
    std::string which = "all";
    dump_choice choice;
};

std::string offset_text(size_t offset, const dump_choice &choice) {
    if (!choice.offsets)
        return "";
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%06zx  ", offset);
    return text.data();
}

void write_record(std::ostream &out, const region &where, size_t index, const std::byte *record,
                  const dump_choice &choice) {
    const size_t offset = where.offset + index * where.element_size;
    out << '\n' << where.name;
    if (where.count > 1)
        out << '[' << index << ']';
    out << '\n';
    for (const field *each : fields_of(*where.element, record)) {
        if (each->kind == field_kind::reserved && !choice.all)
            continue;
        out << "  " << offset_text(offset + each->offset, choice) << each->name << " = "
            << field_text(*each, record) << '\n';
    }
}

void write_numbers(std::ostream &out, const region &where, const std::byte *first,
                   const dump_choice &choice) {
    out << '\n' << where.name << '\n';
    for (size_t i = 0; i < where.count; i++) {
        const std::byte *const element = first + i * where.element_size;
        if (choice.all || is_used(where, element))
            out << "  " << offset_text(where.offset + i * where.element_size, choice) << '[' << i
                << "] = " << number_text(where, element) << '\n';
    }
}

json region_json(const region &where, const std::byte *first, const dump_choice &choice) {
    json object;
    object["name"] = where.name;
    object["offset"] = where.offset;
    object["count"] = where.count;
    const char *const key = where.element != nullptr ? "records" : "values";
    object[key] = json::array();
    for (size_t i = 0; i < where.count; i++) {
        const std::byte *const element = first + i * where.element_size;
        if (!choice.all && !is_used(where, element))
            continue;
        json one;
        one["index"] = i;
        one["offset"] = where.offset + i * where.element_size;
        if (where.element != nullptr)
            one["fields"] = record_json(*where.element, element);
        else
            one["value"] = number_at(element, where.element_size);
        object[key].push_back(std::move(one));
    }
    return object;
}

void dump(session &run, const dump_options &options) {
    std::vector<segment_copy> copies;
    for (const auto &[kind, name] :
         {std::pair{segment_kind::interfaces, "interfaces"}, std::pair{segment_kind::ports, "ports"}}) {
        if (options.which == name)
            copies.push_back(read_contents(run, kind));
        else if (options.which == "all" && read_segment(run, kind, reading::once).present)
            copies.push_back(read_contents(run, kind));
    }
    if (copies.empty())
        throw failure{exit_code::not_found,
                      "databases",
                      "there are none: not loaded, or their files were deleted",
                      "ybnetctl status",
                      {}};
    if (run.json_wanted) {
        json document;
        document["segments"] = json::array();
        for (const segment_copy &copy : copies)
            document["segments"].push_back(dump_json(copy, options.choice));
        print(run, document);
        return;
    }
    for (const segment_copy &copy : copies) {
        if (&copy != &copies.front())
            run.out << '\n';
        write_dump(run.out, copy, options.choice);
        warn_when_unsettled(run, copy);
    }
}

} // namespace

void write_dump(std::ostream &out, const segment_copy &copy, const dump_choice &choice) {
    out << "# " << printable(copy.path) << ": " << copy.format().meaning << ", " << copy.size << " bytes\n";
    for (const region &where : copy.format().regions) {
        const std::byte *const first = copy.bytes.data() + where.offset;
        if (where.element == nullptr) {
            write_numbers(out, where, first, choice);
            continue;
        }
        for (size_t i = 0; i < where.count; i++) {
            const std::byte *const record = first + i * where.element_size;
            if (choice.all || is_used(where, record))
                write_record(out, where, i, record, choice);
        }
    }
}

json dump_json(const segment_copy &copy, const dump_choice &choice) {
    json object;
    object["name"] = copy.format().name;
    object["path"] = copy.path;
    object["size"] = copy.size;
    object["settled"] = copy.settled;
    object["lock_seen_free"] = copy.lock_seen_free;
    object["regions"] = json::array();
    for (const region &where : copy.format().regions)
        object["regions"].push_back(region_json(where, copy.bytes.data() + where.offset, choice));
    return object;
}

void add_dump_commands(command_line &line) {
    CLI::App *const command = add_command<dump_options>(
        &line.app(), line, "dump", "Whole segments, field by field",
        [](CLI::App &app, dump_options &o) {
            app.add_option("WHICH", o.which, "which of them")
                ->check(CLI::IsMember({"interfaces", "ports", "all"}))
                ->capture_default_str();
            app.add_flag("--all", o.choice.all, "free slots, empty buckets, zeros and reserved bytes too");
            app.add_flag("--offsets", o.choice.offsets, "with the offset of each field in the segment");
        },
        dump,
        {{"ybnetctl dump interfaces", "every record, a field a line"},
         {"ybnetctl dump ports --offsets", "with their places in the file"},
         {"ybnetctl dump --json | jq '.segments[].name'", "which segments there are"}});
    line.add_notes(
        command,
        "The fields are those of net_lib_ifc(5) and net_lib_port(5). Removed ports' buckets are shown: they "
        "have their deleted field set.\n\n"
        "JSON: segments, each with name, path, size, settled, lock_seen_free and regions; a region has name, "
        "offset, count, and records (index, offset, fields) or, where it is made of plain numbers, values "
        "(index, offset, value). Opaque and reserved bytes are texts in hexadecimal.");
    add_diff_command(line);
}

} // namespace ybnetctl
