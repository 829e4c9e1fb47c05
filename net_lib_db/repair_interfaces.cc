// SPDX-License-Identifier: Apache-2.0
//
// See repair_interfaces.h.
#include "net_lib_db/repair_interfaces.h"

#include <cstring>

#include "net_lib_db/interfaces_segment.h"
#include "net_lib_db/net_lib_db_log.h"

namespace {

// Free records hold zeros, as a removal leaves them, or zeros and two values for "none", as an erasing does.
bool holds_nothing(const yb_net_interface_record_t &record) {
    yb_net_interface_record_t rest = record;
    if (rest.rif == YB_NET_RIF_NONE && rest.vrid == YB_NET_VRID_NONE) {
        rest.rif = 0;
        rest.vrid = 0;
    }
    static constexpr yb_net_interface_record_t nothing = {};
    return memcmp(&rest, &nothing, sizeof(rest)) == 0;
}

} // namespace

void repair_interfaces(void *body) {
    auto *const entries = static_cast<net_lib_db_interfaces_segment_t *>(body)->entries;
    if (*interface_mark_word(entries[0]) >> 8 == INTERFACES_ERASING) {
        NET_LIB_DB_LOG(YB_LEVEL_WARN, "Net-lib interfaces DB - it was being erased: erased now\n");
        interfaces_segment.description.initialize_body(body);
        return;
    }
    for (uint32_t i = 0; i < YB_NET_INTERFACES_MAX; i++) {
        if (entries[i].in_use != 0 || holds_nothing(entries[i].record))
            continue;
        NET_LIB_DB_LOG(YB_LEVEL_WARN, "Net-lib interfaces DB - record %u was left half changed: it is free\n",
                       i);
        entries[i].record = {};
    }
}
