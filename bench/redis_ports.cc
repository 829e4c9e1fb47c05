// SPDX-License-Identifier: Apache-2.0
//
// See redis_ports.h. Rests on hiredis.
#include "bench/redis_ports.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <hiredis/hiredis.h>
#include <memory>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

constexpr const char *socket_path = "/run/redis.sock";
constexpr size_t pipelined = 1000; // ports that fill() sends at once

struct free_reply {
    void operator()(redisReply *reply) const {
        freeReplyObject(reply);
    }
};
using reply_pointer = std::unique_ptr<redisReply, free_reply>;

[[noreturn]] void give_up(const redisContext *connection, const char *step) {
    (void)fprintf(stderr, "redis: %s: %s\n", step, connection == nullptr ? "no memory" : connection->errstr);
    abort();
}

reply_pointer checked(redisContext *connection, void *reply, const char *step) {
    reply_pointer owned(static_cast<redisReply *>(reply));
    if (owned == nullptr || owned->type == REDIS_REPLY_ERROR)
        give_up(connection, step);
    return owned;
}

redisContext *connect() {
    redisContext *const connection = redisConnectUnix(socket_path);
    if (connection != nullptr && connection->err == 0)
        return connection;
    if (connection != nullptr)
        redisFree(connection);
    return nullptr;
}

} // namespace

bool start_redis() {
    const pid_t server = fork();
    if (server == 0) {
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (freopen("/dev/null", "w", stdout) != nullptr)
            execlp("redis-server", "redis-server", "--port", "0", "--unixsocket", socket_path, "--save", "",
                   "--appendonly", "no", "--dir", "/run", nullptr);
        _exit(127);
    }
    constexpr timespec round = {0, 10'000'000};
    for (int i = 0; server > 0 && i < 1000; i++) {
        if (redisContext *const connection = connect(); connection != nullptr) {
            redisFree(connection);
            return true;
        }
        (void)nanosleep(&round, nullptr);
    }
    (void)fprintf(stderr, "redis-server did not come up\n");
    return false;
}

redis_ports::redis_ports(const std::string &table_name)
    : connection_(connect()), by_ifindex_("ports " + table_name), by_log_port_("log_ports " + table_name) {
    if (connection_ == nullptr)
        give_up(nullptr, "connect");
}

redis_ports::~redis_ports() {
    redisFree(connection_);
}

void redis_ports::append_set(uint32_t sys_ifindex, const yb_net_port_info_t &info) {
    (void)redisAppendCommand(connection_, "MULTI");
    (void)redisAppendCommand(connection_, "HSET %b %b %b", by_ifindex_.data(), by_ifindex_.size(),
                             &sys_ifindex, sizeof(sys_ifindex), &info, sizeof(info));
    (void)redisAppendCommand(connection_, "HSET %b %b %b", by_log_port_.data(), by_log_port_.size(),
                             &info.log_port, sizeof(info.log_port), &sys_ifindex, sizeof(sys_ifindex));
    (void)redisAppendCommand(connection_, "EXEC");
}

void redis_ports::take_replies(size_t count) {
    for (size_t i = 0; i < count; i++) {
        void *reply = nullptr;
        if (redisGetReply(connection_, &reply) != REDIS_OK)
            give_up(connection_, "reply");
        (void)checked(connection_, reply, "transaction");
    }
}

void redis_ports::fill(const std::vector<yb_net_port_info_t> &infos) {
    for (size_t i = 0; i < infos.size();) {
        const size_t end = std::min(i + pipelined, infos.size());
        const size_t replies = (end - i) * 4;
        for (; i < end; i++)
            append_set(infos[i].attr_i, infos[i]);
        take_replies(replies);
    }
}

bool redis_ports::get_value(const std::string &table, uint32_t key, void *out, size_t size) {
    const reply_pointer reply = checked(
        connection_, redisCommand(connection_, "HGET %b %b", table.data(), table.size(), &key, sizeof(key)),
        "HGET");
    if (reply->type != REDIS_REPLY_STRING || reply->len != size)
        return false;
    memcpy(out, reply->str, size);
    return true;
}

bool redis_ports::get(uint32_t sys_ifindex, yb_net_port_info_t *out) {
    return get_value(by_ifindex_, sys_ifindex, out, sizeof(*out));
}

uint32_t redis_ports::log_port_get(uint32_t log_port) {
    uint32_t sys_ifindex = 0;
    (void)get_value(by_log_port_, log_port, &sys_ifindex, sizeof(sys_ifindex));
    return sys_ifindex;
}

void redis_ports::set(uint32_t sys_ifindex, const yb_net_port_info_t &info) {
    append_set(sys_ifindex, info);
    take_replies(4);
}

void redis_ports::remove(uint32_t sys_ifindex) {
    yb_net_port_info_t info;
    if (!get(sys_ifindex, &info))
        give_up(connection_, "remove");
    (void)redisAppendCommand(connection_, "MULTI");
    (void)redisAppendCommand(connection_, "HDEL %b %b", by_ifindex_.data(), by_ifindex_.size(), &sys_ifindex,
                             sizeof(sys_ifindex));
    (void)redisAppendCommand(connection_, "HDEL %b %b", by_log_port_.data(), by_log_port_.size(),
                             &info.log_port, sizeof(info.log_port));
    (void)redisAppendCommand(connection_, "EXEC");
    take_replies(4);
}

uint32_t redis_ports::get_all(uint32_t protocol, yb_net_port_info_t *out) {
    const reply_pointer reply = checked(
        connection_, redisCommand(connection_, "HVALS %b", by_ifindex_.data(), by_ifindex_.size()), "HVALS");
    uint32_t count = 0;
    for (size_t i = 0; i < reply->elements; i++) {
        yb_net_port_info_t info;
        memcpy(&info, reply->element[i]->str, sizeof(info));
        if (info.protocol != protocol)
            continue;
        if (out != nullptr)
            out[count] = info;
        count++;
    }
    return count;
}
