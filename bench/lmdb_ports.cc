// SPDX-License-Identifier: Apache-2.0
//
// See lmdb_ports.h.
#include "bench/lmdb_ports.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>

namespace {

void check(int status, const char *step) {
    if (status == MDB_SUCCESS)
        return;
    (void)fprintf(stderr, "lmdb: %s: %s\n", step, mdb_strerror(status));
    abort();
}

template <typename type> MDB_val value_of(const type &object) {
    return {sizeof(object), const_cast<type *>(&object)};
}

} // namespace

lmdb_ports::lmdb_ports(const char *name) {
    const std::string path = std::string("/dev/shm/") + name;
    (void)mkdir(path.c_str(), 0700);
    check(mdb_env_create(&env_), "create");
    check(mdb_env_set_maxdbs(env_, 2), "maxdbs");
    check(mdb_env_set_mapsize(env_, size_t{64} << 20), "mapsize");
    check(mdb_env_open(env_, path.c_str(), MDB_WRITEMAP, 0600), "open");
    MDB_txn *txn;
    check(mdb_txn_begin(env_, nullptr, 0, &txn), "begin");
    check(mdb_dbi_open(txn, "ports", MDB_CREATE | MDB_INTEGERKEY, &by_ifindex_), "ports");
    check(mdb_dbi_open(txn, "log_ports", MDB_CREATE | MDB_INTEGERKEY, &by_log_port_), "log_ports");
    check(mdb_txn_commit(txn), "commit");
    check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &reader_), "reader");
    mdb_txn_reset(reader_);
}

lmdb_ports::~lmdb_ports() {
    mdb_txn_abort(reader_);
    mdb_env_close(env_);
}

void lmdb_ports::fill(const std::vector<yb_net_port_info_t> &infos) {
    MDB_txn *txn;
    check(mdb_txn_begin(env_, nullptr, 0, &txn), "begin");
    for (const yb_net_port_info_t &info : infos) {
        MDB_val key = value_of(info.attr_i);
        MDB_val data = value_of(info);
        check(mdb_put(txn, by_ifindex_, &key, &data, 0), "put");
        MDB_val log_port = value_of(info.log_port);
        check(mdb_put(txn, by_log_port_, &log_port, &key, 0), "put");
    }
    check(mdb_txn_commit(txn), "commit");
}

bool lmdb_ports::get(uint32_t sys_ifindex, yb_net_port_info_t *out) {
    check(mdb_txn_renew(reader_), "renew");
    MDB_val key = value_of(sys_ifindex);
    MDB_val data;
    const int status = mdb_get(reader_, by_ifindex_, &key, &data);
    if (status == MDB_SUCCESS)
        memcpy(out, data.mv_data, sizeof(*out));
    else if (status != MDB_NOTFOUND)
        check(status, "get");
    mdb_txn_reset(reader_);
    return status == MDB_SUCCESS;
}

uint32_t lmdb_ports::log_port_get(uint32_t log_port) {
    check(mdb_txn_renew(reader_), "renew");
    MDB_val key = value_of(log_port);
    MDB_val data;
    uint32_t sys_ifindex = 0;
    if (mdb_get(reader_, by_log_port_, &key, &data) == MDB_SUCCESS)
        memcpy(&sys_ifindex, data.mv_data, sizeof(sys_ifindex));
    mdb_txn_reset(reader_);
    return sys_ifindex;
}

void lmdb_ports::set(uint32_t sys_ifindex, const yb_net_port_info_t &info) {
    MDB_txn *txn;
    check(mdb_txn_begin(env_, nullptr, 0, &txn), "begin");
    MDB_val key = value_of(sys_ifindex);
    MDB_val data = value_of(info);
    check(mdb_put(txn, by_ifindex_, &key, &data, 0), "put");
    MDB_val log_port = value_of(info.log_port);
    check(mdb_put(txn, by_log_port_, &log_port, &key, 0), "put");
    check(mdb_txn_commit(txn), "commit");
}

void lmdb_ports::remove(uint32_t sys_ifindex) {
    MDB_txn *txn;
    check(mdb_txn_begin(env_, nullptr, 0, &txn), "begin");
    MDB_val key = value_of(sys_ifindex);
    MDB_val data;
    check(mdb_get(txn, by_ifindex_, &key, &data), "get");
    yb_net_port_info_t info;
    memcpy(&info, data.mv_data, sizeof(info));
    MDB_val log_port = value_of(info.log_port);
    check(mdb_del(txn, by_log_port_, &log_port, nullptr), "del");
    check(mdb_del(txn, by_ifindex_, &key, nullptr), "del");
    check(mdb_txn_commit(txn), "commit");
}

uint32_t lmdb_ports::get_all(uint32_t protocol, yb_net_port_info_t *out) {
    check(mdb_txn_renew(reader_), "renew");
    MDB_cursor *cursor;
    check(mdb_cursor_open(reader_, by_ifindex_, &cursor), "cursor");
    uint32_t count = 0;
    MDB_val key;
    MDB_val data;
    while (mdb_cursor_get(cursor, &key, &data, MDB_NEXT) == MDB_SUCCESS) {
        const auto *const info = static_cast<const yb_net_port_info_t *>(data.mv_data);
        if (info->protocol != protocol)
            continue;
        if (out != nullptr)
            out[count] = *info;
        count++;
    }
    mdb_cursor_close(cursor);
    mdb_txn_reset(reader_);
    return count;
}
