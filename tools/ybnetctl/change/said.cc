// SPDX-License-Identifier: Apache-2.0
//
// See said.h.
#include "tools/ybnetctl/change/said.h"

#include <bit>
#include <cstdio>
#include <fcntl.h>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

constexpr unsigned warn_level = 2;
constexpr unsigned debug_level = 5;

// One process, one callback without an argument: one place.
struct message_place {
    std::vector<std::string> important;
    std::vector<std::string> other;
    std::string to_show; // not shown at once: the streams may be caught
    unsigned shown_level = 0;
};

message_place &place() {
    static message_place the_place;
    return the_place;
}

std::string trimmed(std::string text) {
    const size_t end = text.find_last_not_of(" \t\n");
    text.erase(end == std::string::npos ? 0 : end + 1);
    return text;
}

// DEBUG messages have "file[line]- function: " in front.
std::string without_position(const std::string &text) {
    const size_t dash = text.find("]- ");
    const size_t colon = dash == std::string::npos ? dash : text.find(": ", dash);
    return colon == std::string::npos ? text : text.substr(colon + 2);
}

} // namespace

void keep_message(uint32_t severity, const char *, const char *message) {
    static constexpr const char *names[] = {"", "ERROR", "WARN", "NOTICE", "INFO", "DEBUG"};
    const auto level = std::min<unsigned>(static_cast<unsigned>(std::bit_width(severity)), debug_level);
    message_place &kept = place();
    std::string text = trimmed(message);
    if (level <= kept.shown_level)
        kept.to_show += "libybnet: " + std::string(names[level]) + ": " + printable(text) + '\n';
    if (level <= warn_level)
        kept.important.push_back(std::move(text));
    else if (level == debug_level && kept.other.size() < 8)
        kept.other.push_back(without_position(text));
}

void keep_for_showing(unsigned up_to_level) {
    place().shown_level = up_to_level;
}

std::string take_shown() {
    return std::exchange(place().to_show, {});
}

std::vector<std::string> take_messages() {
    message_place &kept = place();
    std::vector<std::string> important = std::exchange(kept.important, {});
    std::vector<std::string> other = std::exchange(kept.other, {});
    return important.empty() ? other : important;
}

caught_streams::caught_streams() {
    (void)std::fflush(nullptr);
    file_ = memfd_create("caught", MFD_CLOEXEC);
    old_output_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    old_error_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    if (file_ < 0 || dup2(file_, STDOUT_FILENO) < 0 || dup2(file_, STDERR_FILENO) < 0)
        give_back(); // then they go where they always go
}

caught_streams::~caught_streams() {
    give_back();
    if (file_ >= 0)
        close(file_);
}

void caught_streams::give_back() {
    (void)std::fflush(nullptr); // into the file
    for (auto &[old, number] : {std::pair<int &, int>(old_output_, STDOUT_FILENO),
                                std::pair<int &, int>(old_error_, STDERR_FILENO)}) {
        if (old < 0)
            continue;
        (void)dup2(old, number); // both are open
        close(old);
        old = -1;
    }
}

std::vector<std::string> caught_streams::lines() {
    give_back();
    std::string text;
    char part[4096];
    for (ssize_t got;
         file_ >= 0 && (got = pread(file_, part, sizeof(part), static_cast<off_t>(text.size()))) > 0;)
        text.append(part, static_cast<size_t>(got));
    std::vector<std::string> found;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        if (line = trimmed(line); !line.empty() && !line.starts_with("Warning: vconfig is deprecated"))
            found.push_back(line);
    return found;
}

} // namespace ybnetctl
