// SPDX-License-Identifier: Apache-2.0
//
// Messages of the database module.
#ifndef YBNET_NET_LIB_DB_LOG_H
#define YBNET_NET_LIB_DB_LOG_H

#include "net_lib_db/message.h"

extern yb_verbosity_t net_lib_db_verbosity;

#define NET_LIB_DB_LOG(level, format, ...)                                                                   \
    YB_MESSAGE_WRITE(net_lib_db_verbosity, "net_lib_db", level, __func__, __LINE__, format, ##__VA_ARGS__)

#endif
