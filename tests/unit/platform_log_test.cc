// SPDX-License-Identifier: Apache-2.0
//
// libyb_log itself: what reaches the callback, standard error, a real syslog
// socket and the trace buffer, and what the environment switches on.
#include "ybnet/platform/yb_log.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <regex>
#include <sched.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/log/yb_log_reference.h"

using testing::ElementsAre;

namespace {

constexpr const char *module_name = "YB_NET_LIB";
// What every line starts with.
const std::string time_pattern = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\\.[0-9]+[+-][0-9]{2}:?[0-9]{2} ";

struct line {
    uint32_t severity;
    std::string module;
    std::string text;
    bool operator==(const line &) const = default;
};
std::vector<line> received;

void receive(uint32_t severity, const char *module, const char *message) {
    received.push_back({severity, module, message});
}
void receive_nothing(uint32_t, const char *, const char *) {}
void throw_something(uint32_t, const char *, const char *) {
    throw std::runtime_error("from the callback");
}
void log_again_and_close(uint32_t severity, const char *module, const char *message) {
    receive(severity, module, message);
    if (received.size() == 1) {
        EXPECT_EQ(yb_log(7, module, "from the callback"), 0);
        EXPECT_EQ(yb_log_close(), 0);
    }
}

// A format that the compiler does not see through.
const char *hidden(const char *format) {
    const char *volatile unseen = format;
    return unseen;
}

template <class function> std::string standard_error_of(function &&body) {
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
}

bool matches(const std::string &text, const std::string &pattern) {
    return std::regex_match(text, std::regex(time_pattern + pattern));
}

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string each; std::getline(stream, each);)
        result.push_back(each);
    return result;
}

std::vector<std::string> dumped() {
    char *memory = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&memory, &size);
    EXPECT_EQ(yb_trace_cbuff_dump(stream), 0);
    (void)fclose(stream);
    const std::unique_ptr<char, decltype(&free)> owner(memory, &free);
    return lines_of(std::string(memory, size));
}

class platform_log : public testing::Test {
  protected:
    void SetUp() override {
        received.clear();
        ASSERT_EQ(yb_trace_cbuff_clear(), 0);
    }
    void TearDown() override {
        while (yb_log_close() == 0) {
        }
    }
};

TEST_F(platform_log, the_callback_gets_severity_module_and_the_formatted_text_unchanged) {
    ASSERT_EQ(yb_log_init(1, 0, receive), 0);
    const std::string elsewhere = standard_error_of([] {
        EXPECT_EQ(yb_log(7, module_name, "%s has %d\n", "port", 5), 0);
        EXPECT_EQ(yb_log(31, "TRACE_CBUFF", "no newline\t\x1b[0m"), 0);
        EXPECT_EQ(yb_log(1, module_name, "%s", "two\n\n"), 0);
    });
    EXPECT_THAT(received,
                ElementsAre(line{7, module_name, "port has 5\n"},
                            line{31, "TRACE_CBUFF", "no newline\t\x1b[0m"}, line{1, module_name, "two\n\n"}));
    EXPECT_EQ(elsewhere, "");
}

TEST_F(platform_log, without_a_callback_each_call_is_one_line_on_standard_error) {
    ASSERT_EQ(yb_log_init(1, 0, nullptr), 0);
    const std::pair<uint32_t, std::string> levels[] = {
        {1, "ERROR"}, {3, "WARN"}, {7, "NOTICE"}, {15, "INFO"}, {31, "DEBUG"}};
    for (const auto &[severity, name] : levels) {
        for (const char *const end : {"", "\n"}) {
            const std::string text =
                standard_error_of([&, at = severity] { yb_log(at, module_name, "value %d%s", 5, end); });
            EXPECT_TRUE(matches(text, name + " YB_NET_LIB: value 5\n")) << text;
        }
    }
}

TEST_F(platform_log, the_highest_bit_decides_the_level_and_none_is_shown_as_an_error) {
    const std::pair<uint32_t, std::string> levels[] = {
        {0, "ERROR"}, {2, "WARN"}, {4, "NOTICE"}, {63, "DEBUG"}, {UINT32_MAX, "DEBUG"}};
    for (const auto &[severity, name] : levels) {
        const std::string text = standard_error_of([at = severity] { yb_log(at, "m", "x"); });
        EXPECT_TRUE(matches(text, name + " m: x\n")) << text;
    }
}

TEST_F(platform_log, logging_before_the_start_and_after_the_end_goes_to_standard_error) {
    EXPECT_TRUE(matches(standard_error_of([] { yb_log(7, "m", "early"); }), "NOTICE m: early\n"));
    ASSERT_EQ(yb_log_init(1, 0, receive), 0);
    ASSERT_EQ(yb_log_close(), 0);
    EXPECT_TRUE(matches(standard_error_of([] { yb_log(7, "m", "late"); }), "NOTICE m: late\n"));
    EXPECT_TRUE(received.empty());
}

TEST_F(platform_log, the_latest_callback_holds_until_the_last_close) {
    ASSERT_EQ(yb_log_init(1, 0, receive_nothing), 0);
    ASSERT_EQ(yb_log_init(1, 0, receive), 0);
    yb_log(7, "m", "both");
    ASSERT_EQ(yb_log_close(), 0);
    yb_log(7, "m", "one");
    ASSERT_EQ(yb_log_close(), 0);
    EXPECT_NE(standard_error_of([] { yb_log(7, "m", "none"); }), "");
    EXPECT_THAT(received, ElementsAre(line{7, "m", "both"}, line{7, "m", "one"}));
}

TEST_F(platform_log, closing_what_was_not_started_fails) {
    errno = 0;
    EXPECT_EQ(yb_log_close(), -1);
    EXPECT_EQ(errno, EINVAL);
    ASSERT_EQ(yb_log_init(1, 0, nullptr), 0);
    EXPECT_EQ(yb_log_close(), 0);
    EXPECT_EQ(yb_log_close(), -1);
}

TEST_F(platform_log, control_characters_cannot_forge_a_line_on_standard_error) {
    const std::string text = standard_error_of([] {
        yb_log(7, "m\n", "a\nERROR b: c\r\t\x1b[2J\x7f\n\n");
        yb_log(7, "m", "%s\n", "\xC3\xA4 \xC2\x9B \xE2\x82\xAC \\n");
    });
    const auto lines = lines_of(text);
    ASSERT_EQ(lines.size(), 2u) << text;
    EXPECT_TRUE(lines[0].ends_with(R"( NOTICE m: a\nERROR b: c\r\t\x1b[2J\x7f\n)")) << lines[0];
    EXPECT_TRUE(lines[1].ends_with(" NOTICE m: \xC3\xA4 \\xc2\\x9b \xE2\x82\xAC \\n")) << lines[1];
}

TEST_F(platform_log, a_long_message_is_cut_where_everybody_can_see_it) {
    ASSERT_EQ(yb_log_init(1, 0, receive), 0);
    const std::string fits(2047, 'x');
    yb_log(7, "m", "%s", fits.c_str());
    yb_log(7, "m", "%sx", fits.c_str());
    yb_log(7, "m", "%s", std::string(1 << 20, 'x').c_str());
    const std::string cut = std::string(2038, 'x') + "...[cut]\n";
    EXPECT_THAT(received, ElementsAre(line{7, "m", fits}, line{7, "m", cut}, line{7, "m", cut}));
}

TEST_F(platform_log, a_cut_does_not_halve_a_character) {
    ASSERT_EQ(yb_log_init(1, 0, receive), 0);
    std::string euros;
    while (euros.size() < 4000)
        euros += "\xE2\x82\xAC";
    for (const char *const shift : {"", "x", "xx"})
        yb_log(7, "m", "%s%s", shift, euros.c_str());
    ASSERT_EQ(received.size(), 3u);
    for (const line &each : received) {
        const size_t mark = each.text.find("...[cut]\n");
        ASSERT_NE(mark, std::string::npos);
        EXPECT_EQ(each.text.size(), mark + 9);
        EXPECT_GT(each.text.size(), 2040u);
        EXPECT_EQ(each.text.substr(mark - 3, 3), "\xE2\x82\xAC");
    }
}

TEST_F(platform_log, what_cannot_be_formatted_is_refused) {
    ASSERT_EQ(yb_log_init(1, 0, receive), 0);
    errno = 0;
    EXPECT_EQ(yb_log(7, "m", hidden(nullptr), 0), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(yb_trace_cbuff_log(hidden(nullptr), 0), -1);
    EXPECT_EQ(yb_log(7, "m", "%ls", L"no character of this locale: \u20AC"), -1);
    EXPECT_TRUE(received.empty());
    EXPECT_TRUE(dumped().empty());
}

TEST_F(platform_log, a_missing_module_is_shown_as_unknown) {
    ASSERT_EQ(yb_log_init(1, 0, receive), 0);
    EXPECT_EQ(yb_log(7, nullptr, "x"), 0);
    EXPECT_THAT(received, ElementsAre(line{7, "?", "x"}));
}

TEST_F(platform_log, an_exception_of_the_callback_does_not_get_out) {
    ASSERT_EQ(yb_log_init(1, 0, throw_something), 0);
    EXPECT_EQ(yb_log(7, "m", "x"), -1);
}

TEST_F(platform_log, the_callback_may_log_and_close) {
    ASSERT_EQ(yb_log_init(1, 0, log_again_and_close), 0);
    EXPECT_EQ(yb_log(7, "m", "first"), 0);
    EXPECT_THAT(received, ElementsAre(line{7, "m", "first"}, line{7, "m", "from the callback"}));
    EXPECT_EQ(yb_log_close(), -1);
}

TEST_F(platform_log, errno_of_the_caller_survives_and_can_be_printed) {
    const std::string text = standard_error_of([] {
        errno = ENOTDIR;
        EXPECT_EQ(yb_log(1, "m", "%m"), 0);
        EXPECT_EQ(errno, ENOTDIR);
        EXPECT_EQ(yb_trace_cbuff_log("%m"), 0);
        EXPECT_EQ(errno, ENOTDIR);
    });
    EXPECT_TRUE(matches(text, "ERROR m: Not a directory\n")) << text;
    ASSERT_EQ(yb_log_init(1, 0, [](uint32_t, const char *, const char *) { errno = EXDEV; }), 0);
    errno = ENOTDIR;
    EXPECT_EQ(yb_log(1, "m", "x"), 0);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(platform_log, lines_of_several_threads_do_not_mix) {
    constexpr int threads = 4;
    constexpr int each = 500;
    const std::string text = standard_error_of([] {
        std::vector<std::thread> all;
        for (int i = 0; i < threads; ++i) {
            all.emplace_back([i] {
                for (int n = 0; n < each; ++n) {
                    yb_log(7, "m", "thread %d line %d end\n", i, n);
                    yb_trace_cbuff_log("thread %d line %d end", i, n);
                    if (n % 50 == 0)
                        (void)yb_trace_cbuff_clear();
                }
            });
        }
        for (std::thread &thread : all)
            thread.join();
    });
    const auto lines = lines_of(text);
    EXPECT_EQ(lines.size(), static_cast<size_t>(threads) * each);
    const std::regex whole(time_pattern + "NOTICE m: thread [0-3] line [0-9]+ end");
    for (const std::string &one : lines)
        EXPECT_TRUE(std::regex_match(one, whole)) << one;
}

TEST_F(platform_log, starting_and_closing_while_others_log_loses_no_line) {
    static std::atomic<int> counted;
    counted = 0;
    const yb_log_cb_t count = [](uint32_t, const char *, const char *) { ++counted; };
    constexpr int threads = 3;
    constexpr int each = 2000;
    ASSERT_EQ(yb_log_init(1, 0, count), 0);
    std::vector<std::thread> all;
    for (int i = 0; i < threads; ++i) {
        all.emplace_back([count] {
            for (int n = 0; n < each; ++n) {
                (void)yb_log_init(1, 0, count);
                (void)yb_log(31, "m", "%d", n);
                (void)yb_log_close();
            }
        });
    }
    for (std::thread &thread : all)
        thread.join();
    EXPECT_EQ(counted, threads * each);
    EXPECT_EQ(yb_log_close(), 0);
    EXPECT_EQ(yb_log_close(), -1);
}

TEST_F(platform_log, the_trace_buffer_keeps_lines_in_order_with_their_time) {
    EXPECT_EQ(yb_trace_cbuff_log("entered %s\n", "f"), 0);
    EXPECT_EQ(yb_trace_cbuff_log("left %s\nnow", "f"), 0);
    const auto lines = dumped();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(matches(lines[0], "entered f")) << lines[0];
    EXPECT_TRUE(matches(lines[1], "left f\\\\nnow")) << lines[1];
    EXPECT_EQ(dumped(), lines) << "dumping does not empty it";
}

TEST_F(platform_log, the_trace_buffer_writes_nowhere_until_it_is_dumped) {
    ASSERT_EQ(yb_log_init(1, 0, receive), 0);
    EXPECT_EQ(standard_error_of([] { yb_trace_cbuff_log("quiet"); }), "");
    EXPECT_TRUE(received.empty());
}

TEST_F(platform_log, the_trace_buffer_keeps_the_last_1024_lines) {
    for (int i = 0; i < 1024; ++i)
        yb_trace_cbuff_log("%d.", i);
    auto lines = dumped();
    ASSERT_EQ(lines.size(), 1024u);
    EXPECT_TRUE(lines.front().ends_with(" 0."));
    for (int i = 1024; i < 1034; ++i)
        yb_trace_cbuff_log("%d.", i);
    lines = dumped();
    ASSERT_EQ(lines.size(), 1024u);
    EXPECT_TRUE(lines.front().ends_with(" 10."));
    EXPECT_TRUE(lines.back().ends_with(" 1033."));
}

TEST_F(platform_log, a_cleared_trace_buffer_is_empty_and_usable) {
    yb_trace_cbuff_log("old");
    EXPECT_EQ(yb_trace_cbuff_clear(), 0);
    EXPECT_TRUE(dumped().empty());
    yb_trace_cbuff_log("new");
    EXPECT_EQ(dumped().size(), 1u);
}

TEST_F(platform_log, a_dump_that_cannot_be_written_fails) {
    yb_trace_cbuff_log("x");
    errno = 0;
    EXPECT_EQ(yb_trace_cbuff_dump(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    FILE *const full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    EXPECT_EQ(yb_trace_cbuff_dump(full), -1);
    EXPECT_EQ(errno, ENOSPC);
    (void)fclose(full);
}

// The priorities of what arrives at a syslog socket of the child's own, next to each message's end.
[[noreturn]] void exit_after_logging_to_syslog() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (void)snprintf(address.sun_path, sizeof(address.sun_path), "/dev/log");
    const int receiver = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/dev", "tmpfs", 0, nullptr) != 0 ||
        bind(receiver, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        _exit(2);
    const std::pair<uint32_t, std::string> expected[] = {
        {1, "<11>"}, {3, "<12>"}, {7, "<13>"}, {15, "<14>"}, {31, "<15>"}};
    for (const auto &[severity, priority] : expected) {
        yb_log(severity, module_name, "100%% %s\nforged\n", "sure");
        char packet[4096] = {};
        const ssize_t size = recv(receiver, packet, sizeof(packet) - 1, 0);
        const std::string text(packet, size > 0 ? static_cast<size_t>(size) : 0);
        if (!text.starts_with(priority) ||
            text.find(" YB_NET_LIB: 100% sure\\nforged") == std::string::npos ||
            text.find('\n') != std::string::npos)
            _exit(3);
    }
    _exit(0);
}

TEST(platform_log_DeathTest, lines_reach_syslog_with_their_priority) {
    ASSERT_EQ(geteuid(), 0u) << "a syslog socket of the test's own needs root";
    EXPECT_EXIT(exit_after_logging_to_syslog(), testing::ExitedWithCode(0), "100% sure");
}

// The variable is read when the library is loaded, so each value needs a process of its own: death tests in
// the "threadsafe" style start this program anew.
class platform_log_environment_DeathTest : public testing::TestWithParam<std::pair<const char *, int>> {};

TEST_P(platform_log_environment_DeathTest, function_trace_is_on_for_1_only) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto [value, expected] = GetParam();
    if (value != nullptr)
        ASSERT_EQ(setenv("YB_LOG_FUNC_TRACE", value, 1), 0);
    else
        ASSERT_EQ(unsetenv("YB_LOG_FUNC_TRACE"), 0);
    EXPECT_EXIT(_exit(10 + static_cast<int>(g_yb_log_module_func_enable)),
                testing::ExitedWithCode(10 + expected), "");
    (void)unsetenv("YB_LOG_FUNC_TRACE");
}

INSTANTIATE_TEST_SUITE_P(values, platform_log_environment_DeathTest,
                         testing::Values(std::pair{static_cast<const char *>(nullptr), 0}, std::pair{"", 0},
                                         std::pair{"0", 0}, std::pair{"1", 1}, std::pair{"yes", 0}));

} // namespace
