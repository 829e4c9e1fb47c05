// SPDX-License-Identifier: Apache-2.0
//
// One of the processes of torture_test.cc: what it does until it is told to stop or killed, and what it notes of that
// in memory that all of them share.
#ifndef YBNET_TESTS_TORTURE_WORKER_H
#define YBNET_TESTS_TORTURE_WORKER_H

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <sys/resource.h>

#include "tests/support/recording_platform.h"
#include "tests/support/segment_file.h"
#include "ybnet/net_lib_db.h"
#include "ybnet/net_lib_db_layout.h"

inline constexpr int workers = 20;
inline constexpr uint32_t interface_keys = 64;
inline constexpr uint32_t port_keys = 300;
inline constexpr uint32_t severity_warn = 3;
inline constexpr size_t taken_over_max = 1 << 16; // as many are noted

struct database {
    yb_status_t (*load)(uint32_t);
    yb_status_t (*unload)(uint32_t);
    segment_format format;
};
inline constexpr database databases[] = {
    {net_lib_db_interfaces_load, net_lib_db_interfaces_unload, interfaces_format},
    {net_lib_db_ports_load, net_lib_db_ports_unload, ports_format}};

// What all processes share: what each has done so far, and what anybody has seen go wrong.
struct tally {
    struct {
        std::atomic<long> loads_begun, loads_ended, unloads_begun, unloads_ended;
    } users[2];
    std::atomic<long> operations[workers];
    std::atomic<bool> loads_or_unloads[workers];           // it is inside one right now
    std::atomic<uint32_t> taken_over_from[taken_over_max]; // threads that died; 0 ends them
    std::atomic<long> repairs, torn, assertions, failed_loads;
    std::atomic<bool> stop;
};

// ---- Records that tell whether they are whole ----

inline yb_net_interface_params_t block_of(uint8_t byte) {
    yb_net_interface_params_t params;
    memset(&params, byte, sizeof(params));
    params.ns_name[31] = 0;
    return params;
}
inline bool is_whole(const yb_net_interface_record_t &record) {
    const yb_net_interface_params_t expected = block_of(static_cast<uint8_t>(record.params.name[0]));
    return memcmp(&record.params, &expected, sizeof(expected)) == 0 && record.sys_ifindex >= 1 &&
           record.sys_ifindex <= interface_keys && record.linux_ifindex == record.sys_ifindex + 1000;
}

inline yb_net_port_info_t info_of(uint32_t key, uint8_t byte) {
    yb_net_port_info_t info = {};
    info.attr_a = byte;
    info.attr_c = byte;
    info.attr_i = key;
    info.log_port = key << 8;
    memset(info.name, byte, sizeof(info.name));
    memset(info.attr_g, byte, sizeof(info.attr_g));
    info.attr_h = byte;
    return info;
}
inline bool is_whole(const yb_net_port_info_t &info) {
    const yb_net_port_info_t expected = info_of(info.attr_i, info.attr_a);
    static constexpr yb_net_port_info_t nothing = {};
    return memcmp(&info, &expected, sizeof(info)) == 0 || memcmp(&info, &nothing, sizeof(info)) == 0;
}

// ---- A worker ----

class worker {
  public:
    worker(tally &all, int number, uint64_t seed) : all_(all), number_(number), random_(seed) {}

    int run() {
        struct rlimit limit = {4096, 4096}; // each load keeps a descriptor
        (void)setrlimit(RLIMIT_NOFILE, &limit);
        all_.loads_or_unloads[number_] = true;
        load_both();
        all_.loads_or_unloads[number_] = false;
        for (int loads = 0; !all_.stop.load();) {
            interface_operation();
            port_operation();
            note_messages();
            all_.operations[number_]++;
            if (below(100) == 0 && loads < 1000) {
                loads++;
                all_.loads_or_unloads[number_] = true;
                unload_both();
                load_both();
                all_.loads_or_unloads[number_] = false;
            }
        }
        unload_both();
        note_messages();
        return 0;
    }

  private:
    uint32_t below(uint32_t limit) {
        return static_cast<uint32_t>(random_() % limit);
    }
    uint8_t any_byte() {
        return static_cast<uint8_t>(1 + below(254));
    }
    void load_both() {
        for (size_t i = 0; i < 2; i++) {
            all_.users[i].loads_begun++;
            // Now and then the first load erases.
            if (databases[i].load(below(50) == 0 ? 1 : 0) != YB_STATUS_SUCCESS)
                all_.failed_loads++;
            all_.users[i].loads_ended++;
        }
    }
    void unload_both() {
        for (size_t i = 0; i < 2; i++) {
            all_.users[i].unloads_begun++;
            (void)databases[i].unload(0);
            all_.users[i].unloads_ended++;
        }
    }
    void interface_operation() {
        const uint32_t key = 1 + below(interface_keys);
        yb_net_interface_record_t record;
        switch (below(8)) {
        case 0:
        case 1: {
            const yb_net_interface_params_t params = block_of(any_byte());
            (void)net_lib_db_interface_add(key, key + 1000, &params);
            break;
        }
        case 2:
            (void)net_lib_db_interface_remove(key);
            break;
        case 3:
            (void)net_lib_db_interface_rif_add(key, any_byte());
            break;
        default:
            if (net_lib_db_interface_get(key, &record) == YB_STATUS_SUCCESS && !is_whole(record))
                all_.torn++;
        }
    }
    void port_operation() {
        const uint32_t key = 1 + below(port_keys);
        yb_net_port_info_t info = info_of(key, any_byte());
        switch (below(10)) {
        case 0:
        case 1:
        case 2:
        case 3:
            (void)net_lib_db_port_set(key, &info);
            break;
        case 4:
            (void)net_lib_db_port_remove(key);
            break;
        case 5:
            if (below(50) == 0) // deleted buckets pile up
                (void)net_lib_db_ports_load(2);
            break;
        case 6: {
            std::array<yb_net_port_info_t, 64> list;
            uint32_t size = list.size();
            (void)net_lib_db_ports_get_all(0, list.data(), &size);
            for (uint32_t i = 0; i < size; i++)
                all_.torn += is_whole(list[i]) ? 0 : 1;
            break;
        }
        default:
            if (net_lib_db_port_get(key, &info) == YB_STATUS_SUCCESS && !is_whole(info))
                all_.torn++;
        }
    }
    void note_messages() {
        for (const platform::log_line &line : platform::recorded().log) {
            if (line.module != "YB_NET_LIB")
                all_.assertions++;
            else if (line.severity == severity_warn)
                note_warning(line.text);
        }
        platform::recorded() = {};
    }

    void note_warning(const std::string &text) {
        static const std::string words = "lock taken over from thread ";
        const size_t at = text.find(words);
        if (at == std::string::npos) {
            all_.repairs++;
            return;
        }
        const auto dead = static_cast<uint32_t>(strtoul(text.c_str() + at + words.size(), nullptr, 10));
        all_.assertions += dead == 0 ? 1 : 0;
        for (std::atomic<uint32_t> &slot :
             all_.taken_over_from) { // in one step: this process may be killed, too
            uint32_t nobody = 0;
            if (slot.compare_exchange_strong(nobody, dead))
                break;
        }
    }

    tally &all_;
    int number_;
    std::mt19937_64 random_;
};

#endif
