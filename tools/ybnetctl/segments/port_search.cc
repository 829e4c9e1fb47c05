// SPDX-License-Identifier: Apache-2.0
//
// See port_search.h. The search keeps the rules of the library's table
// (net_lib_db/port_table.cc); that the two agree is tested against the library.
#include "tools/ybnetctl/segments/port_search.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

#include "tools/ybnetctl/segments/decode.h"
#include "tools/ybnetctl/table.h"
#include "ybnet/platform/yb_util.h"

namespace ybnetctl {

namespace {

constexpr uint16_t crc_parameter = 0x8D95;

bool has_content(const net_lib_port_entry_t &bucket) {
    const auto *const bytes = reinterpret_cast<const char *>(&bucket);
    return std::any_of(bytes, bytes + sizeof(bucket), [](char each) { return each != 0; });
}

std::string port_in_words(const net_lib_port_entry_t &bucket) {
    const auto *const name = reinterpret_cast<const std::byte *>(bucket.info.name);
    return "port " + std::to_string(bucket.sys_ifindex) + " (\"" +
           printable(text_at(name, sizeof(bucket.info.name))) + "\")";
}

} // namespace

uint16_t home_bucket(uint32_t sys_ifindex) {
    alignas(uint32_t) static thread_local uint8_t work_area[YB_CRC_WORK_AREA_SIZE];
    return crc_16(work_area, reinterpret_cast<const uint8_t *>(&sys_ifindex), sizeof(sys_ifindex),
                  crc_parameter);
}

bucket_state state_of(const net_lib_port_entry_t &bucket) {
    if (bucket.hash == 0) {
        if (bucket.sys_ifindex != 0 && bucket.deleted == 0 && home_bucket(bucket.sys_ifindex) == 0)
            return bucket_state::uncounted;
        return has_content(bucket) ? bucket_state::stray_bytes : bucket_state::empty;
    }
    if (bucket.deleted != 0)
        return bucket_state::removed;
    const bool keyed = bucket.sys_ifindex != 0 && bucket.hash == home_bucket(bucket.sys_ifindex);
    return keyed ? bucket_state::recorded : bucket_state::damaged;
}

std::vector<uint16_t> buckets_of(const ports_body &body, uint32_t sys_ifindex) {
    std::vector<uint16_t> found;
    for (uint32_t i = 0; i < YB_NET_PORTS_MAX && sys_ifindex != 0; i++) {
        const net_lib_port_entry_t &bucket = body.port_table[i];
        if (bucket.sys_ifindex != sys_ifindex)
            continue;
        const bucket_state state = state_of(bucket);
        if (state == bucket_state::recorded || state == bucket_state::uncounted)
            found.push_back(static_cast<uint16_t>(i));
    }
    return found;
}

library_answer library_port_get(const ports_body &body, uint32_t sys_ifindex) {
    if (sys_ifindex == 0)
        return {YB_STATUS_PARAM_ERROR, 0};
    const uint16_t home = home_bucket(sys_ifindex);
    uint16_t index = home;
    uint16_t probes = 0;
    do {
        const net_lib_port_entry_t &bucket = body.port_table[index];
        if (bucket.hash == 0)
            return {YB_STATUS_SUCCESS, index}; // an empty bucket's record is answered too
        if (static_cast<uint16_t>(index - bucket.hash) < probes)
            break;
        if (bucket.hash == home && bucket.sys_ifindex == sys_ifindex)
            return {YB_STATUS_SUCCESS, index};
        index++;
        probes++;
    } while (index != home);
    return {YB_STATUS_ENTRY_NOT_FOUND, 0};
}

uint32_t library_log_port_get(const ports_body &body, uint32_t log_port) {
    if (!YB_NET_LOG_PORT_IS_LAG(log_port))
        return body.port_to_ifindex[YB_NET_LOG_PORT_PORT_INDEX(log_port)];
    const uint32_t lag = YB_NET_LOG_PORT_LAG_INDEX(log_port);
    return lag < YB_NET_LAG_TO_IFINDEX_LENGTH ? body.lag_to_ifindex[lag]
                                              : body.port_to_ifindex[lag - YB_NET_LAG_TO_IFINDEX_LENGTH];
}

std::string difference_in_words(const ports_body &body, uint32_t sys_ifindex, uint16_t bucket) {
    const library_answer answer = library_port_get(body, sys_ifindex);
    const std::string key = "for key " + std::to_string(sys_ifindex);
    if (answer.status != YB_STATUS_SUCCESS)
        return "the library answers YB_STATUS_ENTRY_NOT_FOUND " + key +
               ": its search ends before it comes to bucket " + std::to_string(bucket);
    if (answer.bucket == bucket)
        return "";
    const net_lib_port_entry_t &answered = body.port_table[answer.bucket];
    const std::string where =
        "bucket " + std::to_string(answer.bucket) + ", not of bucket " + std::to_string(bucket);
    switch (state_of(answered)) {
    case bucket_state::empty:
        return "the library answers a record of zeros " + key + ": its search ends on the empty " + where;
    case bucket_state::recorded:
        return "the library answers the record of " + where + ", " + key;
    default:
        return "the library answers " + key + " what is left in " + where +
               ", which counts as empty and holds " +
               (answered.sys_ifindex != 0 ? port_in_words(answered) : "the bytes of no port");
    }
}

// A search that began at H comes past bucket I when that is in use and no nearer to its own home than to H; so it comes
// to bucket B when the furthest home of all buckets from H up to B is H itself, or lies before it. Buckets are numbered
// on over rounds, so that no home has a greater number than its bucket: one round to be known, one to be answered.
std::vector<bool> buckets_answered(const ports_body &body) {
    constexpr uint32_t round = YB_NET_PORTS_MAX;
    constexpr uint32_t never = UINT32_MAX; // home of an empty bucket: every search ends there
    struct met {
        uint32_t at;
        uint32_t home;
    };
    std::vector<met> furthest; // from any place on: homes fall from each to the next
    std::map<std::pair<uint16_t, uint32_t>, uint32_t> last_of_key;
    std::vector<bool> answered(round);
    for (uint32_t at = round; at < 3 * round; at++) {
        const auto index = static_cast<uint16_t>(at);
        const net_lib_port_entry_t &bucket = body.port_table[index];
        const uint32_t home = at - static_cast<uint16_t>(index - bucket.hash);
        if (at >= 2 * round) { // a whole round is known
            const auto first = std::partition_point(furthest.begin(), furthest.end(),
                                                    [home](const met &each) { return each.at < home; });
            const auto same = last_of_key.find({bucket.hash, bucket.sys_ifindex});
            answered[index] = (first == furthest.end() || first->home <= home) &&
                              (bucket.hash == 0 || same == last_of_key.end() || same->second < home);
        }
        const uint32_t reach = bucket.hash == 0 ? never : home;
        while (!furthest.empty() && furthest.back().home <= reach)
            furthest.pop_back();
        furthest.push_back({at, reach});
        if (bucket.hash != 0)
            last_of_key[{bucket.hash, bucket.sys_ifindex}] = at;
    }
    return answered;
}

std::string absence_in_words(const ports_body &body, uint32_t sys_ifindex) {
    const library_answer answer = library_port_get(body, sys_ifindex);
    if (answer.status != YB_STATUS_SUCCESS)
        return "the library answers the same";
    const net_lib_port_entry_t &answered = body.port_table[answer.bucket];
    const std::string where = "bucket " + std::to_string(answer.bucket);
    switch (state_of(answered)) {
    case bucket_state::empty:
        return "the library answers a record of zeros for this key, with YB_STATUS_SUCCESS: its search ends "
               "on "
               "the empty " +
               where;
    case bucket_state::uncounted:
        return "the library answers the record of " + port_in_words(answered) +
               " for this key, with YB_STATUS_SUCCESS: " + where + " counts as empty";
    default:
        return "the library answers what is left in " + where + " for this key, with YB_STATUS_SUCCESS";
    }
}

} // namespace ybnetctl
