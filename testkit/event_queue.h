// SPDX-License-Identifier: Apache-2.0
//
// What waits to be received on the kit's netlink sockets. Such a socket is a
// datagram socket under nl/PORTID.sock, readable while a single wake-up datagram
// lies in it; the messages are in nl/PORTID.queue, so that their number does not
// depend on the host's limits. nl/PORTID.link marks a subscriber of link events.
#ifndef YBNET_TESTKIT_EVENT_QUEUE_H
#define YBNET_TESTKIT_EVENT_QUEUE_H

#include <cstdint>
#include <string>

namespace testkit {

constexpr unsigned default_queue_limit = 128;

// Callers hold the directory's lock.

// Gives the socket a port id, 0 for any free one; 0 or an errno (EADDRINUSE). *port_id: the one it got.
int endpoint_bind(int descriptor, uint32_t *port_id);
void endpoint_subscribe(uint32_t port_id, bool subscribed);
bool endpoint_exists(uint32_t port_id);
void endpoint_remove(uint32_t port_id);
unsigned subscribers();

// To one socket: an answer, never lost.
void answer_deliver(uint32_t port_id, const std::string &datagram);
// To all subscribers. One that has not read as many as the limit loses it, as with a full receive buffer.
void event_publish(const std::string &datagram);
// Lets all subscribers lose events, although there was room.
void event_lose();

enum class taken { message, loss, nothing };
// The next datagram of a socket; a loss is reported first, once. keep: leave it where it is (MSG_PEEK).
taken queue_take(int descriptor, uint32_t port_id, bool keep, std::string *datagram);

} // namespace testkit

#endif
