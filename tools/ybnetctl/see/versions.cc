// SPDX-License-Identifier: Apache-2.0
//
// See versions.h. Listing devices opens none.
#include "tools/ybnetctl/see/versions.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <unistd.h>

#include "ybnet/platform/ybd.h"

namespace ybnetctl {

namespace {

constexpr const char *driver_command_file = "/proc/qrn_yb/yb_core";

// The file that defines a symbol for the processes of the stack: behind this program, which may have one of its own.
std::string file_with(const char *symbol) {
    void *const address = dlsym(RTLD_NEXT, symbol);
    Dl_info info{};
    if (address == nullptr || dladdr(address, &info) == 0 || info.dli_fname == nullptr)
        return "";
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(info.dli_fname, nullptr), &std::free);
    return real ? real.get() : info.dli_fname;
}

} // namespace

std::string version_in_path(const std::string &path) {
    const size_t mark = path.rfind(".so.");
    return mark == std::string::npos ? "" : path.substr(mark + 4);
}

std::vector<library_version> libraries_in_use() {
    std::vector<library_version> libraries;
    for (const auto &[role, symbol] :
         {std::pair{"library", "yb_net_init"}, std::pair{"logging", "yb_log"},
          std::pair{"utilities", "crc_16"}, std::pair{"driver access", "ybd_open_device"}}) {
        const std::string path = file_with(symbol);
        libraries.push_back({role, path, version_in_path(path)});
    }
    return libraries;
}

driver_devices find_driver_devices() {
    constexpr size_t room = 64;
    std::array<std::array<char, YBD_DEV_NAME_SIZE>, room> buffers{};
    std::array<char *, room> names{};
    for (size_t i = 0; i < room; i++)
        names[i] = buffers[i].data();
    driver_devices devices;
    devices.command_file = access(driver_command_file, F_OK) == 0;
    uint32_t count = room;
    errno = 0;
    if (ybd_get_dev_list(names.data(), &count) != 0) {
        devices.error = std::strerror(errno);
        return devices;
    }
    for (size_t i = 0; i < count && i < room; i++)
        devices.names.emplace_back(buffers[i].data(), strnlen(buffers[i].data(), YBD_DEV_NAME_SIZE));
    return devices;
}

json to_json(const std::vector<library_version> &libraries) {
    json array = json::array();
    for (const library_version &each : libraries)
        array.push_back({{"role", each.role},
                         {"path", each.path.empty() ? json(nullptr) : json(each.path)},
                         {"version", each.version.empty() ? json(nullptr) : json(each.version)}});
    return array;
}

json to_json(const driver_devices &devices) {
    return {{"devices", devices.names},
            {"error", devices.error.empty() ? json(nullptr) : json(devices.error)},
            {"command_file", devices.command_file}};
}

} // namespace ybnetctl
