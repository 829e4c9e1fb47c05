// SPDX-License-Identifier: Apache-2.0
//
// How the cost of operations grows with what is there: a table is filled up and
// emptied again, and at each of a few steps the operations are timed. Prints
// series as JSON, which plot draws.
// usage: scale ports | scale loopbacks [NUMBER] | scale vlans [NUMBER]
// VLANs are made in the namespaces it is started in, which are to be the lab's; all else in its own.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <net/if.h>
#include <string>
#include <utility>
#include <vector>

#include "bench/sandboxed.h"
#include "ybnet/net_lib.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"
#include "ybnet/platform/yb_util.h"

namespace {

using clock_type = std::chrono::steady_clock;

uint32_t interfaces = YB_NET_INTERFACES_MAX; // or fewer, where making them takes long
constexpr uint32_t interface_steps = 16;
constexpr uint32_t ports = YB_NET_PORTS_MAX;
constexpr uint32_t port_step = 4096;
constexpr uint32_t absent = 0x00FF'0000;
constexpr uint32_t last_vlan = 4093; // one id stays free for the bare command

void expect(bool done, const std::string &what) {
    if (done)
        return;
    (void)fprintf(stderr, "failed: %s\n", what.c_str());
    exit(1);
}

void succeeded(yb_status_t status, const char *what) {
    expect(status == YB_STATUS_SUCCESS, what);
}

template <typename operation_t> double nanoseconds_of(operation_t operation) {
    const auto start = clock_type::now();
    operation();
    return std::chrono::duration<double, std::nano>(clock_type::now() - start).count();
}

double median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

template <typename operation_t> double median_of(unsigned repetitions, operation_t operation) {
    std::vector<double> times;
    for (unsigned i = 0; i < repetitions; i++)
        times.push_back(nanoseconds_of(operation));
    return median(times);
}

// name -> (number present, nanoseconds)
std::map<std::string, std::vector<std::pair<uint32_t, double>>> series;

void add_point(const std::string &name, uint32_t present, double nanoseconds) {
    series[name].emplace_back(present, nanoseconds);
}

void print_series(const char *title) {
    printf("{\"title\": \"%s\", \"series\": [", title);
    const char *separator = "";
    for (const auto &[name, points] : series) {
        printf("%s\n {\"name\": \"%s\", \"points\": [", separator, name.c_str());
        for (size_t i = 0; i < points.size(); i++)
            printf("%s[%u, %.1f]", i == 0 ? "" : ", ", points[i].first, points[i].second);
        printf("]}");
        separator = ",";
    }
    printf("]}\n");
}

// ---- Interfaces -------------------------------------------------------------

bool vlans;

yb_net_interface_params_t params_of(uint32_t key) {
    yb_net_interface_params_t params = {};
    if (vlans && key <= last_vlan) {
        params.type = YB_L2_INTERFACE_TYPE_VLAN;
        params.by_type.vlan.vlan_id = static_cast<uint16_t>(key);
    } else {
        params.type = YB_L2_INTERFACE_TYPE_LOOPBACK;
        (void)snprintf(params.name, sizeof(params.name), "scale%u", key);
    }
    return params;
}

std::string created_name;

double create(uint32_t key) {
    yb_net_interface_params_t params = params_of(key);
    const double time = nanoseconds_of([&] {
        succeeded(yb_net_interface_set(YB_ACCESS_CMD_CREATE, key, &params), "yb_net_interface_set, create");
    });
    yb_net_interface_record_t record;
    succeeded(yb_net_interface_params_get(key, &record), "yb_net_interface_params_get");
    created_name = std::string(record.params.name, strnlen(record.params.name, sizeof(record.params.name)));
    return time;
}

void run(const std::string &command) {
    expect(std::system(command.c_str()) == 0, command);
}

// The same work without the library, and its parts: what grows in the kernel and what in the table.
void measure_at(uint32_t present) {
    const std::string bare = vlans ? "ip link add link swid0_eth name probe type vlan id 4094"
                                   : "ip link add name probe type bridge";
    std::vector<double> added;
    std::vector<double> removed;
    for (int i = 0; i < 5; i++) {
        added.push_back(nanoseconds_of([&] { run(bare); }));
        removed.push_back(nanoseconds_of([] { run("ip link del dev probe"); }));
    }
    add_point("bare command, create", present, median(added));
    add_point("bare command, remove", present, median(removed));
    add_point("if_nametoindex() of the last", present,
              median_of(101, [] { expect(if_nametoindex(created_name.c_str()) != 0, "if_nametoindex"); }));
    add_point("state get of the last", present, median_of(11, [present] {
                  uint32_t up;
                  succeeded(yb_net_interface_state_get(present, &up), "yb_net_interface_state_get");
              }));
    add_point("record get of the last", present, median_of(101, [present] {
                  yb_net_interface_record_t record;
                  succeeded(net_lib_db_interface_get(present, &record), "net_lib_db_interface_get");
              }));
    add_point("list of all records", present, median_of(11, [present] {
                  yb_net_interface_record_t record;
                  uint32_t found = 0;
                  for (uint32_t i = 0; i < YB_NET_INTERFACES_MAX; i++)
                      found += net_lib_db_interface_get_by_db_index(i, &record) == YB_STATUS_SUCCESS;
                  expect(found == present, "net_lib_db_interface_get_by_db_index");
              }));
    if (present == YB_NET_INTERFACES_MAX)
        return; // no slot is left for one more
    const yb_net_interface_params_t params = params_of(absent);
    std::vector<double> recorded;
    for (int i = 0; i < 51; i++) {
        recorded.push_back(nanoseconds_of([&params] {
            succeeded(net_lib_db_interface_add(absent, absent, &params), "net_lib_db_interface_add");
        }));
        succeeded(net_lib_db_interface_remove(absent), "net_lib_db_interface_remove");
    }
    add_point("record add", present, median(recorded));
}

void scale_interfaces() {
    for (uint32_t present = 0; present < interfaces;) {
        std::vector<double> times;
        for (uint32_t i = 0; i < interfaces / interface_steps; i++)
            times.push_back(create(++present));
        add_point("create", present, median(times));
        measure_at(present);
        (void)fprintf(stderr, "\r%u interfaces ", present);
    }
    for (uint32_t present = interfaces; present > 0;) {
        std::vector<double> times;
        const uint32_t before = present;
        for (uint32_t i = 0; i < interfaces / interface_steps; i++, present--)
            times.push_back(nanoseconds_of([present] {
                succeeded(yb_net_interface_set(YB_ACCESS_CMD_DESTROY, present, nullptr),
                          "yb_net_interface_set, destroy");
            }));
        add_point("remove", before, median(times));
        (void)fprintf(stderr, "\r%u interfaces ", present);
    }
    (void)fputc('\n', stderr);
}

// ---- Ports ------------------------------------------------------------------

std::vector<yb_net_port_info_t> listed(YB_NET_PORTS_MAX);

void list_ports(const char *name, uint32_t present) {
    add_point(name, present, median_of(21, [present] {
                  uint32_t size = YB_NET_PORTS_MAX;
                  succeeded(net_lib_db_ports_get_all(YB_NET_PORT_PROTOCOL_ANY, listed.data(), &size),
                            "net_lib_db_ports_get_all");
                  expect(size == present, "number of ports");
              }));
}

// Ports whose checksum is 0 are not kept.
std::vector<uint32_t> keys_of_ports() {
    alignas(uint32_t) static uint8_t area[YB_CRC_WORK_AREA_SIZE];
    std::vector<uint32_t> keys;
    for (uint32_t key = 1; keys.size() < ports; key++)
        if (crc_16(area, reinterpret_cast<const uint8_t *>(&key), sizeof(key), 0x8D95) != 0)
            keys.push_back(key);
    return keys;
}

void set(uint32_t key) {
    yb_net_port_info_t info = {};
    info.attr_b = YB_NET_PORT_ATTR_B_NONE;
    info.protocol = 1;
    info.log_port = key << 8;
    succeeded(net_lib_db_port_set(key, &info), "net_lib_db_port_set");
}

void get(uint32_t key) {
    yb_net_port_info_t info;
    succeeded(net_lib_db_port_get(key, &info), "net_lib_db_port_get");
}

void remove_port(uint32_t key) {
    succeeded(net_lib_db_port_remove(key), "net_lib_db_port_remove");
}

// The time that one takes of ports [first, end), called one after the other.
double each_of(const std::vector<uint32_t> &keys, uint32_t first, uint32_t end, void (*operation)(uint32_t)) {
    const double time = nanoseconds_of([&] {
        for (uint32_t i = first; i < end; i++)
            operation(keys[i]);
    });
    return time / (end - first);
}

// A step in parts, of which the median counts: one that something else interrupted does not.
double step_of(const std::vector<uint32_t> &keys, uint32_t first, void (*operation)(uint32_t)) {
    constexpr uint32_t part = port_step / 64;
    std::vector<double> times;
    for (uint32_t i = first; i < first + port_step; i += part)
        times.push_back(each_of(keys, i, i + part, operation));
    return median(times);
}

void scale_ports() {
    const std::vector<uint32_t> keys = keys_of_ports();
    for (uint32_t present = 0; present < ports;) {
        const double time = step_of(keys, present, set);
        present += port_step;
        add_point("set", present, time);
        add_point("get", present, step_of(keys, present - port_step, get));
        list_ports("list of all", present);
    }
    for (uint32_t present = ports; present > 0; present -= port_step)
        add_point("remove", present, step_of(keys, present - port_step, remove_port));
}

} // namespace

int main(int argc, char **argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    vlans = !words.empty() && words[0] == "vlans";
    if (words.empty() || (!vlans && !sandboxed()))
        return 2;
    if (words[0] == "ports") {
        succeeded(net_lib_db_ports_load(0), "net_lib_db_ports_load");
        scale_ports();
        print_series("ports");
        succeeded(net_lib_db_ports_unload(0), "net_lib_db_ports_unload");
        return 0;
    }
    if (words.size() > 1)
        interfaces = static_cast<uint32_t>(std::stoul(words[1]));
    expect(interfaces != 0 && interfaces <= YB_NET_INTERFACES_MAX && interfaces % interface_steps == 0,
           "NUMBER is a multiple of 16, at most 4096");
    succeeded(net_lib_db_interfaces_load(0), "net_lib_db_interfaces_load");
    scale_interfaces();
    print_series(words[0].c_str());
    succeeded(net_lib_db_interfaces_unload(0), "net_lib_db_interfaces_unload");
    return 0;
}
