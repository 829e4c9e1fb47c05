// SPDX-License-Identifier: Apache-2.0
//
// See event_queue.h. A queue file is "-" or "L" (events were lost), then for each
// datagram its length in 4 bytes and its bytes. On the sockets themselves system
// calls are made directly: the C library's functions are interposed for them.
#include "testkit/event_queue.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "testkit/directory.h"

namespace testkit {

namespace {

constexpr uint32_t first_other_port_id = 0xFFFFEFFF; // -4097, where the kernel begins too

struct queue {
    bool lost = false;
    std::vector<std::string> datagrams;

    bool is_readable() const {
        return lost || !datagrams.empty();
    }
};

std::string file_of(uint32_t port_id, const char *suffix) {
    return path_of("nl/") + std::to_string(port_id) + suffix;
}

queue load(uint32_t port_id) {
    const std::string text = read_text(file_of(port_id, ".queue"));
    queue loaded;
    loaded.lost = !text.empty() && text[0] == 'L';
    for (size_t at = 1; at + 4 <= text.size();) {
        uint32_t size = 0;
        memcpy(&size, text.data() + at, sizeof(size));
        loaded.datagrams.push_back(text.substr(at + sizeof(size), size));
        at += sizeof(size) + size;
    }
    return loaded;
}

void save(uint32_t port_id, const queue &changed) {
    std::string text = changed.lost ? "L" : "-";
    for (const std::string &datagram : changed.datagrams) {
        const auto size = static_cast<uint32_t>(datagram.size());
        text.append(reinterpret_cast<const char *>(&size), sizeof(size));
        text += datagram;
    }
    (void)write_text(file_of(port_id, ".queue"), text);
}

struct sockaddr_un address_of(uint32_t port_id) {
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = file_of(port_id, ".sock");
    path.copy(address.sun_path, sizeof(address.sun_path) - 1); // fits: the directory's length is checked
    return address;
}

// Sends a wake-up (size 1), or only looks whether anybody has the socket (size 0, connecting).
bool reach(uint32_t port_id, bool wake) {
    const struct sockaddr_un address = address_of(port_id);
    const int helper = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const auto *const to = reinterpret_cast<const struct sockaddr *>(&address);
    bool reached = connect(helper, to, sizeof(address)) == 0;
    if (reached && wake)
        reached = send(helper, "w", 1, MSG_DONTWAIT | MSG_NOSIGNAL) == 1;
    (void)close(helper);
    return reached;
}

void change(uint32_t port_id, queue before, const std::string *datagram) {
    const bool was_readable = before.is_readable();
    if (datagram != nullptr)
        before.datagrams.push_back(*datagram);
    else
        before.lost = true;
    save(port_id, before);
    if (!was_readable && !reach(port_id, true))
        endpoint_remove(port_id); // its process is gone
}

std::vector<uint32_t> subscriber_ids() {
    std::vector<uint32_t> found;
    for (const std::string &name : names_in(path_of("nl"))) {
        if (name.ends_with(".link"))
            found.push_back(static_cast<uint32_t>(strtoul(name.c_str(), nullptr, 10)));
    }
    return found;
}

size_t queue_limit() {
    const std::string text = read_text(path_of("queue_limit"));
    return text.empty() ? default_queue_limit : strtoul(text.c_str(), nullptr, 10);
}

} // namespace

int endpoint_bind(int descriptor, uint32_t *port_id) {
    const bool any = *port_id == 0;
    uint32_t wanted = any ? static_cast<uint32_t>(getpid()) : *port_id;
    for (uint32_t other = first_other_port_id;; wanted = other--) {
        if (exists(file_of(wanted, ".sock")) && !reach(wanted, false))
            endpoint_remove(wanted); // left by a process that is gone
        const struct sockaddr_un address = address_of(wanted);
        if (syscall(SYS_bind, descriptor, &address, sizeof(address)) == 0)
            break;
        if (errno != EADDRINUSE || !any)
            return errno;
    }
    save(wanted, {});
    *port_id = wanted;
    return 0;
}

void endpoint_subscribe(uint32_t port_id, bool subscribed) {
    if (subscribed)
        (void)write_text(file_of(port_id, ".link"), "");
    else
        (void)unlink(file_of(port_id, ".link").c_str());
}

bool endpoint_exists(uint32_t port_id) {
    return exists(file_of(port_id, ".sock"));
}

void endpoint_remove(uint32_t port_id) {
    for (const char *const suffix : {".link", ".queue", ".sock"})
        (void)unlink(file_of(port_id, suffix).c_str());
}

unsigned subscribers() {
    unsigned living = 0;
    for (const uint32_t port_id : subscriber_ids())
        living += reach(port_id, false) ? 1 : 0;
    return living;
}

void answer_deliver(uint32_t port_id, const std::string &datagram) {
    change(port_id, load(port_id), &datagram);
}

void event_publish(const std::string &datagram) {
    const size_t limit = queue_limit();
    for (const uint32_t port_id : subscriber_ids()) {
        queue waiting = load(port_id);
        const bool fits = waiting.datagrams.size() < limit;
        change(port_id, std::move(waiting), fits ? &datagram : nullptr);
    }
}

void event_lose() {
    for (const uint32_t port_id : subscriber_ids())
        change(port_id, load(port_id), nullptr);
}

taken queue_take(int descriptor, uint32_t port_id, bool keep, std::string *datagram) {
    queue waiting = load(port_id);
    if (!waiting.is_readable())
        return taken::nothing;
    taken what = taken::loss;
    if (waiting.lost) {
        waiting.lost = false;
    } else {
        *datagram = waiting.datagrams.front();
        if (keep)
            return taken::message;
        waiting.datagrams.erase(waiting.datagrams.begin());
        what = taken::message;
    }
    save(port_id, waiting);
    char wake = 0;
    if (!waiting.is_readable())
        (void)syscall(SYS_recvfrom, descriptor, &wake, 1, MSG_DONTWAIT, nullptr, nullptr);
    return what;
}

} // namespace testkit
