// SPDX-License-Identifier: Apache-2.0
//
// See man_page.h.
#include "tools/ybnetctl/pages/man_page.h"

#include <array>
#include <cstdio>
#include <sstream>

#include "tools/ybnetctl/change/batch.h"
#include "tools/ybnetctl/change/changing.h"
#include "tools/ybnetctl/option_words.h"

namespace ybnetctl {

namespace {

// No date of the build: two builds of one source make the same page.
constexpr const char *page_date = "November 21, 2026";

// The words of a macro's line: quoted, so that none of them is a macro again.
std::string quoted(const std::string &words) {
    std::string text = "\"";
    for (const char each : words) {
        if (each == '"')
            text += "\\(dq";
        else if (each == '\\')
            text += "\\e";
        else if (each == '-')
            text += "\\-";
        else
            text += each;
    }
    return text + '"';
}

// Each sentence in a line of its own, as roff wants them.
std::string in_sentences(const std::string &text) {
    std::string lines;
    for (size_t at = 0; at < text.size();) {
        const size_t stop = text.find(". ", at);
        const size_t length = stop == std::string::npos ? text.size() - at : stop + 1 - at;
        lines += (lines.empty() ? "" : "\n") + roff(text.substr(at, length));
        at += length + 1;
    }
    return lines;
}

void write_literal(std::ostream &out, const std::string &lines) {
    out << ".Bd -literal -offset indent\n" << lines << ".Ed\n";
}

void write_paragraphs(std::ostream &out, const std::string &text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        out << (line.empty() ? ".Pp" : in_sentences(line)) << '\n';
}

void write_options(std::ostream &out, const CLI::App *command, bool with_help) {
    bool opened = false;
    for (const CLI::Option *option : command->get_options()) {
        if (option->get_name() == "--help" && !with_help)
            continue;
        if (!opened)
            out << ".Bl -tag -width Ds\n";
        opened = true;
        out << ".It " << (option->get_positional() ? "Ar " : "Sy ") << quoted(usage_of(option)) << '\n'
            << in_sentences(description_of(option)) << ".\n";
    }
    if (opened)
        out << ".El\n";
}

void write_examples(std::ostream &out, const command_line &line, const CLI::App *command) {
    std::string examples;
    for (const example &each : line.examples_of(command))
        examples += roff(each.line) + "\n    " + roff(each.shows) + '\n';
    if (!examples.empty())
        write_literal(out, examples);
}

void write_command(std::ostream &out, const command_line &line, const CLI::App *command) {
    out << ".Ss " << quoted(synopsis_of(command).substr(sizeof("ybnetctl"))) << '\n'
        << in_sentences(command->get_description()) << ".\n";
    write_options(out, command, false);
    if (const std::string &notes = line.notes_of(command); !notes.empty()) {
        out << ".Pp\n";
        write_paragraphs(out, notes);
    }
    write_examples(out, line, command);
}

std::string offset_words(size_t offset) {
    std::array<char, 32> words{};
    (void)std::snprintf(words.data(), words.size(), "0x%zX", offset);
    return words.data();
}

const char *kind_words(field_kind kind) {
    switch (kind) {
    case field_kind::number:
        return "number";
    case field_kind::hex:
        return "number";
    case field_kind::text:
        return "text";
    case field_kind::bytes:
        return "bytes";
    case field_kind::reserved:
        break;
    }
    return "reserved";
}

std::string type_words(uint32_t type) {
    switch (type) {
    case 0:
        return " (VLAN)";
    case 1:
        return " (PORT_VLAN)";
    case 2:
        return " (PORT)";
    case 3:
        return " (PKEY)";
    case 6:
        return " (LOOPBACK)";
    default:
        return "";
    }
}

void write_structure(std::ostream &out, const structure &layout) {
    out << ".Ss " << quoted(std::string(layout.name) + ", " + std::to_string(layout.size) + " bytes") << '\n'
        << "The bytes of " << roff(layout.meaning) << ":\n"
        << ".Bl -column \"Offset\" \"16 x 4\" \"reserved\" \"lock_write_phase_futex\"\n"
        << ".It Sy Offset Ta Sy Size Ta Sy Kind Ta Sy Field\n";
    for (const field &each : layout.fields) {
        const std::string size = each.count == 1
                                     ? std::to_string(each.size)
                                     : std::to_string(each.count) + " x " + std::to_string(each.size);
        out << ".It " << each.offset << " Ta " << size << " Ta " << kind_words(each.kind) << " Ta "
            << quoted(each.name + type_words(each.type)) << '\n';
    }
    out << ".El\n.Pp\n.Bl -tag -width \"lock_current_writer\" -compact\n";
    for (const field &each : layout.fields)
        if (each.kind != field_kind::reserved)
            out << ".It " << each.name << '\n'
                << roff(std::string(each.meaning) + type_words(each.type)) << ".\n";
    out << ".El\n";
}

} // namespace

std::string roff(const std::string &text) {
    std::string shown;
    for (const char each : text) {
        if (each == '\\')
            shown += "\\e";
        else if (each == '-')
            shown += "\\-";
        else
            shown += each;
    }
    return !shown.empty() && (shown.front() == '.' || shown.front() == '\'') ? "\\&" + shown : shown;
}

std::string man_page_of(const command_line &line) {
    const CLI::App &app = line.app();
    std::ostringstream out;
    out << ".\\\" SPDX-License-Identifier: Apache-2.0\n"
        << ".\\\" Made from the tool's option table; do not edit.\n"
        << ".Dd " << page_date << "\n.Dt YBNETCTL 8\n.Os ybnet\n"
        << ".Sh NAME\n.Nm ybnetctl\n.Nd see and change what libybnet keeps\n"
        << ".Sh SYNOPSIS\n.Nm\n.Op Ar OPTIONS\n.Ar COMMAND ...\n.Nm\n.Op Ar OPTIONS\n.Fl b Ar FILE\n"
        << ".Sh DESCRIPTION\n"
        << roff(app.get_description()) << "\n.Pp\n"
        << "Commands that only look change nothing, create nothing, register nowhere and take no lock: they "
           "read a\n"
        << "segment until two readings agree, so they work beside a lock holder that is slow, stopped or "
           "dead.\n"
        << "Commands that change something start the library, like any process of the stack.\n"
        << ".Pp\nNumbers are decimal, or hexadecimal behind 0x; one with a leading 0, which is octal "
           "elsewhere, is "
           "refused.\n"
        << ".Pp\nOptions may stand before or behind the command:\n";
    write_options(out, &app, true);
    out << ".Sh COMMANDS\n";
    for (const CLI::App *command : leaves_of(&app))
        write_command(out, line, command);
    out << ".Sh BATCH\n";
    write_paragraphs(out, batch_rules);
    out << ".Sh JSON\n"
        << "With\n.Sy \\-\\-json\n"
        << "standard output carries exactly one document, or one object a line where a command says so.\n"
        << "A failure is\n"
        << ".Bd -literal -offset indent\n"
        << "{\"error\": {\"thing\": ..., \"reason\": ..., \"advice\": ..., \"status\": ..., \"exit_code\": "
           "...}}\n"
        << ".Ed\n.Pp\n"
        << "where status is the library's status by name, or null.\n"
        << "--version prints {\"version\": ...} and --help {\"help\": ...}.\n.Pp\n";
    write_paragraphs(out, dry_run_keys);
    out << ".Pp\nKeys stay; new ones may come.\n"
        << ".Sh ENVIRONMENT\n.Bl -tag -width NO_COLOR\n.It Ev NO_COLOR\nSet and not empty: no colour.\n.El\n"
        << ".Sh FILES\n.Bl -tag -width Ds\n"
        << ".It Pa /dev/shm/net_lib_ifc\nThe interfaces segment,\n.Xr net_lib_ifc 5 .\n"
        << ".It Pa /dev/shm/net_lib_port\nThe ports segment,\n.Xr net_lib_port 5 .\n.El\n"
        << ".Sh EXIT STATUS\n.Bl -tag -width Ds -compact\n"
        << ".It 0\nDone.\n.It 1\nFailed, or findings.\n.It 2\nUsage.\n.It 3\nWhat was asked for was not "
           "found.\n.El\n"
        << ".Sh EXAMPLES\n";
    write_examples(out, line, &app);
    out << ".Sh SEE ALSO\n.Xr net_lib_ifc 5 ,\n.Xr net_lib_port 5 ,\n.Xr ybnet 7 ,\n.Xr ip 8\n";
    return out.str();
}

std::string format_page_of(const segment_format &format) {
    const std::string name = format.name + 1; // without the slash
    std::string title = name;
    for (char &each : title)
        each = static_cast<char>(each >= 'a' && each <= 'z' ? each - 'a' + 'A' : each);
    std::ostringstream out;
    out << ".\\\" SPDX-License-Identifier: Apache-2.0\n"
        << ".\\\" Made from the table of fields; do not edit.\n"
        << ".Dd " << page_date << "\n.Dt " << title << " 5\n.Os ybnet\n"
        << ".Sh NAME\n.Nm " << name << "\n.Nd shared memory of libybnet: " << roff(format.meaning) << '\n'
        << ".Sh DESCRIPTION\n.Pa /dev/shm/" << name << "\nhas " << format.size
        << " bytes, little-endian, for x86\\-64 Linux with glibc.\nEvery process of the stack maps it.\n"
        << "Its layout is fixed: the size is its only version stamp, and a process refuses a segment of "
           "another size.\n"
        << ".Bl -column \"0x5815A0\" \"65536 x 84\" \"port_to_ifindex\" \"meaning\"\n"
        << ".It Sy Offset Ta Sy Size Ta Sy Name Ta Sy Holds\n";
    for (const region &each : format.regions)
        out << ".It " << offset_words(each.offset) << " Ta " << each.count << " x " << each.element_size
            << " Ta " << each.name << " Ta " << roff(each.meaning) << '\n';
    out << ".El\n.Pp\nA region of structures holds:\n";
    for (const region &each : format.regions)
        if (each.element != nullptr)
            write_structure(out, *each.element);
    out << ".Sh SEE ALSO\n.Xr ybnet 7 ,\n.Xr ybnetctl 8\n.Pp\nThe header\n.In ybnet/net_lib_db_layout.h\n"
        << "has the same as structures.\n";
    return out.str();
}

} // namespace ybnetctl
