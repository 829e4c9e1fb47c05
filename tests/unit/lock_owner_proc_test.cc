// SPDX-License-Identifier: Apache-2.0
//
// What can be said of a lock's holder where /proc is missing, hides it, or is not what the kernel writes today: when
// in doubt it lives. Each case is a child that sees a /proc of the test's making; threads and byte locks are real.
#include "net_lib_db/complib/cl_plock_owner.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <map>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/processes.h"

namespace {

using files = std::map<std::string, std::string>;

// What a namespace's own /proc begins with.
const files own_proc = {{"self/ns/pid", ""}, {"self/status", "Name:\ttest\nNSpid:\t17\nThreads:\t1\n"}};

bool show_only(const files &shown) {
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/proc", "tmpfs", 0, nullptr) != 0)
        return false;
    for (const auto &[name, text] : shown) {
        const std::filesystem::path path = "/proc/" + name;
        std::filesystem::create_directories(path.parent_path());
        if (!(std::ofstream(path) << text).flush())
            return false;
    }
    return true;
}

bool refuse_signals() {
    struct sock_filter rules[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
                                  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_tkill, 0, 1),
                                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const struct sock_fprog program = {std::size(rules), rules};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

class lock_owner_proc : public testing::Test {
  protected:
    void SetUp() override {
        place_.descriptor = memfd_create("lock_owner_proc_test", MFD_CLOEXEC);
        struct stat file = {};
        ASSERT_EQ(0, fstat(place_.descriptor, &file));
        place_.device = file.st_dev;
        place_.inode = file.st_ino;
    }
    void TearDown() override {
        (void)close(place_.descriptor);
    }

    // As a child finds it that sees these files under /proc.
    bool is_dead(const files &shown, uint32_t number, bool is_owner = false, bool is_own = false) {
        child_process judge([&] {
            cl_plock_inquest inquest;
            if (!cl_plock_inquest_open(&inquest, place_) || !show_only(shown))
                return 2;
            cl_plock_owner_forked(); // what the parent knows of /proc is not to count
            const bool dead = is_owner ? cl_plock_owner_is_dead(inquest, number, is_own)
                                       : cl_plock_stranger_is_dead(inquest, number, false);
            cl_plock_inquest_close(&inquest);
            return dead ? 1 : 0;
        });
        const int result = judge.wait();
        EXPECT_LE(0, result);
        EXPECT_GE(1, result);
        return result == 1;
    }
    static files with_stat(uint32_t id, const std::string &text) {
        files shown = own_proc;
        shown[std::to_string(id) + "/stat"] = text;
        return shown;
    }
    static uint32_t own_id() {
        return static_cast<uint32_t>(getpid());
    }
    // An id that nobody has: of a process that has ended.
    static uint32_t unused_id() {
        child_process child([] { return 0; });
        const auto id = static_cast<uint32_t>(child.pid());
        (void)child.wait();
        return id;
    }

    cl_plock_place place_ = {};
};

// Ended, and waited for by nobody until this goes.
class zombie {
  public:
    zombie() : pid_(fork()) {
        if (pid_ == 0)
            _exit(0);
        siginfo_t ended;
        EXPECT_EQ(0, waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOWAIT));
    }
    ~zombie() {
        (void)waitpid(pid_, nullptr, 0);
    }
    zombie(const zombie &) = delete;
    zombie &operator=(const zombie &) = delete;

    uint32_t id() const {
        return static_cast<uint32_t>(pid_);
    }

  private:
    pid_t pid_;
};

TEST_F(lock_owner_proc, that_is_missing_leaves_the_living_alive_and_the_ended_dead) {
    EXPECT_FALSE(is_dead({}, own_id()));
    EXPECT_TRUE(is_dead({}, unused_id()));
    EXPECT_TRUE(is_dead({}, unused_id(), true)) << "as one who did not know its namespace either";
    EXPECT_FALSE(is_dead({}, own_id(), true));
    EXPECT_TRUE(is_dead({}, own_id(), true, true)) << "the caller does not hold the lock";
}

TEST_F(lock_owner_proc, that_is_missing_leaves_a_holder_alive_who_announced_itself_anywhere) {
    const uint32_t id = unused_id();
    // On the byte of this namespace, which the child does not know as its own.
    const uint32_t owner = cl_plock_announce(place_.descriptor, id);
    ASSERT_TRUE(cl_plock_is_announced(owner));
    EXPECT_FALSE(is_dead({}, owner, true));
    EXPECT_FALSE(is_dead({}, id, false));
    cl_plock_withdraw(place_.descriptor, id);
    EXPECT_TRUE(is_dead({}, owner, true));
    EXPECT_TRUE(is_dead({}, id, false));
}

TEST_F(lock_owner_proc, that_is_another_namespaces_or_strange_tells_no_zombie) {
    const zombie ended;
    const std::string state = "17 (name) Z 1 1";
    const std::string stat = std::to_string(ended.id()) + "/stat";
    EXPECT_TRUE(is_dead(with_stat(ended.id(), state), ended.id()));
    for (const std::string status :
         {"", "Name:\ttest\nThreads:\t1\n", "Name:\ttest\nNSpid:\t17\t1\nThreads:\t1\n",
          "Name:\ttest\nNSpid:\t17"}) {
        SCOPED_TRACE(status);
        EXPECT_FALSE(is_dead({{"self/ns/pid", ""}, {"self/status", status}, {stat, state}}, ended.id()));
    }
    EXPECT_FALSE(is_dead({{"self/ns/pid", ""}, {stat, state}}, ended.id())) << "no status at all";
}

TEST_F(lock_owner_proc, that_hides_a_holder_leaves_it_alive) {
    EXPECT_FALSE(is_dead(own_proc, own_id()));
    const zombie ended;
    EXPECT_FALSE(is_dead(own_proc, ended.id()));
}

TEST_F(lock_owner_proc, tells_the_ended_from_the_living_by_the_state_behind_the_name) {
    const uint32_t id = own_id();
    for (const std::string state : {"Z", "X", "x"})
        EXPECT_TRUE(is_dead(with_stat(id, "17 (name) R) " + state + " 1 1"), id)) << state;
    for (const std::string state : {"R", "S", "D", "T", "t", "I"})
        EXPECT_FALSE(is_dead(with_stat(id, "17 (name) Z) " + state + " 1 1"), id)) << state;
}

TEST_F(lock_owner_proc, without_a_state_behind_the_name_leaves_a_holder_alive) {
    for (const std::string text : {"", "17 name Z", "17 (name)", "17 (name)Z"})
        EXPECT_FALSE(is_dead(with_stat(own_id(), text), own_id())) << text;
}

// As where the holder is another user's process.
TEST_F(lock_owner_proc, is_asked_when_a_living_holder_must_not_be_signalled) {
    const zombie ended;
    for (const uint32_t id : {own_id(), ended.id()}) {
        child_process judge([&] {
            cl_plock_inquest inquest;
            if (!cl_plock_inquest_open(&inquest, place_) || !refuse_signals() ||
                syscall(SYS_tkill, static_cast<pid_t>(id), 0) == 0 || errno != EPERM)
                return 2;
            return cl_plock_stranger_is_dead(inquest, id, false) ? 1 : 0;
        });
        EXPECT_EQ(id == own_id() ? 0 : 1, judge.wait());
    }
}

} // namespace
