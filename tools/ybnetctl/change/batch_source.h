// SPDX-License-Identifier: Apache-2.0
//
// The file of a batch, read as it comes: a command that arrives through a pipe runs when its line is complete, not
// when the pipe is closed.
#ifndef YBNET_YBNETCTL_CHANGE_BATCH_SOURCE_H
#define YBNET_YBNETCTL_CHANGE_BATCH_SOURCE_H

#include <cstdint>
#include <string>

#include "tools/ybnetctl/change/batch_words.h"

namespace ybnetctl {

class batch_source {
  public:
    // "-" is standard input. Throws failure.
    explicit batch_source(const std::string &path);
    ~batch_source();
    batch_source(const batch_source &) = delete;
    batch_source &operator=(const batch_source &) = delete;

    // False at the end, or when a signal came that ends the run (interrupts.h). Throws failure when reading fails.
    bool next(batch_command *out);

    // How much of the file has been read, from 0 to 1; below 0 when its size is not known.
    [[nodiscard]] double share() const;

  private:
    bool read_more();

    std::string name_;
    int descriptor_;
    uint64_t size_ = 0; // 0: not known
    uint64_t passed_ = 0;
    std::string text_; // what is not passed yet; the reader walks over it
    batch_reader reader_;
    bool ended_ = false;
};

} // namespace ybnetctl

#endif
