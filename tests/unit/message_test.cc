// SPDX-License-Identifier: Apache-2.0
//
// How both modules write a message: the gate, the severities, and the three forms.
#include "net_lib/net_lib_log.h"
#include "net_lib_db/net_lib_db_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/recording_platform.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// One message of each level with arguments, by either module; the line of the first.
int write_all_as_net_lib(const char *text, int number) {
    const int first = __LINE__ + 1;
    NET_LIB_LOG(YB_LEVEL_ERROR, "error %s %d\n", text, number);
    NET_LIB_LOG(YB_LEVEL_WARN, "warn %s %d\n", text, number);
    NET_LIB_LOG(YB_LEVEL_NOTICE, "notice %s %d\n", text, number);
    NET_LIB_LOG(YB_LEVEL_INFO, "info %s %d\n", text, number);
    NET_LIB_LOG(YB_LEVEL_DEBUG, "debug %s %d\n", text, number);
    return first;
}

int write_all_as_net_lib_db(const char *text, int number) {
    const int first = __LINE__ + 1;
    NET_LIB_DB_LOG(YB_LEVEL_ERROR, "error %s %d\n", text, number);
    NET_LIB_DB_LOG(YB_LEVEL_WARN, "warn %s %d\n", text, number);
    NET_LIB_DB_LOG(YB_LEVEL_NOTICE, "notice %s %d\n", text, number);
    NET_LIB_DB_LOG(YB_LEVEL_INFO, "info %s %d\n", text, number);
    NET_LIB_DB_LOG(YB_LEVEL_DEBUG, "debug %s %d\n", text, number);
    return first;
}

struct module_case {
    const char *file;
    const char *function;
    yb_verbosity_t &verbosity;
    yb_verbosity_t &other_verbosity;
    int (*write_all)(const char *text, int number);

    friend void PrintTo(const module_case &one, std::ostream *out) {
        *out << one.file;
    }
};

class message : public testing::TestWithParam<module_case> {
  protected:
    void SetUp() override {
        platform::reset();
        GetParam().other_verbosity = 0; // the other module's word must not matter
    }
    void TearDown() override {
        net_lib_verbosity = YB_VERBOSITY_DEFAULT;
        net_lib_db_verbosity = YB_VERBOSITY_DEFAULT;
        platform::reset();
    }

    static std::vector<uint32_t> severities_at(uint32_t verbosity) {
        platform::reset();
        GetParam().verbosity = verbosity;
        GetParam().write_all("x", 1);
        std::vector<uint32_t> found;
        for (const platform::log_line &line : platform::recorded().log) {
            EXPECT_EQ("YB_NET_LIB", line.module);
            found.push_back(line.severity);
        }
        EXPECT_EQ(found.size(), platform::recorded().trace.size()) << "each that passed, and no other";
        return found;
    }
};

TEST_P(message, passes_the_gate_up_to_the_modules_own_verbosity) {
    EXPECT_THAT(severities_at(0), IsEmpty());
    EXPECT_THAT(severities_at(1), ElementsAre(1));
    EXPECT_THAT(severities_at(2), ElementsAre(1, 3));
    EXPECT_THAT(severities_at(3), ElementsAre(1, 3, 7));
    EXPECT_THAT(severities_at(4), ElementsAre(1, 3, 7, 15));
    EXPECT_THAT(severities_at(5), ElementsAre(1, 3, 7, 15, 31));
    EXPECT_THAT(severities_at(6), ElementsAre(1, 3, 7, 15, 31));
    EXPECT_THAT(severities_at(0x80000000), ElementsAre(1, 3, 7, 15, 31)) << "compared unsigned";
    EXPECT_THAT(severities_at(0xFFFFFFFF), ElementsAre(1, 3, 7, 15, 31));
}

TEST_P(message, is_plain_up_to_info_and_has_its_position_in_front_at_debug) {
    GetParam().verbosity = 5;
    const int first = GetParam().write_all("some text", -7);
    std::vector<std::string> formats;
    std::vector<std::string> texts;
    for (const platform::log_line &line : platform::recorded().log) {
        formats.push_back(line.format);
        texts.push_back(line.text);
    }
    EXPECT_THAT(formats, ElementsAre("error %s %d\n", "warn %s %d\n", "notice %s %d\n", "info %s %d\n",
                                     "%s[%d]- %s: debug %s %d\n"));
    EXPECT_THAT(texts, ElementsAre("error some text -7\n", "warn some text -7\n", "notice some text -7\n",
                                   "info some text -7\n",
                                   std::string(GetParam().file) + "[" + std::to_string(first + 4) + "]- " +
                                       GetParam().function + ": debug some text -7\n"));
}

TEST_P(message, goes_into_the_trace_buffer_with_its_level_name_whatever_the_level) {
    GetParam().verbosity = 5;
    const int first = GetParam().write_all("x", 3);
    const auto at = [&](int line) {
        return std::string("[YB_NET_LIB] - ") + GetParam().function + "[" + std::to_string(first + line) +
               "]: ";
    };
    EXPECT_THAT(platform::recorded().trace,
                ElementsAre("[ERROR  ] " + at(0) + "error x 3\n", "[WARN   ] " + at(1) + "warn x 3\n",
                            "[NOTICE ] " + at(2) + "notice x 3\n", "[INFO   ] " + at(3) + "info x 3\n",
                            "[DEBUG  ] " + at(4) + "debug x 3\n"));
    EXPECT_THAT(platform::recorded().trace_formats,
                ElementsAre("[%s] [%s] - %s[%d]: error %s %d\n", "[%s] [%s] - %s[%d]: warn %s %d\n",
                            "[%s] [%s] - %s[%d]: notice %s %d\n", "[%s] [%s] - %s[%d]: info %s %d\n",
                            "[%s] [%s] - %s[%d]: debug %s %d\n"));
}

INSTANTIATE_TEST_SUITE_P(of, message,
                         testing::Values(module_case{"net_lib", "write_all_as_net_lib", net_lib_verbosity,
                                                     net_lib_db_verbosity, write_all_as_net_lib},
                                         module_case{"net_lib_db", "write_all_as_net_lib_db",
                                                     net_lib_db_verbosity, net_lib_verbosity,
                                                     write_all_as_net_lib_db}),
                         [](const auto &one) { return std::string(one.param.file); });

TEST(level_name, is_seven_characters_wide_and_unknown_outside_the_table) {
    std::vector<std::string> names;
    for (int32_t index = 0; index < 9; index++)
        names.emplace_back(yb_level_name(index));
    EXPECT_THAT(names, ElementsAre("NONE   ", "ERROR  ", "WARN   ", "NOTICE ", "INFO   ", "DEBUG  ",
                                   "FUNCS  ", "FRAMES ", "ALL    "));
    for (const int32_t index : {-1, 9, 10, 0x7FFFFFFF, -0x7FFFFFFF})
        EXPECT_STREQ("UNKNOWN", yb_level_name(index)) << index;
}

} // namespace
