// SPDX-License-Identifier: Apache-2.0
//
// See status_name.h.
#include "tools/ybnetctl/status_name.h"

#define STATUS_CASE(name)                                                                                    \
    case name:                                                                                               \
        return #name

namespace ybnetctl {

const char *status_name(yb_status_t status) {
    switch (status) {
        STATUS_CASE(YB_STATUS_SUCCESS);
        STATUS_CASE(YB_STATUS_ERROR);
        STATUS_CASE(YB_STATUS_NO_RESOURCES);
        STATUS_CASE(YB_STATUS_NO_MEMORY);
        STATUS_CASE(YB_STATUS_CMD_UNSUPPORTED);
        STATUS_CASE(YB_STATUS_CMD_INVALID);
        STATUS_CASE(YB_STATUS_PARAM_NULL);
        STATUS_CASE(YB_STATUS_PARAM_ERROR);
        STATUS_CASE(YB_STATUS_PARAM_EXCEEDS_RANGE);
        STATUS_CASE(YB_STATUS_DB_NOT_INITIALIZED);
        STATUS_CASE(YB_STATUS_ENTRY_NOT_FOUND);
        STATUS_CASE(YB_STATUS_ENTRY_ALREADY_EXISTS);
        STATUS_CASE(YB_STATUS_ALREADY_INITIALIZED);
        STATUS_CASE(YB_STATUS_DEVICE_ERROR);
    default:
        return "status not known";
    }
}

} // namespace ybnetctl
