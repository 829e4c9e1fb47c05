// SPDX-License-Identifier: Apache-2.0
//
// Reading a netdev's carrier, from files of every content.
#include "net_lib/carrier.h"

#include "tests/unit/links_fixture.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

class carrier : public links_fixture {
  protected:
    void SetUp() override {
        links_fixture::SetUp();
        ASSERT_EQ(mount("tmpfs", "/sys", "tmpfs", 0, ""), 0);
    }
    void TearDown() override {
        EXPECT_EQ(umount("/sys"), 0);
        links_fixture::TearDown();
    }
    static void write_file(const std::string &path, const std::string &text) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << text;
    }
    static int32_t carrier_of_text(const std::string &text) {
        write_file("/sys/class/net/ib0/carrier", text);
        return __get_ib_if_carrier_state("ib0");
    }
};

TEST_F(carrier, is_the_digit_in_the_file) {
    EXPECT_EQ(carrier_of_text("1\n"), 1);
    EXPECT_EQ(carrier_of_text("0\n"), 0);
    EXPECT_EQ(carrier_of_text("7"), 7);
    EXPECT_EQ(carrier_of_text("15"), 1); // one byte is read
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(carrier, is_none_without_a_file_and_without_a_line) {
    EXPECT_EQ(__get_ib_if_carrier_state("nobody"), 0);
    EXPECT_EQ(carrier_of_text(""), 0);
    std::filesystem::create_directories("/sys/class/net/directory/carrier");
    EXPECT_EQ(__get_ib_if_carrier_state("directory"), 0);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(carrier, is_none_and_said_when_it_is_no_number) {
    EXPECT_EQ(carrier_of_text("x1"), 0);
    EXPECT_EQ(carrier_of_text("-1"), 0);
    EXPECT_EQ(carrier_of_text("\n"), 0);
    EXPECT_THAT(errors(),
                testing::Each("__get_ib_if_carrier_state: couldn't scan carrier state for if ib0\n"));
    EXPECT_EQ(errors().size(), 3u);
}

// A record's name may be anything. Each of these would find a file.
TEST_F(carrier, is_none_of_a_name_that_leads_elsewhere) {
    write_file("/sys/carrier", "1");
    write_file("/sys/class/carrier", "1");
    write_file("/sys/class/net/carrier", "1");
    write_file("/sys/class/net/a/b/carrier", "1");
    for (const char *const blank : {" ", "\t", "\n", "\v", "\f", "\r"})
        write_file(std::string("/sys/class/net/a") + blank + "b/carrier", "1");
    for (const char *const name :
         {"", ".", "..", "../..", "a/b", "a b", "a\tb", "a\nb", "a\vb", "a\fb", "a\rb"})
        EXPECT_EQ(__get_ib_if_carrier_state(name), 0) << '"' << name << '"';
    EXPECT_EQ(calls::count("fopen"), 0);
    EXPECT_THAT(log(), IsEmpty());
    for (const char *const name : {"...", "..a", "ib0.8001", "a:b", "a;b", "\xC3\xA9"}) {
        write_file(std::string("/sys/class/net/") + name + "/carrier", "1");
        EXPECT_EQ(__get_ib_if_carrier_state(name), 1) << name; // odd, and possible
    }
}

TEST_F(carrier, path_is_cut_at_its_bound) {
    // 49 characters fit: of this name, 34, and nothing of "/carrier".
    write_file("/sys/class/net/" + std::string(34, 'n'), "1");
    EXPECT_EQ(__get_ib_if_carrier_state(std::string(40, 'n').c_str()), 1);
}

TEST_F(carrier, file_is_closed_on_every_path) {
    for (const char *const text : {"1", "", "x"}) {
        write_file("/sys/class/net/ib0/carrier", text);
        calls::reset();
        (void)__get_ib_if_carrier_state("ib0");
        EXPECT_EQ(calls::count("fopen"), 1);
        EXPECT_EQ(calls::count("fclose"), 1);
    }
}

TEST_F(carrier, descriptor_is_close_on_exec) {
    // A pipe with a name holds the reader back between opening and reading.
    const std::string path = "/sys/class/net/ib0/carrier";
    std::filesystem::create_directories("/sys/class/net/ib0");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    int32_t result = -1;
    std::thread reader([&] { result = __get_ib_if_carrier_state("ib0"); });
    const int writer = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    bool closed_on_exec = false;
    for (int tries = 0; tries < 2000 && !closed_on_exec; tries++) {
        for (int fd = 3; fd < 64; fd++) {
            char target[256] = {};
            const std::string link = "/proc/self/fd/" + std::to_string(fd);
            if (fd != writer && readlink(link.c_str(), target, sizeof(target) - 1) > 0 && path == target)
                closed_on_exec = fcntl(fd, F_GETFD) == FD_CLOEXEC;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(write(writer, "1", 1), 1);
    reader.join();
    close(writer);
    EXPECT_TRUE(closed_on_exec);
    EXPECT_EQ(result, 1);
}
