// SPDX-License-Identifier: Apache-2.0
//
// See port_model.h. Written from the rules of the format, slowly and plainly;
// nothing here is shared with the library.
#include "tests/unit/port_model.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t bucket_count = 65536;
constexpr size_t bucket_size = 84;
constexpr size_t lag_to_mlag = 5505024;
constexpr size_t mlag_to_lag = 5505536;
constexpr size_t lag_to_ifindex = 5509540;
constexpr size_t port_to_ifindex = 5510560;

// Within a bucket.
constexpr size_t key_at = 0;
constexpr size_t record_at = 4;
constexpr size_t deleted_at = 76;
constexpr size_t hash_at = 80;

// Within a record.
constexpr size_t attr_b_at = 1;
constexpr size_t protocol_at = 8;
constexpr size_t log_port_at = 12;
constexpr size_t lag_log_port_at = 16;
constexpr size_t mlag_id_at = 26;
constexpr size_t name_at = 28;
constexpr size_t name_size = 16;

// Fields that an update takes over when they are not zero: offset and width.
constexpr std::pair<size_t, size_t> merged[] = {{0, 1},  {4, 4},  {8, 4},  {12, 4}, {20, 1},
                                                {21, 1}, {22, 1}, {24, 2}, {44, 1}, {48, 4},
                                                {52, 4}, {56, 4}, {60, 4}, {64, 1}, {68, 4}};

constexpr uint32_t error = 1;
constexpr uint32_t notice = 7;
constexpr uint32_t info = 15;

size_t bucket_at(uint32_t index) {
    return index * bucket_size;
}

bool is_lag(uint32_t log_port) {
    return log_port / 0x10000000 == 1;
}

uint32_t port_index(uint32_t log_port) {
    return log_port / 256 % 65536;
}

uint32_t lag_index(uint32_t log_port) {
    return log_port / 256 % 256;
}

size_t ifindex_at(uint32_t log_port) {
    return is_lag(log_port) ? lag_to_ifindex + 4 * lag_index(log_port)
                            : port_to_ifindex + 4 * port_index(log_port);
}

// How many steps forward from one bucket to another.
uint32_t steps(uint32_t from, uint32_t to) {
    return (to + bucket_count - from % bucket_count) % bucket_count;
}

uint32_t word_of(const port_model::record &record, size_t offset) {
    uint32_t value;
    memcpy(&value, &record[offset], sizeof(value));
    return value;
}

uint32_t half_of(const port_model::record &record, size_t offset) {
    uint16_t value;
    memcpy(&value, &record[offset], sizeof(value));
    return value;
}

} // namespace

port_model::port_model(hash hash_of_key) : hash_of_key_(std::move(hash_of_key)), body_(body_size, 0) {}

uint32_t port_model::word(size_t offset) const {
    uint32_t value;
    memcpy(&value, &body_[offset], sizeof(value));
    return value;
}

uint32_t port_model::half(size_t offset) const {
    uint16_t value;
    memcpy(&value, &body_[offset], sizeof(value));
    return value;
}

void port_model::put_word(size_t offset, uint32_t value) {
    memcpy(&body_[offset], &value, sizeof(value));
}

void port_model::put_half(size_t offset, uint32_t value) {
    const auto narrow = static_cast<uint16_t>(value);
    memcpy(&body_[offset], &narrow, sizeof(narrow));
}

void port_model::say(uint32_t severity, const char *format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    said_.emplace_back(severity, text);
}

void port_model::adopt(std::vector<uint8_t> body) {
    body_ = std::move(body);
}

void port_model::initialize() {
    memset(&body_[0], 0, bucket_count * bucket_size);
    memset(&body_[lag_to_mlag], 0, size_t{255} * 2);
    memset(&body_[mlag_to_lag], 0, size_t{1001} * 4);
}

port_model::found port_model::search(uint32_t key) {
    const uint32_t home = hash_of_key_(key);
    for (uint32_t probes = 0; probes < bucket_count; probes++) {
        const uint32_t index = (home + probes) % bucket_count;
        const size_t at = bucket_at(index);
        if (word(at + hash_at) == 0)
            return {0, index};
        if (steps(word(at + hash_at), index) < probes)
            break;
        if (word(at + hash_at) == home && word(at + key_at) == key)
            return {0, index};
    }
    say(error, "Netlib ports DB - port with sys_ifindex 0x%x cannot be found in the DB\n", key);
    say(error, "Netlib ports DB - cannot get hash table entry by sys_ifindex %u\n", key);
    return {21, 0};
}

uint32_t port_model::set(uint32_t key, const record &given) {
    said_.clear();
    const uint32_t log_port = word_of(given, log_port_at);
    const uint32_t mlag_id = half_of(given, mlag_id_at);
    if (key == 0) {
        say(error, "Netlib ports DB - cannot add port with sys_ifindex==0\n");
        return 13;
    }
    if (is_lag(log_port) && mlag_id >= 1001) {
        say(error, "Netlib ports DB - cannot add LAG port with mlag_id > 1000\n");
        return 14;
    }

    const uint32_t home = hash_of_key_(key);
    uint32_t carried_hash = home;
    uint32_t carried_key = key;
    record carried = given;
    bool placed = false;
    for (uint32_t probes = 0; probes < bucket_count && !placed; probes++) {
        const uint32_t index = (home + probes) % bucket_count;
        const size_t at = bucket_at(index);
        const uint32_t resident_hash = word(at + hash_at);
        const bool empty = resident_hash == 0;
        if (!empty && word(at + key_at) == carried_key && resident_hash == home) {
            for (const auto &[offset, width] : merged) {
                bool given_here = false;
                for (size_t i = 0; i < width; i++)
                    given_here = given_here || given[offset + i] != 0;
                if (given_here)
                    memcpy(&body_[at + record_at + offset], &given[offset], width);
            }
            if (given[attr_b_at] != 255)
                body_[at + record_at + attr_b_at] = given[attr_b_at];
            if (is_lag(log_port))
                put_half(at + record_at + mlag_id_at, mlag_id);
            if (given[name_at] != 0) {
                bool ended = false;
                for (size_t i = 0; i < name_size; i++) {
                    ended = ended || given[name_at + i] == 0;
                    body_[at + record_at + name_at + i] = ended ? uint8_t{0} : given[name_at + i];
                }
            }
            placed = true;
            break;
        }
        const bool nearer = !empty && steps(resident_hash, index) < probes;
        if (empty || (nearer && body_[at + deleted_at] != 0)) {
            body_[at + deleted_at] = 0;
            put_word(at + hash_at, carried_hash);
            put_word(at + key_at, carried_key);
            memcpy(&body_[at + record_at], carried.data(), record_size);
            placed = true;
        } else if (nearer) {
            const uint32_t other_key = word(at + key_at);
            record other;
            memcpy(other.data(), &body_[at + record_at], record_size);
            put_word(at + hash_at, carried_hash);
            put_word(at + key_at, carried_key);
            memcpy(&body_[at + record_at], carried.data(), record_size);
            carried_hash = resident_hash;
            carried_key = other_key;
            carried = other;
        }
    }
    if (!placed) {
        say(error, "Netlib ports DB - port with sys_ifindex 0x%x cannot be setto the DB. DB is full\n", key);
        say(error, "Netlib ports DB - cannot set hash table entry by sys_ifindex %u\n", key);
        return 1;
    }
    if (log_port == 0)
        return 0;
    if (is_lag(log_port)) {
        put_half(lag_to_mlag + 2 * lag_index(log_port), mlag_id);
        if (mlag_id != 0)
            put_word(mlag_to_lag + 4 * mlag_id, log_port);
    }
    put_word(ifindex_at(log_port), key);
    return 0;
}

uint32_t port_model::remove(uint32_t key) {
    said_.clear();
    if (key == 0) {
        say(error, "Netlib ports DB - cannot remove port with sys_ifindex==0\n");
        return 13;
    }
    const found place = search(key);
    if (place.status != 0)
        return place.status;
    const size_t at = bucket_at(place.bucket);
    const uint32_t log_port = word(at + record_at + log_port_at);
    const uint32_t mlag_id = half(at + record_at + mlag_id_at);
    if (log_port != 0) {
        if (is_lag(log_port) && mlag_id != 0) {
            put_half(lag_to_mlag + 2 * lag_index(log_port), 0);
            if (mlag_id < 1001)
                put_word(mlag_to_lag + 4 * mlag_id, 0);
        }
        put_word(ifindex_at(log_port), 0);
    }
    put_word(at + key_at, 0);
    memset(&body_[at + record_at], 0, record_size);
    body_[at + deleted_at] = 1;
    return 0;
}

uint32_t port_model::get(uint32_t key, record *out) {
    said_.clear();
    if (key == 0) {
        say(error, "Netlib ports DB - cannot get port with sys_ifindex==0\n");
        return 13;
    }
    const found place = search(key);
    if (place.status == 0)
        memcpy(out->data(), &body_[bucket_at(place.bucket) + record_at], record_size);
    return place.status;
}

uint32_t port_model::lag_set(uint32_t key, uint32_t log_port) {
    said_.clear();
    if (key == 0) {
        say(error, "Netlib ports DB - cannot get port with sys_ifindex 0\n");
        return 13;
    }
    if (log_port != 0 && !is_lag(log_port)) {
        say(error, "Netlib ports DB - log port 0x%x is not a LAG port\n", log_port);
        return 13;
    }
    const found place = search(key);
    if (place.status == 0)
        put_word(bucket_at(place.bucket) + record_at + lag_log_port_at, log_port);
    return place.status;
}

uint32_t port_model::log_port_get(uint32_t log_port, uint32_t *out) {
    said_.clear();
    if (log_port == 0) {
        say(error, "Netlib ports DB - cannot get sys_ifindex with log_port==0\n");
        return 13;
    }
    *out = word(ifindex_at(log_port));
    if (*out != 0)
        return 0;
    say(info, "Netlib ports DB - logical port 0x%x cannot be found in the DB\n", log_port);
    return 21;
}

uint32_t port_model::lag_get(uint32_t mlag_id, uint32_t *out) {
    said_.clear();
    if (mlag_id == 0 || mlag_id > 1000) {
        say(error, "Netlib ports DB - mlag_id %u is out of range (1-1000)\n", mlag_id);
        return 14;
    }
    *out = word(mlag_to_lag + 4 * mlag_id);
    if (*out != 0)
        say(notice, "Netlib ports DB - MLAG ID %u is not bound to any LAG port\n", mlag_id);
    return 0;
}

uint32_t port_model::mlag_get(uint32_t log_port, uint16_t *out) {
    said_.clear();
    if (!is_lag(log_port)) {
        say(error, "Netlib ports DB - log port 0x%x is not a LAG port\n", log_port);
        return 13;
    }
    *out = static_cast<uint16_t>(half(lag_to_mlag + 2 * lag_index(log_port)));
    if (*out != 0)
        say(notice, "Netlib ports DB - LAG ID 0x%x is not bound to any MLAG\n", log_port);
    return 0;
}

uint32_t port_model::get_all(uint32_t protocol, std::vector<record> *out, uint32_t *size) {
    said_.clear();
    if (protocol >= 3) {
        say(error, "Netlib ports DB - invalid protocol %d given", static_cast<int>(protocol));
        return 14;
    }
    uint32_t count = 0;
    for (uint32_t index = 0; index < bucket_count; index++) {
        const size_t at = bucket_at(index);
        if (body_[at + deleted_at] != 0 || word(at + hash_at) == 0)
            continue;
        if (protocol != 0 && word(at + record_at + protocol_at) != protocol)
            continue;
        count++;
        if (out == nullptr)
            continue;
        out->emplace_back();
        memcpy(out->back().data(), &body_[at + record_at], record_size);
        if (count >= *size)
            break;
    }
    *size = count;
    return 0;
}
