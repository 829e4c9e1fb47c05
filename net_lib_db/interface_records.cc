// SPDX-License-Identifier: Apache-2.0
//
// The records of the interfaces database: adding, changing, removing and
// finding them, each under the segment's lock. The segment itself is
// interfaces_segment.cc's.
#include "ybnet/net_lib_db.h"

#include "net_lib_db/change_order.h"
#include "net_lib_db/interfaces_segment.h"
#include "net_lib_db/net_lib_db_log.h"
#include "net_lib_db/text_field.h"

namespace {

using entry_t = net_lib_db_interface_entry_t;

entry_t *entries() {
    return static_cast<net_lib_db_interfaces_segment_t *>(interfaces_segment.body)->entries;
}

// True when this process has loaded the database; the caller's name stands in the message.
#define INTERFACES_LOADED() interfaces_loaded(__func__, __LINE__)
bool interfaces_loaded(const char *function, int32_t line) {
    const bool loaded = interfaces_segment.body != nullptr;
    if (!loaded)
        YB_MESSAGE_WRITE(net_lib_db_verbosity, "net_lib_db", YB_LEVEL_ERROR, function, line,
                         "Net-lib Interfaces DB was not initialized\n");
    return loaded;
}

// ---- Searches, with the lock held -------------------------------------------

// In both searches the key is tested before the in-use byte: most slots fail on it, and it lies in the line
// that the next slot's key brings along.
entry_t *find_by_sys_ifindex(uint32_t sys_ifindex) {
    entry_t *const table = entries();
    for (uint32_t i = 0; i < YB_NET_INTERFACES_MAX; i++) {
        if (table[i].record.sys_ifindex == sys_ifindex && table[i].in_use != 0)
            return &table[i];
    }
    return nullptr;
}

using ns_key = field_key<YB_NET_NS_NAME_SIZE>;
using vrf_key = field_key<YB_NET_VRF_NAME_SIZE>;

// vrf NULL: any VRF.
bool same_netdev(const entry_t &entry, uint32_t linux_ifindex, const ns_key &ns, const vrf_key *vrf) {
    return entry.record.linux_ifindex == linux_ifindex && entry.in_use != 0 &&
           ns.equals(entry.record.params.ns_name) &&
           (vrf == nullptr || vrf->equals(entry.record.params.vrf_name));
}

entry_t *find_by_linux_ifindex(uint32_t linux_ifindex, const ns_key &ns, const vrf_key *vrf) {
    entry_t *const table = entries();
    for (uint32_t i = 0; i < YB_NET_INTERFACES_MAX; i++) {
        if (same_netdev(table[i], linux_ifindex, ns, vrf))
            return &table[i];
    }
    return nullptr;
}

struct add_place {
    bool duplicate;
    entry_t *free_entry; // the first free slot, NULL when there is none
};

// Both duplicate checks and the search for a free slot in one pass.
add_place find_place(uint32_t sys_ifindex, uint32_t linux_ifindex, const ns_key &ns, const vrf_key *vrf) {
    entry_t *const table = entries();
    entry_t *free_entry = nullptr;
    for (uint32_t i = 0; i < YB_NET_INTERFACES_MAX; i++) {
        entry_t &entry = table[i];
        if (entry.in_use == 0) {
            if (free_entry == nullptr)
                free_entry = &entry;
        } else if (entry.record.sys_ifindex == sys_ifindex || same_netdev(entry, linux_ifindex, ns, vrf)) {
            return {true, nullptr};
        }
    }
    return {false, free_entry};
}

// ---- Frames of the operations -----------------------------------------------

// Runs change(record) on the record of sys_ifindex, under the lock; false when there is none. Not flushed:
// of all changes only an addition is, and other processes map the same memory.
template <typename change_t> bool change_record(uint32_t sys_ifindex, change_t change) {
    segment_lock(interfaces_segment);
    entry_t *const entry = find_by_sys_ifindex(sys_ifindex);
    if (entry != nullptr)
        change(*entry);
    segment_unlock(interfaces_segment);
    return entry != nullptr;
}

// Copies the record that find() yields out, after the lock was released; false when there is none.
template <typename find_t> bool copy_record(find_t find, yb_net_interface_record_t *out) {
    yb_net_interface_record_t copy;
    segment_lock(interfaces_segment);
    const entry_t *const entry = find();
    if (entry != nullptr)
        copy = entry->record;
    segment_unlock(interfaces_segment);
    if (entry == nullptr)
        return false;
    *out = copy;
    return true;
}

#define LOG_NO_SYS_IFINDEX(level, sys_ifindex)                                                               \
    NET_LIB_DB_LOG(level, "Interface with system ifindex %d does not exist in the Net-lib Interfaces DB\n",  \
                   static_cast<int32_t>(sys_ifindex))
#define LOG_NO_LINUX_IFINDEX(linux_ifindex)                                                                  \
    NET_LIB_DB_LOG(YB_LEVEL_DEBUG,                                                                           \
                   "Interface with linux ifindex %d does not exist in the Net-lib Interfaces DB\n",          \
                   static_cast<int32_t>(linux_ifindex))

} // namespace

// ---- Changes ----------------------------------------------------------------

YB_EXPORT yb_status_t net_lib_db_interface_add_full(uint32_t sys_ifindex, uint32_t linux_ifindex,
                                                    const yb_net_interface_params_t *params, uint16_t rif,
                                                    uint16_t vrid, uint32_t take_lock) {
    if (!INTERFACES_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    const yb_net_interface_params_t own = *params; // before the lock: the caller's pointer may be bad
    const ns_key ns = key_of_field(own.ns_name);
    const vrf_key vrf = key_of_field(own.vrf_name);

    if (take_lock != 0)
        segment_lock(interfaces_segment);
    yb_status_t status = YB_STATUS_SUCCESS;
    const add_place place = find_place(sys_ifindex, linux_ifindex, ns, own.vrf_valid == 1 ? &vrf : nullptr);
    if (place.duplicate) {
        NET_LIB_DB_LOG(
            YB_LEVEL_ERROR,
            "Interface with system ifindex %d or linux_ifindex %u in namespace %s already exists in "
            "the Net-lib Interfaces DB\n",
            static_cast<int32_t>(sys_ifindex), linux_ifindex, text_of_field(own.ns_name).text);
        status = YB_STATUS_ENTRY_ALREADY_EXISTS;
    } else if (place.free_entry == nullptr) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Net-lib Interfaces DB is full, cannot add a new entry\n");
        status = YB_STATUS_NO_RESOURCES;
    } else {
        place.free_entry->record = {sys_ifindex, linux_ifindex, own, rif, vrid};
        change_mark(place.free_entry->in_use, 1); // last: what a dying process leaves half written is free
    }
    segment_flush(interfaces_segment); // also when nothing was added
    if (take_lock != 0)
        segment_unlock(interfaces_segment);
    return status;
}

YB_EXPORT yb_status_t net_lib_db_interface_add(uint32_t sys_ifindex, uint32_t linux_ifindex,
                                               const yb_net_interface_params_t *params) {
    return net_lib_db_interface_add_full(sys_ifindex, linux_ifindex, params, YB_NET_RIF_NONE,
                                         YB_NET_VRID_NONE, 1);
}

YB_EXPORT yb_status_t net_lib_db_interface_remove(uint32_t sys_ifindex) {
    if (!INTERFACES_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    const bool found = change_record(sys_ifindex, [](entry_t &entry) {
        change_mark(entry.in_use, 0); // first, as above
        entry.record = {};            // rif and vrid become 0, not "none": only in_use tells a free slot
    });
    if (!found) {
        LOG_NO_SYS_IFINDEX(YB_LEVEL_ERROR, sys_ifindex);
        return YB_STATUS_ENTRY_NOT_FOUND;
    }
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t net_lib_db_interface_rif_add(uint32_t sys_ifindex, uint16_t rif) {
    if (!INTERFACES_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (!change_record(sys_ifindex, [rif](entry_t &entry) { entry.record.rif = rif; })) {
        LOG_NO_SYS_IFINDEX(YB_LEVEL_ERROR, sys_ifindex);
        return YB_STATUS_ENTRY_NOT_FOUND;
    }
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t net_lib_db_interface_vrid_add(uint32_t sys_ifindex, uint16_t vrid) {
    if (!INTERFACES_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    uint16_t current = YB_NET_VRID_NONE;
    const bool found = change_record(sys_ifindex, [vrid, &current](entry_t &entry) {
        if (vrid != YB_NET_VRID_NONE)
            current = entry.record.vrid;
        if (current == YB_NET_VRID_NONE)
            entry.record.vrid = vrid;
    });
    if (!found) {
        LOG_NO_SYS_IFINDEX(YB_LEVEL_ERROR, sys_ifindex);
        return YB_STATUS_ENTRY_NOT_FOUND;
    }
    if (current != YB_NET_VRID_NONE) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR,
                       "Failed adding VRID. Interface with system ifindex %d already has a VRID (%u)\n",
                       static_cast<int32_t>(sys_ifindex), current);
        return YB_STATUS_ENTRY_ALREADY_EXISTS;
    }
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t net_lib_db_interface_vlan_set(uint32_t sys_ifindex, uint16_t vlan) {
    if (!INTERFACES_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    const bool found = change_record(
        sys_ifindex, [vlan](entry_t &entry) { entry.record.params.by_type.port_vlan.vlan_id = vlan; });
    if (!found) {
        LOG_NO_SYS_IFINDEX(YB_LEVEL_ERROR, sys_ifindex);
        return YB_STATUS_ENTRY_NOT_FOUND;
    }
    return YB_STATUS_SUCCESS;
}

// ---- Lookups ----------------------------------------------------------------

YB_EXPORT yb_status_t net_lib_db_interface_get(uint32_t sys_ifindex, yb_net_interface_record_t *out) {
    if (!INTERFACES_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (!copy_record([=] { return find_by_sys_ifindex(sys_ifindex); }, out)) {
        LOG_NO_SYS_IFINDEX(YB_LEVEL_INFO, sys_ifindex); // INFO, not ERROR: callers probe with this one
        return YB_STATUS_ENTRY_NOT_FOUND;
    }
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t net_lib_db_interface_get_by_db_index(uint32_t db_index,
                                                           yb_net_interface_record_t *out) {
    if (!INTERFACES_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (db_index >= YB_NET_INTERFACES_MAX)
        return YB_STATUS_ENTRY_NOT_FOUND;
    const auto slot_in_use = [=]() -> const entry_t * {
        const entry_t &entry = entries()[db_index];
        return entry.in_use != 0 ? &entry : nullptr;
    };
    return copy_record(slot_in_use, out) ? YB_STATUS_SUCCESS : YB_STATUS_ENTRY_NOT_FOUND;
}

YB_EXPORT yb_status_t net_lib_db_interface_get_by_linux_ifindex_ns_vrf(uint32_t linux_ifindex,
                                                                       const char *ns_name,
                                                                       const char *vrf_name,
                                                                       yb_net_interface_record_t *out) {
    if (!INTERFACES_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (ns_name == nullptr) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Namespace name is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    if (vrf_name == nullptr) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "VRF name is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    const ns_key ns = key_of_string<YB_NET_NS_NAME_SIZE>(ns_name);
    const vrf_key vrf = key_of_string<YB_NET_VRF_NAME_SIZE>(vrf_name);
    if (!copy_record([&] { return find_by_linux_ifindex(linux_ifindex, ns, &vrf); }, out)) {
        LOG_NO_LINUX_IFINDEX(linux_ifindex);
        return YB_STATUS_ENTRY_NOT_FOUND;
    }
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t net_lib_db_interface_get_by_linux_ifindex_ns(uint32_t linux_ifindex,
                                                                   const char *ns_name,
                                                                   yb_net_interface_record_t *out) {
    if (!INTERFACES_LOADED())
        return YB_STATUS_DB_NOT_INITIALIZED;
    if (ns_name == nullptr) {
        NET_LIB_DB_LOG(YB_LEVEL_ERROR, "Namespace name is NULL\n");
        return YB_STATUS_PARAM_NULL;
    }
    const ns_key ns = key_of_string<YB_NET_NS_NAME_SIZE>(ns_name);
    if (!copy_record([&] { return find_by_linux_ifindex(linux_ifindex, ns, nullptr); }, out)) {
        LOG_NO_LINUX_IFINDEX(linux_ifindex);
        return YB_STATUS_ENTRY_NOT_FOUND;
    }
    return YB_STATUS_SUCCESS;
}

YB_EXPORT yb_status_t net_lib_db_interface_get_by_linux_ifindex(uint32_t linux_ifindex,
                                                                yb_net_interface_record_t *out) {
    return net_lib_db_interface_get_by_linux_ifindex_ns(linux_ifindex, "", out);
}
