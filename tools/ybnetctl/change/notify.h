// SPDX-License-Identifier: Apache-2.0
//
// Telling the service manager how a service is (sd_notify(3)), without linking its library.
#ifndef YBNET_YBNETCTL_CHANGE_NOTIFY_H
#define YBNET_YBNETCTL_CHANGE_NOTIFY_H

#include <string>

namespace ybnetctl {

// Sends the state ("READY=1") to the socket that $NOTIFY_SOCKET names. "" when it was sent or there is no such
// variable; else what went wrong.
std::string notify_service_manager(const std::string &state);

} // namespace ybnetctl

#endif
