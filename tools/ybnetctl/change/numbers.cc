// SPDX-License-Identifier: Apache-2.0
//
// See numbers.h.
#include "tools/ybnetctl/change/numbers.h"

#include <optional>

#include "tools/ybnetctl/option_words.h"
#include "ybnet/yb_net_interface.h"
#include "ybnet/yb_net_port.h"

namespace ybnetctl {

const number_or_none rif_number = {"--rif", YB_NET_RIF_NONE, YB_NET_RIF_NONE - 1};
const number_or_none vrid_number = {"--vrid", YB_NET_VRID_NONE, UINT16_MAX};
const number_or_none mlag_number = {"--mlag", 0, YB_NET_MLAG_ID_MAX};

namespace {

std::optional<uint64_t> number_in(const std::string &text) {
    uint64_t number = 0;
    if (text.empty() || text[0] < '0' || text[0] > '9' || !CLI::detail::lexical_cast(text, number))
        return std::nullopt;
    return number;
}

} // namespace

CLI::Validator check(const number_or_none &kind) {
    const auto refuse = [kind](const std::string &text) -> std::string {
        if (text == "none")
            return "";
        if (std::string problem = leading_zero_problem(text); !problem.empty())
            return problem;
        const auto number = number_in(text);
        if (!number || *number > kind.most)
            return "'" + text + "' is neither a number from 0 to " + std::to_string(kind.most) + " nor none";
        if (*number == kind.none)
            return "'" + text + "' stands for none: say none";
        return "";
    };
    return {refuse, "N|none"};
}

uint16_t value_of(const number_or_none &kind, const std::string &text) {
    return text.empty() || text == "none" ? kind.none : static_cast<uint16_t>(*number_in(text));
}

} // namespace ybnetctl
