/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The daemon's test, in plain C: the switch's netdev is a scripted one, and the
 * daemon runs as it was built, under ybnet-testkit-run. Needs no rights at all.
 * usage: linkwatch_test LINKWATCH [YBNET_TESTKIT_RUN]
 */
#define _GNU_SOURCE
#include <errno.h>
#include <linux/rtnetlink.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <ybnet/net_lib.h>
#include <ybnet/testkit/testkit.h>

#define LIMIT_MS 20000u

/* assert(3) that NDEBUG does not take away. */
#define CHECK(condition)                                                                                     \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            (void)fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                    \
            exit(1);                                                                                         \
        }                                                                                                    \
    } while (0)

static const char *linkwatch;
static const char *run = "ybnet-testkit-run";

static pid_t start(const char *sys_ifindex, const char *swid, const char *vlan) {
    char *const words[] = {(char *)run,  (char *)linkwatch, (char *)sys_ifindex,
                           (char *)swid, (char *)vlan,      NULL};
    pid_t pid = -1;
    CHECK(posix_spawnp(&pid, run, NULL, NULL, words, environ) == 0);
    return pid;
}

static int exit_status_of(pid_t pid) {
    int status = 0;
    CHECK(waitpid(pid, &status, 0) == pid);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

static void logs_what_happens_to_its_interface(void) {
    CHECK(ybtk_reset() == 0);
    CHECK(ybtk_netdev_add(NULL, "swid0_eth", NULL) == 0);
    const pid_t pid = start("1001", "0", "5");
    CHECK(ybtk_wait_for_log("watching interface 1001", LIMIT_MS) == 0);

    /* It made its netdev and set it up: by a command, and by a request. */
    CHECK(ybtk_tool_run_count() == 1);
    CHECK(strcmp(ybtk_tool_run_get(0), "vconfig add swid0_eth 5") == 0);
    CHECK((ybtk_netdev_flags(NULL, "swid0_eth.5") & 1u) != 0);
    CHECK(ybtk_wait_for_log("interface 1001 is up", LIMIT_MS) == 0);

    CHECK(ybtk_netdev_set_up(NULL, "swid0_eth.5", 0) == 0);
    CHECK(ybtk_wait_for_log("interface 1001 is down", LIMIT_MS) == 0);

    /* Another process of the stack reads the record. */
    CHECK(yb_net_init(NULL, 3, 0) == YB_STATUS_SUCCESS);
    yb_net_interface_record_t record;
    CHECK(yb_net_interface_params_get(1001, &record) == YB_STATUS_SUCCESS);
    CHECK(record.linux_ifindex == ybtk_netdev_ifindex(NULL, "swid0_eth.5"));
    CHECK(yb_net_deinit() == YB_STATUS_SUCCESS);

    CHECK(ybtk_events_lost() == 0);
    CHECK(ybtk_wait_for_log("interface 1001 is down, after events were lost", LIMIT_MS) == 0);

    CHECK(kill(pid, SIGTERM) == 0);
    CHECK(exit_status_of(pid) == 0);
    CHECK(ybtk_netdev_ifindex(NULL, "swid0_eth.5") == 0);
}

static void gives_up_when_the_vlan_cannot_be_made(void) {
    CHECK(ybtk_reset() == 0);
    CHECK(ybtk_netdev_add(NULL, "swid0_eth", NULL) == 0);
    CHECK(ybtk_tool_answer("vconfig add *", 3, NULL, 1) == 0);
    CHECK(exit_status_of(start("1001", "0", "5")) == 1);
    CHECK(ybtk_wait_for_log("Command \"vconfig add swid0_eth 5\" failed", LIMIT_MS) == 0);
}

static void gives_up_when_the_kernel_refuses_to_set_it_up(void) {
    CHECK(ybtk_reset() == 0);
    CHECK(ybtk_netdev_add(NULL, "swid0_eth", NULL) == 0);
    CHECK(ybtk_rtnetlink_answer_error(RTM_NEWLINK, EPERM, 1) == 0);
    CHECK(exit_status_of(start("1001", "0", "5")) == 1);
    CHECK(ybtk_wait_for_log("set interface state up", LIMIT_MS) == 0);
    CHECK(ybtk_netdev_ifindex(NULL, "swid0_eth.5") == 0); /* and cleans up */
}

static void gives_up_without_a_driver(void) {
    CHECK(ybtk_reset() == 0);
    CHECK(ybtk_platform_fail(YBTK_YBD_OPEN_DEVICE, ENODEV) == 0);
    CHECK(exit_status_of(start("1001", "0", "5")) == 1);
    CHECK(ybtk_wait_for_log("ybd_open_device error No such device", LIMIT_MS) == 0);
    CHECK(ybtk_tool_run_count() == 0);
}

int main(int argc, char **argv) {
    if (argc < 2)
        return 2;
    linkwatch = argv[1];
    if (argc > 2)
        run = argv[2];
    CHECK(ybtk_begin() == 0);
    logs_what_happens_to_its_interface();
    gives_up_when_the_vlan_cannot_be_made();
    gives_up_when_the_kernel_refuses_to_set_it_up();
    gives_up_without_a_driver();
    CHECK(ybtk_end() == 0);
    (void)puts("linkwatch: 4 tests passed");
    return 0;
}
