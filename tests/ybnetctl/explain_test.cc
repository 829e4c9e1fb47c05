// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl explain: that the catalogue has all that the library can say, by the
// built library itself, and that pasted lines are found in it.
#include <algorithm>
#include <dlfcn.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <string>

#include "tests/ybnetctl/tool.h"
#include "tools/ybnetctl/explain/search.h"
#include "ybnet/net_lib.h"

using namespace ybnetctl;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::string without_end(std::string text) {
    text.erase(text.find_last_not_of(" \n") + 1);
    return text;
}

std::string built_library() {
    Dl_info found = {};
    return dladdr(reinterpret_cast<const void *>(&yb_net_init), &found) != 0 ? found.dli_fname : "";
}

// Every message is written into the trace buffer too, with this in front: so the library's constants hold each once.
std::set<std::string> formats_of_the_built_library() {
    const std::string prefix = "[%s] [%s] - %s[%d]: ";
    const std::string bytes = contents_of(built_library());
    std::set<std::string> formats;
    for (size_t at = bytes.find(prefix); at != std::string::npos; at = bytes.find(prefix, at + 1))
        formats.insert(without_end(std::string(bytes.c_str() + at + prefix.size())));
    return formats;
}

std::set<std::string> formats_of_the_catalogue() {
    std::set<std::string> formats;
    for (const message_entry &entry : messages())
        for (const std::string &format : formats_of(entry))
            formats.insert(format);
    return formats;
}

// What the sources write past the log: to standard error, or straight to yb_log().
std::set<std::string> other_formats_of_the_sources() {
    const std::regex calls(
        R"re((?:fprintf\(stderr,|fputs\(|perror\(|open_failed\(|yb_log\(severity, module_name,)\s*)re"
        R"re("((?:[^"\\]|\\.)*)")re");
    std::set<std::string> formats;
    for (const char *const directory : {"/net_lib", "/net_lib_db"}) {
        for (const auto &file :
             std::filesystem::recursive_directory_iterator(std::string(YBNET_SOURCES) + directory)) {
            if (file.path().extension() != ".cc")
                continue;
            const std::string text = contents_of(file.path());
            for (auto at = std::sregex_iterator(text.begin(), text.end(), calls);
                 at != std::sregex_iterator(); ++at)
                formats.insert(without_end(std::regex_replace(at->str(1), std::regex(R"(\\n)"), "\n")));
        }
    }
    return formats;
}

// As printf(3) would fill it in.
std::string filled(std::string format) {
    for (const auto &[conversion, value] : {std::pair(R"(%#x)", "0x2a"), std::pair(R"(%z?[du])", "42"),
                                            std::pair(R"(%x)", "2a"), std::pair(R"(%s)", "swp1.30")})
        format = std::regex_replace(format, std::regex(conversion), value);
    return format;
}

std::vector<std::string> missing_from(const std::set<std::string> &whole, const std::set<std::string> &part) {
    std::vector<std::string> missing;
    std::set_difference(part.begin(), part.end(), whole.begin(), whole.end(), std::back_inserter(missing));
    return missing;
}

} // namespace

TEST(catalogue, has_every_message_of_the_built_library) {
    const auto built = formats_of_the_built_library();
    ASSERT_GT(built.size(), 100u);
    EXPECT_THAT(missing_from(formats_of_the_catalogue(), built), IsEmpty());
}

TEST(catalogue, has_every_line_that_is_written_past_the_log) {
    const auto others = other_formats_of_the_sources();
    ASSERT_GT(others.size(), 20u);
    EXPECT_THAT(missing_from(formats_of_the_catalogue(), others), IsEmpty());
}

TEST(catalogue, has_nothing_that_the_library_no_longer_says) {
    auto said = formats_of_the_built_library();
    said.merge(other_formats_of_the_sources());
    for (const message_entry &entry : host_messages())
        for (const std::string &format : formats_of(entry))
            said.insert(format);
    EXPECT_THAT(missing_from(said, formats_of_the_catalogue()), IsEmpty());
}

TEST(catalogue, has_every_status_of_the_header_with_its_number) {
    const std::string header = contents_of(std::string(YBNET_SOURCES) + "/include/ybnet/yb_status.h");
    const std::regex enumerator(R"((YB_STATUS_\w+) = (\d+))");
    std::set<std::string> in_header;
    for (auto at = std::sregex_iterator(header.begin(), header.end(), enumerator);
         at != std::sregex_iterator(); ++at)
        in_header.insert(at->str(1) + "=" + at->str(2));
    ASSERT_GT(in_header.size(), 10u);
    std::set<std::string> known;
    for (const status_entry &entry : statuses())
        known.insert(std::string(entry.name) + "=" + std::to_string(entry.number));
    EXPECT_EQ(known, in_header);
}

TEST(catalogue, explains_every_failure_fully) {
    for (const message_entry &entry : messages()) {
        EXPECT_STRNE(entry.text.meaning, "") << entry.formats;
        const bool harmless = std::string(entry.text.meaning).find("ot a failure") != std::string::npos ||
                              std::string(entry.text.meaning).find("other way round") != std::string::npos;
        EXPECT_TRUE(harmless || *entry.text.cause != '\0') << entry.formats;
    }
}

TEST(catalogue_search, finds_every_message_with_its_values_filled_in_first) {
    for (const std::string &format : formats_of_the_catalogue()) {
        const std::string line =
            "Nov 21 03:12:55 switch stackd[4711]: [ERROR] YB_NET_LIB " + filled(format) + " \n";
        const auto found = search_catalogue(line);
        ASSERT_FALSE(found.empty()) << line;
        EXPECT_EQ(found[0].format, format) << line;
    }
}

TEST(catalogue_search, finds_lines_of_the_trace_buffer_and_of_debug) {
    for (const char *const front :
         {"net_lib[139]- yb_net_vlan_if_add: ", "[ERROR  ] [YB_NET_LIB] - yb_net_vlan_if_add[145]: "}) {
        const auto found = search_catalogue(std::string(front) + "vlan10 already exists");
        ASSERT_FALSE(found.empty());
        EXPECT_EQ(found[0].format, "%s already exists");
    }
}

TEST(catalogue_search, finds_lines_with_something_behind_them) {
    const auto found = search_catalogue("Cannot talk to rtnetlink: Bad file descriptor");
    ASSERT_FALSE(found.empty());
    EXPECT_EQ(found[0].format, "Cannot talk to rtnetlink");
}

TEST(catalogue_search, finds_a_message_by_a_part_with_its_values) {
    const auto format_found = [](const std::string &part) {
        const auto found = search_catalogue(part);
        return found.empty() ? "" : found[0].format;
    };
    EXPECT_THAT(format_found("lock taken over from thread 4711"),
                HasSubstr("lock taken over from thread %u"));
    EXPECT_THAT(format_found("Interface with system ifindex 110 or linux_ifindex 5"),
                testing::StartsWith("Interface with system ifindex %"));
    EXPECT_THAT(format_found("interface with SYSTEM ifindex 110 or linux"),
                testing::StartsWith("Interface with system ifindex %"));
    EXPECT_EQ(format_found("Failed to move interface \"loop1\" to namesp"),
              "yb_net_interface_set: Failed to move interface \"%s\" to namespace \"%s\"");
    EXPECT_EQ(format_found("move interface \"loop1\" to namespace \"re"),
              "yb_net_interface_set: Failed to move interface \"%s\" to namespace \"%s\"");
    EXPECT_EQ(format_found("Interface with system ifindex ten or linux_ifindex five"), ""); // no numbers
    EXPECT_EQ(format_found("\" to namespace \"a name that is far longer than what is the message's\""), "");
}

// What the tools themselves say, not what is thought to be known of them.
TEST(catalogue_search, finds_what_ip_says) {
    EXPECT_EQ(run_program({"ip", "link", "add", "name", "twice", "type", "bridge"}).code, 0);
    const std::string said[] = {run_program({"ip", "link", "add", "name", "twice", "type", "bridge"}).err,
                                run_program({"ip", "link", "add", "name", "x", "type", "nonsense"}).err,
                                run_program({"ip", "netns", "exec", "nope", "true"}).err,
                                run_program({"ip", "link", "show", "dev", "x"}).err,
                                run_program({"setpriv", "--bounding-set=-net_admin", "ip", "link", "add",
                                             "name", "x", "type", "bridge"})
                                    .err};
    EXPECT_EQ(run_program({"ip", "link", "del", "dev", "twice"}).code, 0);
    for (const std::string &line : said) {
        const tool_result result = run_tool({"explain", line});
        EXPECT_EQ(result.code, 0) << line << result.err;
        EXPECT_THAT(result.out, HasSubstr("\n  Meaning: ")) << line;
    }
}

TEST(catalogue_search, of_a_netdev_that_is_gone_leads_to_the_audit) {
    EXPECT_THAT(run_tool({"explain", "Cannot find device \"loop2\""}).out,
                testing::AllOf(HasSubstr("was removed or renamed"), HasSubstr("ybnetctl audit")));
}

TEST(catalogue_search, takes_a_status_by_number_and_by_name_however_written) {
    for (const char *const query :
         {"22", "0x16", "YB_STATUS_ENTRY_ALREADY_EXISTS", "entry_already_exists", " 22\n"}) {
        const auto found = search_catalogue(query);
        ASSERT_EQ(found.size(), 1u) << query;
        ASSERT_NE(found[0].status, nullptr) << query;
        EXPECT_EQ(found[0].status->number, uint32_t{YB_STATUS_ENTRY_ALREADY_EXISTS});
    }
}

TEST(catalogue_search, numbers_of_a_format_take_numbers_only) {
    EXPECT_TRUE(fit_format("bucket %u was left", "bucket 12 was left"));
    EXPECT_FALSE(fit_format("bucket %u was left", "bucket twelve was left"));
    EXPECT_FALSE(fit_format("bucket %u was left", "bucket -1 was left"));
    EXPECT_TRUE(fit_format("rc = %d", "rc = -1"));
    EXPECT_TRUE(fit_format("id:%#x", "id:0x1f"));
    EXPECT_FALSE(fit_format("mlag_id > %d", "mlag_id > "));
}

TEST(catalogue_search, comes_to_an_end_with_a_line_that_nearly_fits_many_times) {
    std::string line;
    for (int i = 0; i < 1000; i++)
        line += ": appending \" to ";
    EXPECT_THAT(search_catalogue(line), IsEmpty());
}

TEST(explain, prints_meaning_cause_and_what_to_do) {
    const tool_result result = run_tool({"explain", "21"});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out,
                HasSubstr("YB_STATUS_ENTRY_NOT_FOUND (21)\n  Meaning: No record matches the key."));
    EXPECT_THAT(result.out, HasSubstr("\n  Cause:   "));
    EXPECT_THAT(result.out, HasSubstr("\n  To do:   "));
    EXPECT_EQ(result.err, "");
}

TEST(explain, takes_a_line_without_quotes) {
    const tool_result result = run_tool({"explain", "vlan10", "already", "exists"});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, testing::StartsWith("%s already exists\n"));
}

TEST(explain, lists_all_that_have_a_part) {
    const tool_result result = run_tool({"explain", "RWLOCK"});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, HasSubstr("Failed to initialize the Net-lib"));
}

TEST(explain, names_the_nearest_of_what_it_does_not_know) {
    const tool_result number = run_tool({"explain", "23"});
    EXPECT_EQ(number.code, 3);
    EXPECT_THAT(number.err,
                HasSubstr("\n  try: ybnetctl explain --all\n")); // neighbours have nothing in common
    const tool_result name = run_tool({"explain", "PARAM_EROR"});
    EXPECT_EQ(name.code, 3);
    EXPECT_THAT(name.err, HasSubstr("nearest: YB_STATUS_PARAM_ERROR"));
    EXPECT_EQ(name.out, "");
}

TEST(explain, asks_for_something_to_explain) {
    EXPECT_EQ(run_tool({"explain"}).code, 2);
}

TEST(explain, json_is_read_by_jq) {
    const std::string filter =
        " | jq -r '.matches[0] | .kind, .name, .number, (.meaning | length > 10), (.cause | length > 10)'";
    EXPECT_EQ(run_program({"sh", "-c", std::string(YBNETCTL) + " --json explain 5" + filter}).out,
              "status\nYB_STATUS_NO_RESOURCES\n5\ntrue\ntrue\n");
    const tool_result all =
        run_program({"sh", "-c", std::string(YBNETCTL) + " --json explain --all | jq '.matches | length'"});
    EXPECT_EQ(all.out, std::to_string(formats_of_the_catalogue().size() + statuses().size()) + "\n");
    const tool_result unknown =
        run_program({"sh", "-c", std::string(YBNETCTL) + " --json explain qqqq | jq '.error.exit_code'"});
    EXPECT_EQ(unknown.out, "3\n");
}
