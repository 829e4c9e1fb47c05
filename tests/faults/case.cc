// SPDX-License-Identifier: Apache-2.0
//
// See case.h. Sections: what a process holds; the database that is given; the case's process; what others
// see of it.
#include "tests/faults/case.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <semaphore.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/processes.h"
#include "tests/support/segment_file.h"
#include "ybnet/net_lib_db.h"

namespace faults {

// ---- What a process holds ---------------------------------------------------

namespace {

// "socket:[4711]" is "socket", and a removed file still is that file.
std::string kind_of(std::string file) {
    for (const char *const end : {":[", " (deleted)"})
        file = file.substr(0, file.find(end));
    return file;
}

void add_descriptors(holdings *all) {
    DIR *const directory = opendir("/proc/self/fd");
    must(directory != nullptr, "/proc/self/fd");
    while (const struct dirent *const entry = readdir(directory)) {
        char target[512] = {};
        if (atoi(entry->d_name) == dirfd(directory) ||
            readlinkat(dirfd(directory), entry->d_name, target, sizeof(target) - 1) < 0)
            continue;
        (*all)[kind_of(target)]++;
    }
    (void)closedir(directory);
}

void add_mappings(holdings *all) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        const size_t path = line.find("/dev/shm/");
        if (path != std::string::npos)
            (*all)["mapping of " + kind_of(line.substr(path))]++;
    }
}

std::string text_of_holdings() {
    holdings all;
    add_descriptors(&all);
    add_mappings(&all);
    std::ostringstream text;
    for (const auto &[what, count] : all)
        text << count << ' ' << what << '\n';
    return text.str();
}

holdings holdings_of(const char *text) {
    holdings all;
    std::istringstream lines(text);
    int count = 0;
    for (std::string what; lines >> count && std::getline(lines >> std::ws, what);)
        all[what] = count;
    return all;
}

// ---- The database that is given ---------------------------------------------

// Its file as it was before the first case: each case's changes are taken back.
class given_segment {
  public:
    explicit given_segment(const segment_format &format) : format_(format) {
        const int descriptor = open(format.path, O_RDWR | O_CLOEXEC);
        void *const memory = mmap(nullptr, format.size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        must(memory != MAP_FAILED, format.path);
        close(descriptor);
        memory_ = static_cast<uint8_t *>(memory);
        kept_.assign(memory_, memory_ + format.size);
    }
    ~given_segment() {
        (void)munmap(memory_, format_.size);
    }
    given_segment(const given_segment &) = delete;
    given_segment &operator=(const given_segment &) = delete;

    // Which of its bytes before the trailer are others now, page by page.
    std::string changes() const {
        std::string all;
        each_changed_page(format_.lock, [&](size_t from, size_t size) {
            all += std::to_string(from) + ':' + std::string(memory_ + from, memory_ + from + size);
        });
        return all;
    }
    void restore() {
        each_changed_page(format_.size,
                          [&](size_t from, size_t size) { memcpy(memory_ + from, &kept_[from], size); });
    }

  private:
    template <typename action_t> void each_changed_page(size_t end, const action_t &action) const {
        constexpr size_t page = 4096;
        for (size_t from = 0; from < end; from += page) {
            const size_t size = std::min(page, end - from);
            if (memcmp(memory_ + from, &kept_[from], size) != 0)
                action(from, size);
        }
    }

    segment_format format_;
    uint8_t *memory_ = nullptr;
    std::vector<uint8_t> kept_;
};

given_segment *given_now;

} // namespace

void keep_what_is_given(const segment_format *format) {
    delete given_now;
    given_now = format != nullptr ? new given_segment(*format) : nullptr;
}

void must(bool done, const char *what) {
    if (done)
        return;
    (void)dprintf(STDOUT_FILENO, "faults: a case rests on something that is not there: %s (%s)\n", what,
                  strerror(errno));
    _exit(99);
}

void PrintTo(const scenario &scenario, std::ostream *out) {
    *out << scenario.function << ' ' << scenario.situation;
}

// ---- The case's process -----------------------------------------------------

namespace {

// How it tells what it sees; it stops after each of its two calls until it is told to go on.
struct report {
    sem_t reached;
    sem_t go_on;
    uint32_t status[2];
    size_t answer_size;
    char answer[4096];
    char before[8192];
    char after[2][8192];
};

template <size_t size> void put(char (&field)[size], const std::string &text) {
    must(text.size() < size, "room for a text");
    memcpy(field, text.c_str(), text.size() + 1);
}

int be_the_case(const scenario &scenario, const fault *fault, report &told) {
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int unread = memfd_create("standard error", MFD_CLOEXEC); // much of what fails says so there
    must(unread >= 0 && dup2(unread, STDERR_FILENO) >= 0, "a standard error");
    close(unread);
    if (scenario.prepare)
        scenario.prepare();
    put(told.before, text_of_holdings());

    for (int turn = 0; turn < 2; turn++) {
        std::string answer;
        if (turn == 0)
            watch(fault);
        told.status[turn] = scenario.call(&answer);
        watch_no_more();
        make_up_for_release();
        if (turn == 0) {
            if (scenario.effect)
                answer += scenario.effect();
            must(answer.size() <= sizeof(told.answer), "room for an answer");
            told.answer_size = answer.copy(told.answer, sizeof(told.answer));
        }
        put(told.after[turn], text_of_holdings());
        (void)sem_post(&told.reached);
        while (sem_wait(&told.go_on) != 0)
            continue;
    }
    return 0;
}

// ---- What others see of it --------------------------------------------------

constexpr auto longest_case = std::chrono::seconds(30);

// A process that has nothing loaded loads what is there, uses it, and goes.
std::string use_as_a_neighbour() {
    child_process neighbour([] {
        (void)alarm(10);
        if (segment_exists(interfaces_format)) {
            if (net_lib_db_interfaces_load(0) != YB_STATUS_SUCCESS)
                return 1;
            net_lib_db_interface_lock_acquire();
            net_lib_db_interface_lock_release();
            if (net_lib_db_interfaces_unload(0) != YB_STATUS_SUCCESS)
                return 2;
        }
        if (segment_exists(ports_format)) {
            yb_net_port_info_t info;
            if (net_lib_db_ports_load(0) != YB_STATUS_SUCCESS)
                return 3;
            if (net_lib_db_port_get(1, &info) != YB_STATUS_SUCCESS)
                return 4;
            if (net_lib_db_ports_unload(0) != YB_STATUS_SUCCESS)
                return 5;
        }
        return 0;
    });
    const int status = neighbour.wait();
    return status == 0 ? "" : "another process cannot use the databases (" + std::to_string(status) + ")";
}

bool is_locked(const segment_format &format) {
    return segment_exists(format) && segment_view(format).locked();
}

// With the case's process alive: a dead one's lock would be taken over.
std::string what_is_wrong_with_the_locks(given what) {
    for (const segment_format &format : {interfaces_format, ports_format}) {
        if (is_locked(format))
            return std::string("the lock in ") + format.path + " is kept";
    }
    yb_net_port_info_t info;
    switch (what) {
    case given::ports:
        (void)net_lib_db_port_get(1, &info);
        return "";
    case given::nothing:
        return use_as_a_neighbour();
    default:
        net_lib_db_interface_lock_acquire();
        net_lib_db_interface_lock_release();
        return "";
    }
}

class case_process {
  public:
    case_process(const scenario &scenario, const fault *fault, report &told) : told_(told), pid_(fork()) {
        if (pid_ == 0)
            _exit(be_the_case(scenario, fault, told));
        must(pid_ > 0, "fork");
    }
    ~case_process() {
        if (pid_ > 0) {
            (void)kill(pid_, SIGKILL);
            (void)waitpid(pid_, nullptr, 0);
        }
    }
    case_process(const case_process &) = delete;
    case_process &operator=(const case_process &) = delete;

    // Waits until it has made its next call; "" or what happened instead.
    std::string wait() {
        const auto deadline = std::chrono::steady_clock::now() + longest_case;
        while (!wait_a_moment()) {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                return WIFSIGNALED(status) ? "died of signal " + std::to_string(WTERMSIG(status))
                                           : "ended with " + std::to_string(WEXITSTATUS(status));
            }
            if (std::chrono::steady_clock::now() > deadline)
                return "hangs";
        }
        return "";
    }
    void go_on() {
        (void)sem_post(&told_.go_on);
    }

  private:
    bool wait_a_moment() {
        struct timespec until;
        (void)clock_gettime(CLOCK_MONOTONIC, &until);
        until.tv_nsec += 50'000'000;
        until.tv_sec += until.tv_nsec / 1'000'000'000;
        until.tv_nsec %= 1'000'000'000;
        return sem_clockwait(&told_.reached, CLOCK_MONOTONIC, &until) == 0;
    }

    report &told_;
    pid_t pid_;
};

observation observe_through(const scenario &scenario, const fault *fault, report &told) {
    observation seen;
    watch(nullptr); // forgets the case before
    watch_no_more();
    case_process process(scenario, fault, told);
    for (int turn = 0; turn < 2; turn++) {
        const std::string problem = process.wait();
        if (!problem.empty()) {
            seen.problem = (turn == 0 ? "" : "called once more, it ") + problem;
            return seen;
        }
        if (turn == 0) {
            seen.calls = calls_made();
            seen.fault_happened = happened();
            seen.lock = what_is_wrong_with_the_locks(scenario.before);
            seen.records = given_now != nullptr ? given_now->changes() : "";
        }
        process.go_on();
    }
    seen.answer.assign(told.answer, told.answer_size);
    seen.before = holdings_of(told.before);
    for (int turn = 0; turn < 2; turn++) {
        seen.status[turn] = told.status[turn];
        seen.after[turn] = holdings_of(told.after[turn]);
    }
    return seen;
}

} // namespace

observation observe(const scenario &scenario, const fault *fault) {
    void *const memory =
        mmap(nullptr, sizeof(report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    must(memory != MAP_FAILED, "shared memory");
    auto &told = *static_cast<report *>(memory);
    must(sem_init(&told.reached, 1, 0) == 0 && sem_init(&told.go_on, 1, 0) == 0, "semaphores");
    observation seen = observe_through(scenario, fault, told);
    (void)munmap(memory, sizeof(report));
    if (given_now != nullptr) {
        given_now->restore();
    } else {
        segment_remove(interfaces_format);
        segment_remove(ports_format);
    }
    return seen;
}

} // namespace faults
