// SPDX-License-Identifier: Apache-2.0
//
// See monitor_line.h.
#include "tools/ybnetctl/see/monitor_line.h"

#include <algorithm>
#include <array>

#include "tools/ybnetctl/kernel/netdevs.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

// Lines come one by one, so the columns have fixed widths; what is longer pushes the rest to the right.
std::string padded(const std::string &text, size_t width, side align) {
    const std::string padding(text.size() < width ? width - text.size() : 0, ' ');
    return align == side::right ? padding + text : text + padding;
}

constexpr size_t time_width = 26;
constexpr size_t event_width = 8;
constexpr size_t number_width = 6;
constexpr size_t name_width = 15;
constexpr size_t ns_width = 10;

tone tone_of(monitor_event event) {
    switch (event) {
    case monitor_event::up:
        return tone::good;
    case monitor_event::down:
    case monitor_event::deleted:
        return tone::bad;
    case monitor_event::lost:
    case monitor_event::namespace_deleted:
        return tone::warning;
    default:
        return tone::plain;
    }
}

std::string detail_of(const monitor_line &line) {
    if (line.event == monitor_event::lost)
        return (line.dropped ? std::to_string(*line.dropped) : std::string("some")) +
               " events were dropped by the kernel; the state of each recorded interface follows";
    if (line.event == monitor_event::namespace_deleted)
        return "no longer watched; the state of each interface recorded in it follows";
    if (line.event == monitor_event::deleted)
        return line.bridge_port ? "left its bridge" : "";
    if (!line.up)
        return "gone";
    return state_in_words(
        {.name = {}, .kind = {}, .vlan_id = {}, .up = *line.up, .carrier = line.carrier.value_or(false)});
}

std::tm local_parts(const timespec &time) {
    std::tm parts{};
    (void)localtime_r(&time.tv_sec, &parts); // every time of a clock has its parts
    return parts;
}

std::string formatted(const std::tm &parts, const char *format) {
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
}

std::string microseconds(const timespec &time) {
    const std::string digits = std::to_string(time.tv_nsec / 1000);
    return '.' + std::string(6 - std::min<size_t>(6, digits.size()), '0') + digits;
}

// "2026-03-01T02:03:04.567890+01:00"
std::string iso_time(const timespec &time) {
    const std::tm parts = local_parts(time);
    std::string zone = formatted(parts, "%z");
    if (zone.size() == 5)
        zone.insert(3, ":");
    return formatted(parts, "%Y-%m-%dT%H:%M:%S") + microseconds(time) + zone;
}

template <class Value> json or_null(const std::optional<Value> &value) {
    return value ? json(*value) : json(nullptr);
}

std::string or_dash(const std::optional<uint32_t> &number) {
    return number ? std::to_string(*number) : "-";
}

std::string or_dash(const std::string &text) {
    return text.empty() ? "-" : printable(text);
}

} // namespace

const char *key_of(monitor_event event) {
    switch (event) {
    case monitor_event::down:
        return "down";
    case monitor_event::up:
        return "up";
    case monitor_event::change:
        return "change";
    case monitor_event::deleted:
        return "deleted";
    case monitor_event::lost:
        return "lost";
    case monitor_event::namespace_deleted:
        return "namespace_deleted";
    case monitor_event::state:
        break;
    }
    return "state";
}

std::string local_time(const timespec &time) {
    return formatted(local_parts(time), "%Y-%m-%d %H:%M:%S") + microseconds(time);
}

json to_json(const monitor_line &line) {
    json object;
    // Whole microseconds: exact in a double for centuries.
    object["time"] =
        static_cast<double>(time_t{line.time.tv_sec} * 1'000'000 + line.time.tv_nsec / 1000) / 1e6;
    object["time_iso"] = iso_time(line.time);
    object["event"] = key_of(line.event);
    object["sys_ifindex"] = or_null(line.sys_ifindex);
    object["linux_ifindex"] = or_null(line.linux_ifindex);
    object["name"] = line.name.empty() ? json(nullptr) : json(line.name);
    object["namespace"] = line.ns;
    object["up"] = or_null(line.up);
    object["carrier"] = or_null(line.carrier);
    object["bridge_port"] = line.bridge_port;
    if (line.event == monitor_event::lost)
        object["dropped"] = or_null(line.dropped);
    return object;
}

std::string to_text(const monitor_line &line, bool colour) {
    const std::string event = key_of(line.event);
    std::string text = local_time(line.time) + "  " + shaded(event, tone_of(line.event), colour) +
                       std::string(event_width - std::min(event_width, event.size()), ' ') + "  " +
                       padded(or_dash(line.sys_ifindex), number_width, side::right) + "  " +
                       padded(or_dash(line.linux_ifindex), number_width, side::right) + "  " +
                       padded(or_dash(line.name), name_width, side::left) + "  " +
                       padded(or_dash(line.ns), ns_width, side::left) + "  " + detail_of(line);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string monitor_heading(bool colour) {
    return shaded(padded("TIME", time_width, side::left) + "  " + padded("EVENT", event_width, side::left) +
                      "  " + padded("SYSIF", number_width, side::right) + "  " +
                      padded("LINUX", number_width, side::right) + "  " +
                      padded("NAME", name_width, side::left) + "  " +
                      padded("NAMESPACE", ns_width, side::left) + "  STATE",
                  tone::heading, colour);
}

} // namespace ybnetctl
