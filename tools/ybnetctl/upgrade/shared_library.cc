// SPDX-License-Identifier: Apache-2.0
//
// See shared_library.h. Sections: bytes; sections of the file; the three things
// that are read; the file.
#include "tools/ybnetctl/upgrade/shared_library.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/ybnetctl/kernel/namespaces.h"
#include "tools/ybnetctl/outcome.h"

namespace ybnetctl {

namespace {

// ---- Bytes ------------------------------------------------------------------

using bytes_view = std::span<const std::byte>;

// A part of the bytes, empty when it is not all there.
bytes_view part_of(bytes_view bytes, uint64_t offset, uint64_t size) {
    if (offset > bytes.size() || size > bytes.size() - offset)
        return {};
    return bytes.subspan(static_cast<size_t>(offset), static_cast<size_t>(size));
}

// Copied, for nothing in a file is aligned for certain.
template <class Structure> std::optional<Structure> structure_at(bytes_view bytes, uint64_t offset) {
    const bytes_view part = part_of(bytes, offset, sizeof(Structure));
    if (part.empty())
        return std::nullopt;
    Structure structure;
    std::memcpy(&structure, part.data(), sizeof(structure));
    return structure;
}

// Far beyond what any build has; a file made to keep a reader busy ends there.
constexpr size_t sections_max = 1024;
constexpr size_t note_section_max = 1 << 16;
constexpr size_t symbols_max = 1 << 16;
constexpr size_t name_max = 1024;

// "" when it does not end within the bytes, or is too long for a name.
std::string text_at(bytes_view bytes, uint64_t offset) {
    if (offset >= bytes.size())
        return "";
    const auto *const start = reinterpret_cast<const char *>(bytes.data()) + offset;
    const size_t room = std::min(bytes.size() - static_cast<size_t>(offset), name_max);
    const size_t length = strnlen(start, room);
    return length == room ? "" : std::string(start, length);
}

// ---- Sections of the file ---------------------------------------------------

struct section {
    Elf64_Shdr header;
    bytes_view contents;
};

std::vector<section> sections_of(bytes_view file, const Elf64_Ehdr &header) {
    std::vector<section> sections;
    if (header.e_shnum > sections_max)
        return {};
    for (unsigned i = 0; i < header.e_shnum && header.e_shentsize == sizeof(Elf64_Shdr); i++) {
        // e_shoff is checked by structure_at(), unless the sum wraps: then the file has none.
        const uint64_t offset = header.e_shoff + uint64_t{i} * sizeof(Elf64_Shdr);
        const auto found = offset < header.e_shoff ? std::nullopt : structure_at<Elf64_Shdr>(file, offset);
        if (!found)
            return {};
        const bool in_file = found->sh_type != SHT_NOBITS && found->sh_type != SHT_NULL;
        sections.push_back(
            {*found, in_file ? part_of(file, found->sh_offset, found->sh_size) : bytes_view()});
    }
    return sections;
}

// The strings that a section refers to.
bytes_view strings_of(const std::vector<section> &sections, const section &of) {
    const uint32_t index = of.header.sh_link;
    return index < sections.size() && sections[index].header.sh_type == SHT_STRTAB ? sections[index].contents
                                                                                   : bytes_view();
}

// ---- The three things -------------------------------------------------------

// The first section of a type; there is one of those that matter here.
const section *first_of_type(const std::vector<section> &sections, uint32_t type) {
    const auto found = std::find_if(sections.begin(), sections.end(),
                                    [&](const section &each) { return each.header.sh_type == type; });
    return found == sections.end() ? nullptr : &*found;
}

std::string soname_in(const std::vector<section> &sections) {
    const section *const dynamic = first_of_type(sections, SHT_DYNAMIC);
    for (uint64_t i = 0; dynamic != nullptr && i < symbols_max; i++) {
        const auto entry = structure_at<Elf64_Dyn>(dynamic->contents, i * sizeof(Elf64_Dyn));
        if (!entry || entry->d_tag == DT_NULL)
            break;
        if (entry->d_tag == DT_SONAME)
            return text_at(strings_of(sections, *dynamic), entry->d_un.d_val);
    }
    return "";
}

bool is_exported(const Elf64_Sym &symbol) {
    const unsigned binding = ELF64_ST_BIND(symbol.st_info);
    const unsigned visibility = ELF64_ST_VISIBILITY(symbol.st_other);
    return symbol.st_shndx != SHN_UNDEF && (binding == STB_GLOBAL || binding == STB_WEAK) &&
           (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
}

std::set<std::string> exports_in(const std::vector<section> &sections) {
    std::set<std::string> names;
    const section *const symbols = first_of_type(sections, SHT_DYNSYM);
    for (uint64_t i = 0; symbols != nullptr && i < symbols_max; i++) {
        const auto symbol = structure_at<Elf64_Sym>(symbols->contents, i * sizeof(Elf64_Sym));
        if (!symbol)
            break;
        const std::string name = text_at(strings_of(sections, *symbols), symbol->st_name);
        if (is_exported(*symbol) && !name.empty())
            names.insert(name);
    }
    return names;
}

// The note's description; empty when the section has no such note.
bytes_view layout_note_in(bytes_view notes) {
    constexpr uint64_t alignment = 4;
    const auto aligned = [](uint64_t size) { return (size + alignment - 1) / alignment * alignment; };
    for (uint64_t at = 0;;) {
        const auto header = structure_at<Elf64_Nhdr>(notes, at);
        if (!header)
            return {};
        const uint64_t owner = at + sizeof(*header);
        const uint64_t description = owner + aligned(header->n_namesz);
        const bytes_view name = part_of(notes, owner, header->n_namesz);
        if (header->n_type == LAYOUT_NOTE_TYPE && name.size() == sizeof(LAYOUT_NOTE_OWNER) &&
            std::memcmp(name.data(), LAYOUT_NOTE_OWNER, name.size()) == 0)
            return part_of(notes, description, header->n_descsz);
        at = description + aligned(header->n_descsz);
    }
}

// Fills library.layout, or note_problem. A later version only appends: to a segment's part, to the whole.
void read_layout(bytes_view note, shared_library &library) {
    constexpr uint32_t segments_max = 64;
    struct note_head {
        uint32_t version, segment_count, segment_stride, reserved;
    };
    static_assert(sizeof(note_head) == offsetof(layout_note_description, segments));
    const auto head = structure_at<note_head>(note, 0);
    if (!head || head->version == 0 || head->segment_stride < sizeof(layout_note_segment) ||
        head->segment_count == 0 || head->segment_count > segments_max) {
        library.note_problem = "its layout note cannot be understood";
        return;
    }
    for (uint32_t i = 0; i < head->segment_count; i++) {
        const auto segment =
            structure_at<layout_note_segment>(note, sizeof(note_head) + uint64_t{i} * head->segment_stride);
        if (!segment) {
            library.layout.clear();
            library.note_problem = "its layout note is cut short";
            return;
        }
        library.layout.push_back(*segment);
    }
}

[[noreturn]] void refuse(const std::string &path, const std::string &reason) {
    throw failure{exit_code::failed, path, reason, "name the new build's libybnet.so.1", {}};
}

} // namespace

std::string name_of(const layout_note_segment &segment) {
    return {segment.name, strnlen(segment.name, sizeof(segment.name))};
}

shared_library parse_shared_library(const std::string &path, std::span<const std::byte> bytes) {
    const auto header = structure_at<Elf64_Ehdr>(bytes, 0);
    if (!header || std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0)
        refuse(path, "not an ELF file");
    if (header->e_ident[EI_CLASS] != ELFCLASS64 || header->e_ident[EI_DATA] != ELFDATA2LSB ||
        header->e_machine != EM_X86_64 || header->e_type != ET_DYN)
        refuse(path, "not a shared library for x86-64");
    const std::vector<section> sections = sections_of(bytes, *header);
    if (sections.empty())
        refuse(path, "has no section table: cut short, or stripped of it");

    shared_library library;
    library.path = path;
    library.soname = soname_in(sections);
    library.exports = exports_in(sections);
    library.note_problem = "it has no layout note: it is older than these notes, or not libybnet";
    for (const section &each : sections) {
        const bool is_read = each.header.sh_type == SHT_NOTE && each.contents.size() <= note_section_max;
        const bytes_view note = is_read ? layout_note_in(each.contents) : bytes_view();
        if (note.empty())
            continue;
        library.note_problem.clear();
        read_layout(note, library);
        break;
    }
    return library;
}

// ---- The file ---------------------------------------------------------------

shared_library read_shared_library(const std::string &path) {
    constexpr off_t largest = 256 << 20; // a build with all of its debug information has a few MiB
    const auto failed = [&](int error) {
        return failure{error == ENOENT ? exit_code::not_found : exit_code::failed,
                       path,
                       std::strerror(error),
                       error == ENOENT ? "name the new build's libybnet.so.1" : "",
                       {}};
    };
    const unique_descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (file.number() < 0 || fstat(file.number(), &status) != 0)
        throw failed(errno);
    if (!S_ISREG(status.st_mode))
        refuse(path, "not a regular file");
    if (status.st_size > largest)
        refuse(path, "too large for a shared library");
    std::vector<std::byte> bytes(static_cast<size_t>(status.st_size));
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got =
            pread(file.number(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw failed(errno);
        if (got == 0)
            break; // it shrank
        done += static_cast<size_t>(got);
    }
    bytes.resize(done);
    return parse_shared_library(path, bytes);
}

} // namespace ybnetctl
