/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The owner of a router interface: makes one, sees its numbers, sets it up and removes it again.
 * first_client.cc is another process that follows it.
 */
#include <stdio.h>
#include <ybnet/net_lib.h>

#define SYS_IFINDEX 140

/* Says what failed; the library has logged why. */
static int succeeded(const char *what, yb_status_t status) {
    if (status != YB_STATUS_SUCCESS)
        printf("%s failed: status %u\n", what, status);
    return status == YB_STATUS_SUCCESS;
}

static void wait_for_enter(const char *to_do) {
    printf("press Enter to %s\n", to_do);
    fflush(stdout);
    (void)getchar();
}

static int play(void) {
    yb_net_interface_params_t params = {.name = "loop1", .type = YB_L2_INTERFACE_TYPE_LOOPBACK};
    yb_net_interface_record_t record;

    if (!succeeded("create", yb_net_interface_set(YB_ACCESS_CMD_CREATE, SYS_IFINDEX, &params)))
        return 0;
    if (!succeeded("translate", yb_net_interface_params_get(SYS_IFINDEX, &record)))
        return 0;
    printf("system ifindex %u is %s, Linux ifindex %u\n", record.sys_ifindex, record.params.name,
           record.linux_ifindex);

    wait_for_enter("set it up");
    if (!succeeded("set up", yb_net_interface_state_set(SYS_IFINDEX, YB_NET_IF_STATE_UP)))
        return 0;
    wait_for_enter("remove it");
    return succeeded("destroy", yb_net_interface_set(YB_ACCESS_CMD_DESTROY, SYS_IFINDEX, NULL));
}

int main(void) {
    int done = 0;

    /* Messages go to standard error, from NOTICE up; records that are there stay there. */
    if (succeeded("start", yb_net_init(NULL, 3, 0)))
        done = play();
    /* Always, also after a start that failed half-way: a process that does not stop stays counted as a user. */
    yb_net_deinit();
    return done ? 0 : 1;
}
