// SPDX-License-Identifier: Apache-2.0
//
// --dry-run: the library's own code, run with its doors to the outside closed. While a rehearsal's library call lasts,
// the program's versions of the functions by which libybnet acts (doors.cc) come here instead of to the C library:
// commands and requests are written down and answered, as success would or as the system would refuse them for all
// that is known; the segments are private copies, made here. So what is printed are the very commands, from the code
// that runs them.
//
// What is closed: commands (system), namespace look-ups (popen), sending to the kernel, the driver's proc file and
// device, and the shared memory. What stays open only reads, or changes nothing but this process: if_nametoindex(3),
// the making of the request socket.
#ifndef YBNET_YBNETCTL_CHANGE_REHEARSAL_H
#define YBNET_YBNETCTL_CHANGE_REHEARSAL_H

#include <cstdio>
#include <map>
#include <span>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>

#include "tools/ybnetctl/change/stand_in_netdevs.h"
#include "tools/ybnetctl/segments/fields.h"
#include "tools/ybnetctl/session.h"

namespace ybnetctl {

// One thing that a command would do.
struct step {
    const char *kind; // command, lookup, namespace, request, open, driver, record
    std::string text;
    json details;      // keys of the kind, an object or null
    std::string fails; // why it would not succeed; "" when nothing speaks against it
};

class rehearsal {
  public:
    // Throws failure when the program's doors are not in place.
    explicit rehearsal(const session &run);
    ~rehearsal();
    rehearsal(const rehearsal &) = delete;
    rehearsal &operator=(const rehearsal &) = delete;

    // The rehearsal whose library call is running, or NULL.
    static rehearsal *now();

    // Closes the doors for a scope.
    class closed_doors {
      public:
        explicit closed_doors(rehearsal *which); // NULL: leaves them open
        ~closed_doors();
        closed_doors(const closed_doors &) = delete;
        closed_doors &operator=(const closed_doors &) = delete;
    };

    // Makes the private copy of a segment, if there is one, from run.files or the live one. Throws failure.
    void prepare(segment_kind kind);

    // Takes what has been recorded since the last call of this into the steps; the first call only looks.
    void note_record_changes();
    void add_step(step what) {
        steps_.push_back(std::move(what));
    }
    // A call that failed: as a step of its own, unless the last one says already what would fail.
    void note_failure(const char *kind, const std::string &text, const std::string &reason);
    std::vector<step> take_steps();

    [[nodiscard]] const stand_in_netdevs &netdevs() const {
        return netdevs_;
    }
    // The private copy as it is now; empty when the library has none.
    [[nodiscard]] std::vector<std::byte> bytes_of(segment_kind kind) const;

    // Behind the doors, with the meaning and the errno of what they stand for.
    int run_command(const char *command);
    FILE *look(const char *command);
    bool is_look(FILE *stream) const;
    int end_look(FILE *stream);
    unsigned index_of(const char *name);
    ssize_t send(const struct msghdr *message);
    ssize_t receive(struct msghdr *message);
    FILE *open_driver_file(const char *path);
    int open_segment(const char *name, int flags);
    int unlink_segment(const char *name);
    void show_as_named(struct stat *status) const;
    int open_device(const char *name, uint32_t *handle);
    int control_device(uint32_t handle);
    int close_device(uint32_t handle);

  private:
    struct private_segment {
        bool exists = false;  // has its name
        int not_writable = 0; // errno with which it could not be opened
        int descriptor = -1;
        struct stat identity = {};
        std::vector<std::byte> shown; // what has been turned into steps
    };

    struct kernel_answer {
        int error = 0;       // an errno
        std::string because; // what the errno alone does not tell
    };

    private_segment *segment_called(const char *name);
    static bool make_file(private_segment &own);
    kernel_answer answer_request(std::span<const std::byte> request);

    const session &run_;
    stand_in_netdevs netdevs_;
    std::map<segment_kind, private_segment> segments_;
    std::map<FILE *, int> looks_; // streams of look(), with the status that end_look() gives
    std::vector<step> steps_;
    int answer_ = 0; // errno with which the kernel would answer the last request
    uint32_t sequence_ = 0;
};

} // namespace ybnetctl

#endif
