// SPDX-License-Identifier: Apache-2.0
//
// The other side of the kit's netlink sockets: takes a request as the kernel
// would, records it, and answers it from the script or from the netdev table.
#ifndef YBNET_TESTKIT_NETLINK_PEER_H
#define YBNET_TESTKIT_NETLINK_PEER_H

#include <cstdint>
#include <string>
#include <vector>

namespace testkit {

// Handles one request that the socket with this port id has sent; false when the test in which it was made is
// over. Takes the directory's lock.
bool peer_take_request(uint32_t port_id, const std::string &request);

// A scripted answer to the next times requests of a type (0: any): silence, bytes as they are, or an
// acknowledgement with this error (0: without any effect).
struct scripted_answer {
    enum { with_error, with_bytes, with_silence } kind = with_error;
    uint16_t type = 0;
    int error = 0;
    unsigned times = 1;
    std::string bytes;
};
// Callers hold the directory's lock.
bool peer_script(const scripted_answer &answer);

// Requests so far, in order, of all processes.
std::vector<std::string> peer_requests();

} // namespace testkit

#endif
