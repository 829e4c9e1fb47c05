// SPDX-License-Identifier: Apache-2.0
//
// The operations of the ports database: ports by system ifindex, the LAG and
// MLAG bindings, and the maps from logical ports (port_maps.h). Each runs under
// the segment's lock. Where a port lies is port_table.h's, how it is written
// port_change.h's; the segment is ports_segment.cc's.
#include "ybnet/net_lib_db.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "net_lib_db/net_lib_db_log.h"
#include "net_lib_db/port_change.h"
#include "net_lib_db/port_maps.h"
#include "net_lib_db/port_table.h"

namespace {

using entry_t = net_lib_port_entry_t;
using info_t = yb_net_port_info_t;

// True when this process has loaded the database; the caller's name stands in the message.
#define PORTS_LOADED() ports_loaded(__func__, __LINE__)
bool ports_loaded(const char *function, int32_t line) {
    const bool loaded = ports_segment.body != nullptr;
    if (!loaded)
        YB_MESSAGE_WRITE(net_lib_db_verbosity, "net_lib_db", YB_LEVEL_ERROR, function, line,
                         "Net-lib ports DB was not initialized\n");
    return loaded;
}

#define LOG_NO_ENTRY(sys_ifindex)                                                                            \
    NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - cannot get hash table entry by sys_ifindex %u\n",      \
                   sys_ifindex)

// ---- Records ----------------------------------------------------------------

template <typename field_t> void merge(field_t &recorded, field_t given) {
    if (given != 0)
        recorded = given;
}

template <typename field_t, size_t length>
void merge(field_t (&recorded)[length], const field_t (&given)[length]) {
    for (size_t i = 0; i < length; i++)
        merge(recorded[i], given[i]);
}

void merge_name(char (&recorded)[YB_NET_PORT_NAME_SIZE], const char (&given)[YB_NET_PORT_NAME_SIZE]) {
    const size_t length = strnlen(given, sizeof(given));
    if (length == 0)
        return;
    memcpy(recorded, given, length);
    memset(recorded + length, 0, sizeof(recorded) - length);
}

// lag_log_port is not merged: only net_lib_db_port_lag_set() changes it.
void merge_info(info_t &recorded, const info_t &given) {
    merge(recorded.attr_a, given.attr_a);
    if (given.attr_b != YB_NET_PORT_ATTR_B_NONE)
        recorded.attr_b = given.attr_b;
    merge(recorded.attr_c, given.attr_c);
    merge(recorded.protocol, given.protocol);
    merge(recorded.log_port, given.log_port);
    merge(recorded.attr_d, given.attr_d);
    merge(recorded.attr_e, given.attr_e);
    if (YB_NET_LOG_PORT_IS_LAG(given.log_port))
        recorded.mlag_id = given.mlag_id; // 0 unbinds the LAG; the id's own slot keeps it
    merge_name(recorded.name, given.name);
    merge(recorded.attr_f, given.attr_f);
    merge(recorded.attr_g, given.attr_g);
    merge(recorded.attr_h, given.attr_h);
    merge(recorded.attr_i, given.attr_i);
}

// A caller's page that is missing must fail before the lock is taken, not under it.
void touch(void *address) {
    auto *const byte = static_cast<volatile std::byte *>(address);
    const std::byte kept = *byte;
    *byte = kept;
}

bool is_listed(const entry_t &bucket, uint32_t protocol) {
    return bucket.hash != 0 && bucket.deleted == 0 &&
           (protocol == YB_NET_PORT_PROTOCOL_ANY || bucket.info.protocol == protocol);
}

} // namespace

// ---- Ports ------------------------------------------------------------------

YB_EXPORT yb_status_t net_lib_db_port_set(uint32_t sys_ifindex, const yb_net_port_info_t *info) {
    if (!PORTS_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (sys_ifindex == 0) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - cannot add port with sys_ifindex==0\n");
        return YB_STATUS_PARAM_ERROR;
    }
    const info_t own = *info; // before the lock: the caller's pointer may be bad
    if (YB_NET_LOG_PORT_IS_LAG(own.log_port) && own.mlag_id > YB_NET_MLAG_ID_MAX) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - cannot add LAG port with mlag_id > %d\n",
                       YB_NET_MLAG_ID_MAX);
        return YB_STATUS_PARAM_EXCEEDS_RANGE;
    }

    segment_lock(ports_segment);
    entry_t scratch;
    uint16_t index = 0;
    entry_t *existing = nullptr;
    const yb_status_t status = __net_lib_hashtable_entry_set(sys_ifindex, &own, &scratch, &index, &existing);
    if (status != YB_STATUS_SUCCESS) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - cannot set hash table entry by sys_ifindex %u\n",
                       sys_ifindex);
    } else {
        const bool enter_maps = own.log_port != 0;
        if (existing != nullptr) {
            info_t merged = existing->info;
            merge_info(merged, own);
            port_change(*existing, sys_ifindex, merged, enter_maps);
        } else {
            port_fill(ports_body().port_table[index], scratch, enter_maps);
        }
    }
    segment_flush(ports_segment); // also for a full table, in which ports may have moved
    segment_unlock(ports_segment);
    return status;
}

YB_EXPORT yb_status_t net_lib_db_port_remove(uint32_t sys_ifindex) {
    if (!PORTS_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (sys_ifindex == 0) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - cannot remove port with sys_ifindex==0\n");
        return YB_STATUS_PARAM_ERROR;
    }

    segment_lock(ports_segment);
    entry_t *const bucket = port_find(sys_ifindex);
    if (bucket == nullptr) {
        LOG_NO_ENTRY(sys_ifindex);
    } else {
        // Shared format: the hash stays, and with it the bucket's place in the chains of other ports.
        port_delete(*bucket);
    }
    segment_flush(ports_segment); // also when nothing was found
    segment_unlock(ports_segment);
    return bucket != nullptr ? YB_STATUS_SUCCESS : YB_STATUS_ENTRY_NOT_FOUND;
}

YB_EXPORT yb_status_t net_lib_db_port_get(uint32_t sys_ifindex, yb_net_port_info_t *out) {
    if (!PORTS_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (sys_ifindex == 0) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - cannot get port with sys_ifindex==0\n");
        return YB_STATUS_PARAM_ERROR;
    }

    segment_lock(ports_segment);
    info_t copy;
    const entry_t *const bucket = port_find(sys_ifindex);
    if (bucket == nullptr)
        LOG_NO_ENTRY(sys_ifindex);
    else
        copy = bucket->info; // an empty bucket's too
    segment_unlock(ports_segment);
    if (bucket == nullptr)
        return YB_STATUS_ENTRY_NOT_FOUND;
    *out = copy;
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t net_lib_db_ports_get_all(uint32_t protocol, yb_net_port_info_t *out_ports,
                                               uint32_t *size) {
    if (size == nullptr) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - size parameter is NULL\n");
        return YB_STATUS_ERROR;
    }
    if (!PORTS_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (protocol > YB_NET_PORT_PROTOCOL_MAX) {
        // No newline at the end: consumers match it as it is.
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - invalid protocol %d given",
                       static_cast<int32_t>(protocol));
        return YB_STATUS_PARAM_EXCEEDS_RANGE;
    }

    // A size of 0 limits like 1, kept as it is: that one record goes through `only`, because nothing tells
    // whether the array has a byte to touch before the lock.
    const uint32_t limit = std::clamp<uint32_t>(*size, 1, YB_NET_PORTS_MAX);
    info_t only;
    info_t *const target = out_ports == nullptr || limit > 1 ? out_ports : &only;
    if (out_ports != nullptr && limit > 1) {
        touch(out_ports);
        touch(reinterpret_cast<std::byte *>(out_ports + limit) - 1);
    }

    segment_lock(ports_segment);
    uint32_t count = 0;
    for (const entry_t &bucket : ports_body().port_table) {
        if (!is_listed(bucket, protocol))
            continue;
        if (target != nullptr)
            target[count] = bucket.info;
        count++;
        if (target != nullptr && count == limit)
            break;
    }
    segment_unlock(ports_segment);
    if (target == &only && count != 0)
        *out_ports = only;
    *size = count;
    return YB_STATUS_SUCCESS;
}

// ---- Logical ports, LAGs, MLAGs ---------------------------------------------

YB_EXPORT yb_status_t net_lib_db_log_port_get(uint32_t log_port, uint32_t *out_sys_ifindex) {
    if (!PORTS_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (log_port == 0) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - cannot get sys_ifindex with log_port==%d\n", 0);
        return YB_STATUS_PARAM_ERROR;
    }
    if (out_sys_ifindex == nullptr) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - sys_ifindex is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }

    segment_lock(ports_segment);
    const uint32_t sys_ifindex = port_maps_ifindex(log_port);
    segment_unlock(ports_segment);
    *out_sys_ifindex = sys_ifindex; // 0 too
    if (sys_ifindex == 0) {
        NET_LIB_DB_LOG(YB_LEVEL_INFO, "Netlib ports DB - logical port 0x%x cannot be found in the DB\n",
                       log_port);
        return YB_STATUS_ENTRY_NOT_FOUND;
    }
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t net_lib_db_lag_get(uint16_t mlag_id, uint32_t *out_log_port) {
    if (!PORTS_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (mlag_id < YB_NET_MLAG_ID_MIN || mlag_id > YB_NET_MLAG_ID_MAX) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - mlag_id %u is out of range (%d-%d)\n", mlag_id,
                       YB_NET_MLAG_ID_MIN, YB_NET_MLAG_ID_MAX);
        return YB_STATUS_PARAM_EXCEEDS_RANGE;
    }

    segment_lock(ports_segment);
    const uint32_t log_port = ports_body().mlag_to_lag[mlag_id];
    // Said of ids that are bound, against the message's wording: consumers know it so.
    if (log_port != 0)
        NET_LIB_DB_LOG(YB_LEVEL_NOTICE, "Netlib ports DB - MLAG ID %u is not bound to any LAG port\n",
                       mlag_id);
    segment_unlock(ports_segment);
    *out_log_port = log_port;
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t net_lib_db_mlag_get(uint32_t log_port, uint16_t *out_mlag_id) {
    if (!PORTS_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (!YB_NET_LOG_PORT_IS_LAG(log_port)) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - log port 0x%x is not a LAG port\n", log_port);
        return YB_STATUS_PARAM_ERROR;
    }

    segment_lock(ports_segment);
    const uint16_t mlag_id = port_maps_lag_to_mlag(log_port);
    // Said of LAGs that are bound, as in net_lib_db_lag_get().
    if (mlag_id != 0)
        NET_LIB_DB_LOG(YB_LEVEL_NOTICE, "Netlib ports DB - LAG ID 0x%x is not bound to any MLAG\n", log_port);
    segment_unlock(ports_segment);
    *out_mlag_id = mlag_id;
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t net_lib_db_port_lag_set(uint32_t sys_ifindex, uint32_t log_port) {
    if (!PORTS_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (sys_ifindex == 0) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - cannot get port with sys_ifindex %u\n",
                       sys_ifindex);
        return YB_STATUS_PARAM_ERROR;
    }
    if (log_port != 0 && !YB_NET_LOG_PORT_IS_LAG(log_port)) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Netlib ports DB - log port 0x%x is not a LAG port\n", log_port);
        return YB_STATUS_PARAM_ERROR;
    }

    segment_lock(ports_segment);
    entry_t *const bucket = port_find(sys_ifindex);
    if (bucket == nullptr)
        LOG_NO_ENTRY(sys_ifindex);
    else
        bucket->info.lag_log_port = log_port; // an empty bucket's too
    // Not flushed, alone among the changes.
    segment_unlock(ports_segment);
    return bucket != nullptr ? YB_STATUS_SUCCESS : YB_STATUS_ENTRY_NOT_FOUND;
}
