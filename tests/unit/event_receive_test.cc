// SPDX-License-Identifier: Apache-2.0
//
// Receiving one event and its translation, with datagrams of the test's making:
// every status, every line, and nothing stale.
#include "tests/unit/links_fixture.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/mount.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char *const not_truncated = "__yb_net_if_state_event_receive: netlink message is not truncated\n";
const char *const empty_buffer =
    "__yb_net_if_state_event_receive: buffer is empty, didn't receive any message\n";

} // namespace

class event_receive : public links_fixture {
  protected:
    void SetUp() override {
        links_fixture::SetUp();
        sk_.type = YB_NET_SK_TYPE_RAW;
        sk_.fd = 4711;
        event_ = {88, 99};
    }

    // Receives this datagram, or with result -1 a failure that leaves the bytes behind all the same.
    yb_status_t receive(const byte_vector &datagram, ssize_t result = 0) {
        calls::on_recv() = [&](int descriptor, void *buffer, size_t size, int flags) -> ssize_t {
            EXPECT_EQ(descriptor, 4711);
            EXPECT_EQ(size, 8192u);
            EXPECT_EQ(flags, 0);
            memset(buffer, 0xA5, size); // whatever the stack holds
            const size_t copied = std::min(size, datagram.size());
            std::copy_n(datagram.begin(), copied, static_cast<uint8_t *>(buffer));
            errno = EAGAIN;
            return result == 0 ? static_cast<ssize_t>(copied) : result;
        };
        const yb_status_t status = yb_net_if_event_receive(&sk_, &event_);
        calls::on_recv() = nullptr;
        return status;
    }

    void expect_event(uint32_t type, uint32_t sys_ifindex) const {
        EXPECT_EQ(event_.event_type, type);
        EXPECT_EQ(event_.sys_ifindex, sys_ifindex);
    }

    yb_net_sk_t sk_ = {};
    yb_net_if_event_t event_ = {};
};

TEST_F(event_receive, null_socket_is_said_before_a_null_event) {
    EXPECT_EQ(yb_net_if_event_receive(nullptr, nullptr), uint32_t{YB_STATUS_PARAM_NULL});
    EXPECT_THAT(errors(), ElementsAre("yb_net_if_event_receive: in_net_sk is NULL\n"));
}

TEST_F(event_receive, null_event_is_said_before_the_type_is_looked_at) {
    sk_.type = YB_NET_SK_TYPE_NONE;
    EXPECT_EQ(yb_net_if_event_receive(&sk_, nullptr), uint32_t{YB_STATUS_PARAM_NULL});
    EXPECT_THAT(errors(), ElementsAre("yb_net_if_event_receive: received_event is NULL\n"));
}

TEST_F(event_receive, only_raw_sockets_are_received_from) {
    for (const uint32_t type : {uint32_t{YB_NET_SK_TYPE_NONE}, uint32_t{YB_NET_SK_TYPE_LIBNL}, 3u}) {
        sk_.type = type;
        EXPECT_EQ(receive(named_link(5, IFF_UP)), uint32_t{YB_STATUS_PARAM_ERROR});
    }
    EXPECT_EQ(calls::count("recv"), 0);
    EXPECT_THAT(log(), IsEmpty());
    expect_event(88, 99);
}

TEST_F(event_receive, link_of_a_record_gets_its_system_ifindex) {
    add_record(100, 5, "port5");
    EXPECT_EQ(receive(message(RTM_NEWLINK, link_header(5, IFF_UP, IFF_UP))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_LINK_UP, 100);
    EXPECT_EQ(receive(message(RTM_NEWLINK, link_header(5, 0, IFF_UP))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_LINK_DOWN, 100);
    EXPECT_EQ(receive(message(RTM_NEWLINK, link_header(5, IFF_UP, 0))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_LINK_CHANGE, 100);
    EXPECT_EQ(receive(message(RTM_DELLINK, link_header(5, 0, 0))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_LINK_DELETED, 100);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_receive, running_changed_alone_with_up_set_is_up) {
    add_record(100, 5, "port5");
    EXPECT_EQ(receive(message(RTM_NEWLINK, link_header(5, IFF_UP, 0x40))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_LINK_UP, 100);
}

TEST_F(event_receive, unknown_link_is_a_success_without_system_ifindex) {
    add_record(100, 5, "port5");
    EXPECT_EQ(receive(message(RTM_NEWLINK, link_header(6, 0, IFF_UP))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_LINK_DOWN, 0);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(event_receive, unknown_link_is_said_at_debug_with_its_position_and_without_a_newline) {
    set_verbosity(5);
    EXPECT_EQ(receive(message(RTM_DELLINK, link_header(-6, 0))), uint32_t{YB_STATUS_SUCCESS});
    ASSERT_EQ(log().size(), 2u); // the database's own line comes first
    EXPECT_EQ(log()[1].severity, severity_debug);
    EXPECT_EQ(log()[1].format,
              "%s[%d]- %s: Received an event from an unknown interface (linux ifindex = %d)");
    EXPECT_THAT(log()[1].text,
                testing::MatchesRegex("net_lib\\[[0-9]+\\]- __ifinfomsg_to_event_data_struct: Received an "
                                      "event from an unknown interface \\(linux ifindex = -6\\)"));
    EXPECT_EQ(platform::recorded().trace_formats.back(),
              "[%s] [%s] - %s[%d]: Received an event from an unknown interface (linux ifindex = %d)");
}

TEST_F(event_receive, record_of_a_named_namespace_is_not_found) {
    add_record(100, 5, "port5", YB_L2_INTERFACE_TYPE_PORT, "blue");
    EXPECT_EQ(receive(message(RTM_DELLINK, link_header(5, 0))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_LINK_DELETED, 0);
}

TEST_F(event_receive, message_of_another_kind_leaves_the_system_ifindex_alone) {
    add_record(100, 5, "port5");
    EXPECT_EQ(receive(message(RTM_NEWADDR, link_header(5, IFF_UP, IFF_UP))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_NONE, 99);
}

TEST_F(event_receive, database_that_is_not_loaded_is_an_error_with_the_event_type_filled_in) {
    (void)net_lib_db_interfaces_unload(0);
    EXPECT_EQ(receive(message(RTM_DELLINK, link_header(5, 0))), uint32_t{YB_STATUS_DB_NOT_INITIALIZED});
    expect_event(YB_NET_IF_EVENT_LINK_DELETED, 0);
    EXPECT_THAT(errors(), ElementsAre("Net-lib Interfaces DB was not initialized\n"));
}

TEST_F(event_receive, database_is_not_asked_about_a_message_of_another_kind) {
    (void)net_lib_db_interfaces_unload(0);
    EXPECT_EQ(receive(message(RTM_NEWADDR, link_header(5, 0))), uint32_t{YB_STATUS_SUCCESS});
}

TEST_F(event_receive, empty_datagram_is_said) {
    EXPECT_EQ(receive({}), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(), ElementsAre(empty_buffer));
    expect_event(88, 99);
}

TEST_F(event_receive, failed_receive_is_an_error_and_never_a_stale_event) {
    add_record(100, 5, "port5");
    const byte_vector up = message(RTM_NEWLINK, link_header(5, IFF_UP, IFF_UP));
    ASSERT_EQ(receive(up), uint32_t{YB_STATUS_SUCCESS});
    event_ = {88, 99};
    EXPECT_EQ(receive(up, -1), uint32_t{YB_STATUS_ERROR});
    EXPECT_THAT(errors(), ElementsAre(not_truncated));
    expect_event(88, 99);
}

TEST_F(event_receive, every_reason_of_a_failed_receive_is_the_same_error) {
    for (const int reason : {EAGAIN, ENOBUFS, EINTR, EBADF, ENOMEM}) {
        platform::reset();
        calls::fail("recv", reason);
        EXPECT_EQ(yb_net_if_event_receive(&sk_, &event_), uint32_t{YB_STATUS_ERROR});
        EXPECT_THAT(errors(), ElementsAre(not_truncated));
        expect_event(88, 99);
    }
}

TEST_F(event_receive, bytes_that_are_no_message_are_an_error) {
    const std::vector<byte_vector> datagrams = {
        byte_vector(15, 0xFF),                                         // shorter than a header
        byte_vector(32, 0),                                            // length 0
        message(RTM_NEWLINK, link_header(5, 0), 15),                   // shorter than its header
        message(RTM_NEWLINK, link_header(5, 0), 33),                   // longer than the datagram
        message(RTM_NEWLINK, link_header(5, 0) + byte_vector(8192, 1)) // cut by the buffer
    };
    for (const byte_vector &datagram : datagrams) {
        platform::reset();
        EXPECT_EQ(receive(datagram), uint32_t{YB_STATUS_ERROR});
        EXPECT_THAT(errors(), ElementsAre(not_truncated));
        expect_event(88, 99);
    }
}

// A partition key's carrier, read from a sysfs of the test's own.
class partition_key_event : public event_receive {
  protected:
    void SetUp() override {
        event_receive::SetUp();
        ASSERT_EQ(mount("tmpfs", "/sys", "tmpfs", 0, ""), 0);
        std::filesystem::create_directories("/sys/class/net/ib0.8001");
        add_record(200, 8, "ib0.8001", YB_L2_INTERFACE_TYPE_PKEY);
    }
    void TearDown() override {
        EXPECT_EQ(umount("/sys"), 0);
        event_receive::TearDown();
    }
    static void set_carrier(const char *text) {
        FILE *const file = fopen("/sys/class/net/ib0.8001/carrier", "w");
        ASSERT_NE(file, nullptr);
        (void)fputs(text, file);
        (void)fclose(file);
    }
    void expect_types(uint32_t for_up, uint32_t for_change) {
        EXPECT_EQ(receive(message(RTM_NEWLINK, link_header(8, IFF_UP, IFF_UP))), uint32_t{YB_STATUS_SUCCESS});
        expect_event(for_up, 200);
        EXPECT_EQ(receive(message(RTM_NEWLINK, link_header(8, IFF_UP, 0))), uint32_t{YB_STATUS_SUCCESS});
        expect_event(for_change, 200);
    }
};

TEST_F(partition_key_event, up_and_change_are_up_with_carrier) {
    set_carrier("1\n");
    expect_types(YB_NET_IF_EVENT_LINK_UP, YB_NET_IF_EVENT_LINK_UP);
}

TEST_F(partition_key_event, any_number_but_0_is_a_carrier) {
    set_carrier("7\n");
    EXPECT_EQ(receive(message(RTM_NEWLINK, link_header(8, IFF_UP, 0))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_LINK_UP, 200);
}

TEST_F(partition_key_event, up_and_change_are_down_without_carrier) {
    set_carrier("0\n");
    expect_types(YB_NET_IF_EVENT_LINK_DOWN, YB_NET_IF_EVENT_LINK_DOWN);
}

TEST_F(partition_key_event, up_and_change_are_down_when_the_carrier_cannot_be_read) {
    expect_types(YB_NET_IF_EVENT_LINK_DOWN, YB_NET_IF_EVENT_LINK_DOWN);
}

TEST_F(partition_key_event, down_and_deleted_are_never_rewritten) {
    set_carrier("1\n");
    EXPECT_EQ(receive(message(RTM_NEWLINK, link_header(8, 0, IFF_UP))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_LINK_DOWN, 200);
    EXPECT_EQ(receive(message(RTM_DELLINK, link_header(8, IFF_UP, 0))), uint32_t{YB_STATUS_SUCCESS});
    expect_event(YB_NET_IF_EVENT_LINK_DELETED, 200);
}

TEST_F(partition_key_event, other_types_are_not_rewritten) {
    uint32_t index = 20;
    for (const uint32_t type : {0u, 1u, 2u, 4u, 6u}) {
        add_record(300 + index, index, "ib0.8001", type);
        const auto link = link_header(static_cast<int>(index), IFF_UP, IFF_UP);
        EXPECT_EQ(receive(message(RTM_NEWLINK, link)), uint32_t{YB_STATUS_SUCCESS});
        expect_event(YB_NET_IF_EVENT_LINK_UP,
                     300 + index); // there is no carrier file: rewriting would say down
        index++;
    }
}
