// SPDX-License-Identifier: Apache-2.0
//
// See rehearsal.h. Commands, look-ups, requests and the driver; the segments are rehearsal_segments.cc's.
#include "tools/ybnetctl/change/rehearsal.h"

#include <cerrno>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <unistd.h>
#include <utility>

#include "tools/ybnetctl/change/doors.h"
#include "tools/ybnetctl/change/port_driver.h"
#include "tools/ybnetctl/change/request_text.h"
#include "ybnet/yb_net_rtnl.h"

namespace ybnetctl {

const char *(*look_for_open_door)() = nullptr;

namespace {

rehearsal *closed_now = nullptr;

constexpr uint32_t device_handle = 1; // of a device that is not open

// The text that the library writes into the driver's file goes here when the stream is flushed.
ssize_t take_driver_text(void *cookie, const char *text, size_t size) {
    auto *const owner = static_cast<rehearsal *>(cookie);
    const std::string command(text, size);
    owner->add_step({"driver", command, {{"file", port_driver_file}}, ""});
    return static_cast<ssize_t>(size);
}

// The stand-ins look at the system through functions that have doors.
class opened_doors {
  public:
    opened_doors() : closed_(std::exchange(closed_now, nullptr)) {}
    ~opened_doors() {
        closed_now = closed_;
    }
    opened_doors(const opened_doors &) = delete;
    opened_doors &operator=(const opened_doors &) = delete;

  private:
    rehearsal *closed_;
};

// The contents of the first attribute of a type (rtnetlink(7)); empty when there is none.
std::span<const std::byte> attribute_in(std::span<const std::byte> attributes, unsigned short type) {
    while (attributes.size() >= sizeof(rtattr)) {
        rtattr header = {};
        std::memcpy(&header, attributes.data(), sizeof(header));
        if (header.rta_len < sizeof(header) || header.rta_len > attributes.size())
            break;
        if (header.rta_type == type)
            return attributes.subspan(sizeof(header), header.rta_len - sizeof(header));
        attributes = attributes.subspan(std::min<size_t>(RTA_ALIGN(header.rta_len), attributes.size()));
    }
    return {};
}

std::string text_in(std::span<const std::byte> attribute) {
    if (attribute.empty())
        return "";
    const auto *const text = reinterpret_cast<const char *>(attribute.data());
    return {text, strnlen(text, attribute.size())};
}

} // namespace

rehearsal::rehearsal(const session &run) : run_(run) {
    const char *const open_door = look_for_open_door != nullptr ? look_for_open_door() : "every function";
    if (open_door != nullptr)
        throw failure{exit_code::failed,
                      "--dry-run",
                      std::string("this program does not stand in front of ") + open_door +
                          ": the library would act for real",
                      "is something preloaded (LD_PRELOAD)? Nothing was done.",
                      {}};
}

rehearsal::~rehearsal() {
    for (auto &[kind, own] : segments_)
        if (own.descriptor >= 0)
            close(own.descriptor);
}

rehearsal *rehearsal::now() {
    return closed_now;
}

rehearsal::closed_doors::closed_doors(rehearsal *which) {
    closed_now = which;
}

rehearsal::closed_doors::~closed_doors() {
    closed_now = nullptr;
}

void rehearsal::note_failure(const char *kind, const std::string &text, const std::string &reason) {
    if (steps_.empty() || steps_.back().fails.empty())
        add_step({kind, text, nullptr, reason});
}

std::vector<step> rehearsal::take_steps() {
    return std::exchange(steps_, {});
}

int rehearsal::run_command(const char *command) {
    const opened_doors around;
    const command_answer answer = netdevs_.run(command);
    add_step({"command", command, nullptr, answer.fails});
    return answer.status;
}

// "ip netns exec NS cat /sys/devices/virtual/net/NAME/ifindex 2>&1"
FILE *rehearsal::look(const char *command) {
    const opened_doors around;
    constexpr const char *before = "/sys/devices/virtual/net/";
    constexpr const char *behind = "/ifindex";
    const std::vector<std::string> words = words_of(command);
    uint32_t index = 0;
    if (words.size() > 5 && words[5].starts_with(before) && words[5].ends_with(behind)) {
        const size_t start = std::strlen(before);
        index = netdevs_.index_of(words[3],
                                  words[5].substr(start, words[5].size() - start - std::strlen(behind)));
    }
    add_step({"lookup", command, {{"found", index != 0}}, ""});

    std::string answer = index == 0 ? "cat: no such file\n" : std::to_string(index) + '\n';
    FILE *const stream = fmemopen(nullptr, answer.size() + 1, "w+");
    if (stream == nullptr)
        return nullptr;
    (void)std::fputs(answer.c_str(), stream); // it has the room
    std::rewind(stream);
    looks_[stream] = index == 0 ? 0x100 : 0;
    return stream;
}

bool rehearsal::is_look(FILE *stream) const {
    return looks_.contains(stream);
}

int rehearsal::end_look(FILE *stream) {
    const auto found = looks_.find(stream);
    const int status = found->second;
    looks_.erase(found);
    (void)std::fclose(stream); // memory
    return status;
}

unsigned rehearsal::index_of(const char *name) {
    const opened_doors around;
    const unsigned index = netdevs_.index_of("", name);
    if (index == 0)
        errno = ENODEV;
    return index;
}

rehearsal::kernel_answer rehearsal::answer_request(std::span<const std::byte> request) {
    nlmsghdr header = {};
    ifinfomsg link = {};
    if (request.size() < NLMSG_SPACE(sizeof(link)))
        return {};
    std::memcpy(&header, request.data(), sizeof(header));
    std::memcpy(&link, request.data() + NLMSG_HDRLEN, sizeof(link));
    const auto attributes = request.subspan(NLMSG_SPACE(sizeof(link)));
    if (header.nlmsg_type == RTM_NEWLINK && (header.nlmsg_flags & NLM_F_CREATE) != 0) {
        const auto info = attribute_in(attributes, IFLA_LINKINFO);
        const std::string kind = text_in(attribute_in(info, IFLA_INFO_KIND));
        const std::string name = text_in(attribute_in(attributes, IFLA_IFNAME));
        // In the kernel's order: a name that is taken is refused first.
        if (netdevs_.index_of("", name) == 0 && kind == port_link_kind && !port_driver_is_there())
            return {EOPNOTSUPP, std::string("the kernel has no link kind ") + port_link_kind +
                                    ", for the switch's driver is not loaded"};
        return {netdevs_.make(name), ""};
    }
    if (header.nlmsg_type == RTM_DELLINK)
        return {netdevs_.remove(static_cast<uint32_t>(link.ifi_index)), ""};
    return {};
}

ssize_t rehearsal::send(const struct msghdr *message) {
    const opened_doors around;
    const auto &part = *message->msg_iov; // the library sends one
    const auto bytes = std::span(static_cast<const std::byte *>(part.iov_base), part.iov_len);
    request_words words = describe_request(bytes, [this](unsigned index) { return netdevs_.name_of(index); });
    if (stand_in_netdevs::is_stand_in(words.details.value("ifindex", 0U))) {
        const std::string number = std::to_string(words.details["ifindex"].get<unsigned>());
        words.text.replace(words.text.find(number), number.size(), "(the kernel's)");
        words.details["ifindex"] = nullptr;
    }
    const kernel_answer answer = answer_request(bytes);
    answer_ = answer.error;
    nlmsghdr header = {};
    std::memcpy(&header, bytes.data(), std::min(sizeof(header), bytes.size()));
    sequence_ = header.nlmsg_seq;
    std::string fails = answer.error == 0 ? "" : std::strerror(answer.error);
    if (!answer.because.empty())
        fails += ": " + answer.because;
    add_step({"request", words.text, std::move(words.details), std::move(fails)});
    return static_cast<ssize_t>(part.iov_len);
}

// The acknowledgement of the last request.
ssize_t rehearsal::receive(struct msghdr *message) {
    struct {
        nlmsghdr header;
        nlmsgerr error;
    } answer = {};
    answer.header.nlmsg_len = sizeof(answer);
    answer.header.nlmsg_type = NLMSG_ERROR;
    answer.header.nlmsg_seq = sequence_;
    answer.header.nlmsg_pid = rth.local.nl_pid;
    answer.error.error = -answer_;
    if (message->msg_iov->iov_len < sizeof(answer)) {
        errno = EMSGSIZE;
        return -1;
    }
    std::memcpy(message->msg_iov->iov_base, &answer, sizeof(answer));
    message->msg_namelen = sizeof(struct sockaddr_nl);
    message->msg_flags = 0;
    return sizeof(answer);
}

FILE *rehearsal::open_driver_file(const char *path) {
    if (access(path, W_OK) != 0) {
        const int reason = errno;
        add_step({"open", path, nullptr, std::strerror(reason)});
        errno = reason;
        return nullptr; // as fopen(3) would say it
    }
    cookie_io_functions_t functions = {};
    functions.write = take_driver_text;
    return fopencookie(this, "a", functions);
}

// The device is listed (that only looks) but not opened: opening configures it.
int rehearsal::open_device(const char *, uint32_t *handle) {
    *handle = device_handle;
    return 0;
}

int rehearsal::control_device(uint32_t handle) {
    if (handle == device_handle)
        return 0;
    errno = EBADF;
    return -1;
}

int rehearsal::close_device(uint32_t handle) {
    return control_device(handle);
}

} // namespace ybnetctl
