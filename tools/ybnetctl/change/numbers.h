// SPDX-License-Identifier: Apache-2.0
//
// Numbers of which one value means none (RIF, VRID, MLAG id), as they are typed: "5", "0x5", "none".
#ifndef YBNET_YBNETCTL_CHANGE_NUMBERS_H
#define YBNET_YBNETCTL_CHANGE_NUMBERS_H

#include <cstdint>
#include <string>

#include <CLI/CLI.hpp>

namespace ybnetctl {

struct number_or_none {
    std::string option; // "--rif"
    uint16_t none;      // the value that stands for it
    uint16_t most;
};

extern const number_or_none rif_number;
extern const number_or_none vrid_number;
extern const number_or_none mlag_number;

// Refuses everything but "none" and numbers up to the most; also the number that stands for none.
CLI::Validator check(const number_or_none &kind);

// Of text that passed the check; "" counts as none.
uint16_t value_of(const number_or_none &kind, const std::string &text);

} // namespace ybnetctl

#endif
