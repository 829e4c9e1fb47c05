// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl check-upgrade: the built library and changed copies of it against
// segments that are there, and files that no linker ever made.
#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/prctl.h>

#include "tests/support/segment_file.h"
#include "tests/ybnetctl/database_user.h"
#include "tests/ybnetctl/tool.h"
#include "tools/ybnetctl/outcome.h"
#include "tools/ybnetctl/upgrade/upgrade_report.h"
#include "ybnet/net_lib.h"

using namespace ybnetctl;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::string built_library() {
    Dl_info found = {};
    if (dladdr(reinterpret_cast<const void *>(&yb_net_init), &found) == 0)
        return "";
    return std::filesystem::canonical(found.dli_fname); // past the links, as /proc shows it
}

void write_file(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

shared_library parse(const std::string &bytes) {
    return parse_shared_library("file", {reinterpret_cast<const std::byte *>(bytes.data()), bytes.size()});
}

// Where the layout note's description lies in the built library.
size_t note_of(const std::string &bytes) {
    const std::string head({LAYOUT_NOTE_TYPE, 0, 0, 0, 'y', 'b', 'n', 'e', 't', 0, 0, 0});
    const size_t at = bytes.find(head);
    return at == std::string::npos ? at : at + head.size();
}

// A copy of the built library with one word of a segment's part of the note changed.
std::string with_changed_note(size_t segment, size_t offset, const std::string &path = "/run/changed.so") {
    std::string bytes = contents_of(built_library());
    uint32_t value = 0;
    const size_t at = note_of(bytes) + offsetof(layout_note_description, segments) +
                      segment * sizeof(layout_note_segment) + offset;
    memcpy(&value, bytes.data() + at, sizeof(value));
    value++;
    memcpy(bytes.data() + at, &value, sizeof(value));
    write_file(path, bytes);
    return path;
}

// Every string of the file that is this text, made another one of its length.
std::string with_text_changed(std::string bytes, const std::string &from, const std::string &to) {
    const std::string whole = '\0' + from + '\0';
    for (size_t at = bytes.find(whole); at != std::string::npos; at = bytes.find(whole, at + 1))
        bytes.replace(at + 1, to.size(), to);
    return bytes;
}

std::string verdict_of(const std::string &library, int code) {
    const tool_result result = run_tool({"--json", "check-upgrade", library});
    EXPECT_EQ(result.code, code) << result.err;
    return jq(result.out, ".verdict");
}

} // namespace

TEST(shared_library_file, of_the_build_has_its_name_its_exports_and_its_layout) {
    const shared_library library = read_shared_library(built_library());
    EXPECT_EQ(library.soname, "libybnet.so.1");
    EXPECT_THAT(library.exports, Contains("yb_net_init"));
    EXPECT_THAT(library.exports, Contains("rth"));
    EXPECT_THAT(library.exports, testing::Not(Contains("yb_log"))); // needed, not exported
    ASSERT_EQ(library.layout.size(), 2u);
    EXPECT_EQ(name_of(library.layout[0]), "/net_lib_ifc");
    EXPECT_EQ(library.layout[0].size, interfaces_format.size);
    EXPECT_EQ(library.layout[1].size, ports_format.size);
}

TEST(shared_library_file, cut_anywhere_is_refused_or_read_without_harm) {
    const std::string whole = contents_of(built_library());
    size_t refused = 0;
    for (size_t size = 0; size < whole.size(); size += size < 4096 ? 7 : 1009) {
        try {
            (void)parse(
                std::string(whole.data(), size)); // its own allocation: a read behind it is found by tools
        } catch (const failure &) {
            refused++;
        }
    }
    EXPECT_GT(refused, 100u); // the section table stands at the end
}

TEST(shared_library_file, with_any_bytes_changed_is_refused_or_read_without_harm) {
    const std::string whole = contents_of(built_library());
    std::mt19937 random(4711); // the same files in each run
    Elf64_Ehdr header;
    memcpy(&header, whole.data(), sizeof(header));
    for (int round = 0; round < 300; round++) {
        std::string bytes = whole;
        for (int i = 0; i < 8; i++) {
            // In the ELF header and the section table, where offsets and sizes stand; and anywhere.
            const size_t at = i < 2   ? random() % sizeof(header)
                              : i < 6 ? header.e_shoff + random() % (bytes.size() - header.e_shoff)
                                      : random() % bytes.size();
            bytes[at] = static_cast<char>(random());
        }
        try {
            (void)parse(bytes);
        } catch (const failure &) {
        }
    }
}

TEST(shared_library_file, with_the_largest_offsets_and_sizes_is_read_without_harm) {
    const std::string whole = contents_of(built_library());
    Elf64_Ehdr header;
    memcpy(&header, whole.data(), sizeof(header));
    for (unsigned i = 0; i < header.e_shnum; i++) {
        for (const size_t field : {offsetof(Elf64_Shdr, sh_offset), offsetof(Elf64_Shdr, sh_size),
                                   offsetof(Elf64_Shdr, sh_link)}) {
            std::string bytes = whole;
            memset(bytes.data() + header.e_shoff + i * sizeof(Elf64_Shdr) + field, 0xFF,
                   field == offsetof(Elf64_Shdr, sh_link) ? 4 : 8);
            EXPECT_NO_THROW((void)parse(bytes));
        }
    }
    // An offset and a size whose sum is small again: what lies there is no part of the file.
    for (unsigned i = 0; i < header.e_shnum; i++) {
        std::string bytes = whole;
        const uint64_t far[] = {0 - (uint64_t{1} << 40), (uint64_t{1} << 40) + 4096};
        static_assert(offsetof(Elf64_Shdr, sh_size) == offsetof(Elf64_Shdr, sh_offset) + 8);
        memcpy(bytes.data() + header.e_shoff + i * sizeof(Elf64_Shdr) + offsetof(Elf64_Shdr, sh_offset), far,
               sizeof(far));
        EXPECT_NO_THROW((void)parse(bytes));
    }
    std::string bytes = whole;
    memset(bytes.data() + offsetof(Elf64_Ehdr, e_shoff), 0xFF, 8);
    EXPECT_THROW((void)parse(bytes), failure);
}

TEST(shared_library_file, note_of_a_later_version_with_longer_segments_is_read) {
    std::string bytes = contents_of(built_library());
    const size_t at = note_of(bytes);
    ASSERT_NE(at, std::string::npos);
    bytes[at] = 9; // the version
    EXPECT_EQ(parse(bytes).layout.size(), 2u);
    bytes[at] = 0;
    EXPECT_THAT(parse(bytes).layout, IsEmpty());
    bytes[at] = 1;
    bytes[at + offsetof(layout_note_description, segment_stride)] =
        static_cast<char>(sizeof(layout_note_segment) + 4);
    EXPECT_EQ(parse(bytes).note_problem, "its layout note is cut short");
}

class upgrade_tool : public testing::Test {
  protected:
    void SetUp() override {
        user_ = std::make_unique<database_user>();
    }
    void TearDown() override {
        user_.reset();
        segment_remove(interfaces_format);
        segment_remove(ports_format);
    }
    std::unique_ptr<database_user> user_;
};

TEST_F(upgrade_tool, same_build_fits_and_is_compared_with_what_the_users_run) {
    const tool_result result = run_tool({"--json", "check-upgrade", built_library()});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(jq(result.out, ".verdict"), "fits");
    EXPECT_EQ(jq(result.out, "[.segments[].fit] | unique | .[]"), "fits");
    EXPECT_EQ(jq(result.out, ".compared_with | length"), "1");
    EXPECT_EQ(jq(result.out, ".compared_with[0].pids[0]"), std::to_string(user_->pid()));
    EXPECT_EQ(jq(result.out, ".compared_with[0].path"), built_library());
    EXPECT_THAT(run_tool({"check-upgrade", built_library()}).out,
                testing::EndsWith("It fits: processes can be restarted with it one by one.\n"));
}

TEST_F(upgrade_tool, other_size_does_not_fit) {
    const std::string changed = with_changed_note(1, offsetof(layout_note_segment, size));
    EXPECT_EQ(verdict_of(changed, 1), "does_not_fit");
    const tool_result text = run_tool({"check-upgrade", changed});
    EXPECT_THAT(text.out, HasSubstr("/net_lib_port: size: 5772784 bytes now, 5772785 in the new build\n"));
    EXPECT_THAT(text.out, HasSubstr("all users must end and the segments be deleted first"));
}

TEST_F(upgrade_tool, other_layout_of_the_same_size_does_not_fit) {
    EXPECT_EQ(verdict_of(with_changed_note(0, offsetof(layout_note_segment, fields_fingerprint)), 1),
              "does_not_fit");
    EXPECT_EQ(verdict_of(with_changed_note(0, offsetof(layout_note_segment, lock_format)), 1),
              "does_not_fit");
    EXPECT_THAT(run_tool({"check-upgrade", "/run/changed.so"}).out,
                HasSubstr("/net_lib_ifc: kind of lock: "));
}

TEST_F(upgrade_tool, size_check_of_a_foreign_segment_counts) {
    segment_view(interfaces_format).set_word(interfaces_format.size_check(), 1);
    const tool_result result = run_tool({"check-upgrade", built_library()});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, HasSubstr("/net_lib_ifc: size check: 1 now, 475216 in the new build"));
}

TEST_F(upgrade_tool, build_without_a_note_cannot_be_told) {
    const tool_result made =
        run_program({"objcopy", "--remove-section=" LAYOUT_NOTE_SECTION, built_library(), "/run/bare.so"});
    ASSERT_EQ(made.code, 0) << made.err;
    EXPECT_EQ(verdict_of("/run/bare.so", 1), "cannot_tell");
}

TEST_F(upgrade_tool, without_segments_any_build_fits) {
    EXPECT_EQ(user_->end(), 0);
    EXPECT_EQ(verdict_of(with_changed_note(0, offsetof(layout_note_segment, size)), 0), "fits");
}

TEST_F(upgrade_tool, build_to_compare_with_can_be_named) {
    write_file("/run/new.so", contents_of(built_library()));
    const tool_result result =
        run_tool({"--json", "check-upgrade", "/run/new.so", "--against", built_library()});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(jq(result.out, ".compared_with[0].pids | length"), "0");
}

TEST_F(upgrade_tool, missing_symbol_or_another_name_does_not_fit) {
    std::string bytes = with_text_changed(contents_of(built_library()), "yb_net_init", "yb_net_inix");
    write_file("/run/lacking.so", bytes);
    const tool_result result = run_tool({"--json", "check-upgrade", "/run/lacking.so"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(jq(result.out, ".verdict"), "does_not_fit");
    EXPECT_EQ(jq(result.out, ".compared_with[0].missing_symbols | join(\" \")"), "yb_net_init");
    EXPECT_THAT(run_tool({"check-upgrade", "/run/lacking.so"}).out,
                HasSubstr("  the new build lacks yb_net_init\n"));
    bytes = with_text_changed(contents_of(built_library()), "libybnet.so.1", "libybnet.so.2");
    write_file("/run/second.so", bytes);
    const tool_result second = run_tool({"--json", "check-upgrade", "/run/second.so"});
    EXPECT_EQ(jq(second.out, ".verdict"), "does_not_fit");
    EXPECT_EQ(jq(second.out, ".compared_with[0].same_soname"), "false");
}

TEST_F(upgrade_tool, many_missing_symbols_are_cut_short_in_text_only) {
    std::string bytes = contents_of(built_library());
    const shared_library whole = parse(bytes);
    for (const std::string &symbol : whole.exports)
        bytes = with_text_changed(bytes, symbol, symbol.substr(0, symbol.size() - 1) + '#');
    write_file("/run/lacking.so", bytes);
    const std::string out = run_tool({"check-upgrade", "/run/lacking.so"}).out;
    const auto lines = lines_of(out);
    const auto lacks = std::count_if(lines.begin(), lines.end(), [](const std::string &line) {
        return line.starts_with("  the new build lacks ");
    });
    EXPECT_EQ(lacks, 10);
    const size_t missing = std::stoul(jq(run_tool({"--json", "check-upgrade", "/run/lacking.so"}).out,
                                         ".compared_with[0].missing_symbols | length"));
    EXPECT_GT(missing, 50u);
    EXPECT_THAT(out,
                HasSubstr("  and " + std::to_string(missing - 10) + " more symbols (--json names all)\n"));
}

TEST_F(upgrade_tool, another_library_is_called_what_it_is) {
    const tool_result text = run_tool({"check-upgrade", YBNET_OTHER_LIBRARY});
    EXPECT_EQ(text.code, 1);
    EXPECT_EQ(text.out, "This is no libybnet: its name is libother_library.so, and it has no layout note.\n");
    const tool_result result = run_tool({"--json", "check-upgrade", YBNET_OTHER_LIBRARY});
    EXPECT_EQ(jq(result.out, ".is_libybnet"), "false");
    EXPECT_EQ(jq(result.out, ".verdict"), "does_not_fit");
    EXPECT_EQ(jq(run_tool({"--json", "check-upgrade", built_library()}).out, ".is_libybnet"), "true");
}

TEST_F(upgrade_tool, processes_that_may_not_be_looked_into_are_counted) {
    database_user hidden([] { (void)prctl(PR_SET_DUMPABLE, 0); });
    const std::vector<std::string> from_outside = {"setpriv", "--bounding-set=-sys_ptrace",
                                                   "--inh-caps=-sys_ptrace", YBNETCTL};
    const auto run_from_outside = [&](std::vector<std::string> words) {
        words.insert(words.begin(), from_outside.begin(), from_outside.end());
        return run_program(words).out;
    };
    const std::string text = run_from_outside({"check-upgrade", built_library()});
    EXPECT_THAT(text, testing::ContainsRegex("Not looked into: [0-9]+ processes, which may use the segments, "
                                             "too: their maps may not be read"));
    EXPECT_THAT(jq(run_from_outside({"--json", "check-upgrade", built_library()}), ".unreadable_processes[]"),
                HasSubstr(std::to_string(hidden.pid())));
    EXPECT_EQ(hidden.end(), 0);
    EXPECT_THAT(run_tool({"check-upgrade", built_library()}).out, testing::Not(HasSubstr("Not looked into")));
}

TEST_F(upgrade_tool, what_is_no_library_is_refused_with_the_reason) {
    EXPECT_EQ(run_tool({"check-upgrade", "/run/nothing"}).code, 3);
    write_file("/run/text", "not an object\n");
    const tool_result text = run_tool({"check-upgrade", "/run/text"});
    EXPECT_EQ(text.code, 1);
    EXPECT_THAT(text.err, HasSubstr("/run/text: not an ELF file"));
    EXPECT_THAT(run_tool({"check-upgrade", "/run"}).err, HasSubstr("not a regular file"));
    EXPECT_EQ(jq(run_tool({"--json", "check-upgrade", "/run/text"}).out, ".error.exit_code"), "1");
}
