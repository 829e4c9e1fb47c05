// SPDX-License-Identifier: Apache-2.0
//
// Prints what is made from the tool's own tables when it is built: its man page,
// its completion, and the pages of the two shared-memory formats. Not installed.
#include <iostream>
#include <string>

#include "tools/ybnetctl/command_line.h"
#include "tools/ybnetctl/pages/bash_completion.h"
#include "tools/ybnetctl/pages/man_page.h"
#include "tools/ybnetctl/session.h"

using namespace ybnetctl;

int main(int argc, char **argv) {
    const std::string page = argc == 2 ? argv[1] : "";
    session run(std::cout, std::cerr);
    const command_line line(run);
    if (page == "ybnetctl.8")
        std::cout << man_page_of(line);
    else if (page == "ybnetctl.bash")
        std::cout << bash_completion_of(line);
    else if (page == "net_lib_ifc.5")
        std::cout << format_page_of(format_of(segment_kind::interfaces));
    else if (page == "net_lib_port.5")
        std::cout << format_page_of(format_of(segment_kind::ports));
    else {
        std::cerr << "usage: ybnetctl_pages ybnetctl.8 | ybnetctl.bash | net_lib_ifc.5 | net_lib_port.5\n";
        return 2;
    }
    return std::cout.flush() ? 0 : 1;
}
