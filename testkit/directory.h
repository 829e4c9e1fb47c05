// SPDX-License-Identifier: Apache-2.0
//
// The directory that all processes of one test share, named by YBNET_TESTKIT_DIR:
// everything the kit knows beyond one process lies in it as small files. Without
// the variable the kit is inactive, and what it interposes calls the real thing.
#ifndef YBNET_TESTKIT_DIRECTORY_H
#define YBNET_TESTKIT_DIRECTORY_H

#include <string>
#include <vector>

namespace testkit {

constexpr const char *directory_variable = "YBNET_TESTKIT_DIR";

// The directory's path, "" while the kit is inactive.
std::string directory();
bool is_active();
// A file in it.
std::string path_of(const std::string &name);

// Makes a directory for a test, on /dev/shm, which is memory, else in TMPDIR or /tmp; false with errno.
bool directory_make(std::string *out_root);
// Makes what a fresh directory holds; 0 or an errno, ENAMETOOLONG where socket addresses would not fit.
int directory_fill(const std::string &root);
// Where ip and vconfig of the kit lie; "" when they are not found.
std::string tools_directory();

// Held around every look at, and change of, what several files say together. Also keeps threads apart; not
// recursive.
class directory_lock {
  public:
    directory_lock();
    ~directory_lock();
    directory_lock(const directory_lock &) = delete;
    directory_lock &operator=(const directory_lock &) = delete;

  private:
    int descriptor_;
};

// False, with errno, when it cannot be opened or written; a missing file reads as "".
std::string read_text(const std::string &path);
bool write_text(const std::string &path, const std::string &text);
// In one write(2): lines of several processes do not mix.
bool append_text(const std::string &path, const std::string &text);
std::vector<std::string> lines_of(const std::string &path);
// Names in a directory, sorted.
std::vector<std::string> names_in(const std::string &path);
bool exists(const std::string &path);

} // namespace testkit

#endif
