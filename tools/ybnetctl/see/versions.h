// SPDX-License-Identifier: Apache-2.0
//
// The libraries that this process runs with, which are those that a process of the
// stack started now would get: where they were loaded from, and their versions.
#ifndef YBNET_YBNETCTL_SEE_VERSIONS_H
#define YBNET_YBNETCTL_SEE_VERSIONS_H

#include <string>
#include <vector>

#include "tools/ybnetctl/session.h"

namespace ybnetctl {

struct library_version {
    std::string role;    // "library", "logging", "utilities", "driver access"
    std::string path;    // of the file itself, behind all links; "" when not found
    std::string version; // what stands behind ".so." in its name; "" when nothing does
};

// The library and what defines the platform's functions.
std::vector<library_version> libraries_in_use();

// "1.2.3" of "/usr/lib/libname.so.1.2.3".
std::string version_in_path(const std::string &path);

// What the driver access library lists; an error in words instead when it cannot.
struct driver_devices {
    std::vector<std::string> names;
    std::string error;
    bool command_file = false; // the driver's command file is there
};
driver_devices find_driver_devices();

json to_json(const std::vector<library_version> &libraries);
json to_json(const driver_devices &devices);

} // namespace ybnetctl

#endif
