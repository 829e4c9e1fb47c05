// SPDX-License-Identifier: Apache-2.0
//
// Finding the entries of the catalogue that a code or a pasted line means. Pure.
#ifndef YBNET_YBNETCTL_EXPLAIN_SEARCH_H
#define YBNET_YBNETCTL_EXPLAIN_SEARCH_H

#include <optional>
#include <string>
#include <vector>

#include "tools/ybnetctl/explain/catalogue.h"

namespace ybnetctl {

struct catalogue_match {
    const status_entry *status = nullptr;   // this
    const message_entry *message = nullptr; // or this
    std::string format;                     // of the message, the one that fits
};

// Whether text holds what printf(3) can make of format; how many characters of the format stood in it as they are. A
// match that ends with the text is worth more, for messages end their lines.
struct format_fit {
    size_t literal = 0;
    bool to_the_end = false;
};
std::optional<format_fit> fit_format(const std::string &format, const std::string &text);

// The best match first. Empty when nothing fits.
std::vector<catalogue_match> search_catalogue(const std::string &query);

// What has most in common with a query that nothing fits, the nearest first; at most three. None for a number.
std::vector<std::string> nearest_entries(const std::string &query);

} // namespace ybnetctl

#endif
