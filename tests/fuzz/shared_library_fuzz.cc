// SPDX-License-Identifier: Apache-2.0
//
// Any bytes as the libybnet.so of another build (tools/ybnetctl/upgrade/shared_library.h), with its layout
// note.
#include "tools/ybnetctl/upgrade/shared_library.h"

#include "tests/fuzz/support/check.h"
#include "tests/fuzz/support/input.h"
#include "tools/ybnetctl/outcome.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const fuzz::misaligned_copy file(data, size);
    const std::span bytes(static_cast<const std::byte *>(file.data()), size);
    try {
        const ybnetctl::shared_library library = ybnetctl::parse_shared_library("libybnet.so.1", bytes);
        FUZZ_CHECK(library.layout.empty() == !library.note_problem.empty());
        FUZZ_CHECK(library.soname.size() <= size);
        FUZZ_CHECK(library.exports.count("") == 0);
        for (const layout_note_segment &segment : library.layout)
            FUZZ_CHECK(ybnetctl::name_of(segment).size() <= sizeof(segment.name));
    } catch (const ybnetctl::failure &refusal) { // anything else is a finding
        FUZZ_CHECK(refusal.code == ybnetctl::exit_code::failed && !refusal.reason.empty());
    }
    return 0;
}
