// SPDX-License-Identifier: Apache-2.0
//
// ybnetctl(8), made from the option table; and the two format pages,
// net_lib_ifc(5) and net_lib_port(5), made from the table of fields. All in
// mdoc(7).
#ifndef YBNET_YBNETCTL_PAGES_MAN_PAGE_H
#define YBNET_YBNETCTL_PAGES_MAN_PAGE_H

#include <string>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/segments/fields.h"

namespace ybnetctl {

std::string man_page_of(const command_line &line);
std::string format_page_of(const segment_format &format);

// Text as mdoc takes it, in a line of its own: no word of it is taken for a macro.
std::string roff(const std::string &text);

} // namespace ybnetctl

#endif
