// SPDX-License-Identifier: Apache-2.0
//
// Three pointers that other libraries of the stack resolve in this one and that
// nothing here uses.
#include "net_lib_db/message.h"
#include "ybnet/net_lib.h"

YB_EXPORT void *router_interfaces = nullptr;
YB_EXPORT void *hwd_rif_internal_ops = nullptr;
YB_EXPORT void *rif_l2_attributes_print_cb = nullptr;
