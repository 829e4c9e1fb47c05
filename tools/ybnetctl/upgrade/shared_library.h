// SPDX-License-Identifier: Apache-2.0
//
// What a build of libybnet says about itself in its file: its name, what it
// exports, and its layout note (net_lib_db/layout_note.h). Read from the bytes of
// the ELF file (elf(5)), which is never loaded, and which may hold anything: each
// offset is checked against the file's size before it is used.
#ifndef YBNET_YBNETCTL_UPGRADE_SHARED_LIBRARY_H
#define YBNET_YBNETCTL_UPGRADE_SHARED_LIBRARY_H

#include <cstddef>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "net_lib_db/layout_note.h"

namespace ybnetctl {

struct shared_library {
    std::string path;
    std::string soname; // "" when it has none
    std::set<std::string> exports;

    std::vector<layout_note_segment> layout; // empty when there is no note that can be read
    std::string note_problem;                // then, why
};

// Throws failure for bytes that are no shared library for this architecture.
shared_library parse_shared_library(const std::string &path, std::span<const std::byte> bytes);

// Throws failure for a file that cannot be read, too; exit code 3 when there is none.
shared_library read_shared_library(const std::string &path);

// A segment's name in a note, which need not end with a NUL.
std::string name_of(const layout_note_segment &segment);

} // namespace ybnetctl

#endif
