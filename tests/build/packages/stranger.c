/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A program of somebody who has only the packages: it starts the library, records a port, runs a command that may
 * look at it (its arguments), and stops. The last message makes the platform's logging library speak.
 */
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ybnet/net_lib.h>

static int run(char **command) {
    int status;
    pid_t child = fork();

    if (child == 0) {
        execvp(command[0], command);
        _exit(127);
    }
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

int main(int argc, char **argv) {
    yb_net_port_info_t port = {.log_port = 0x10100, .protocol = 1, .name = "strange1"};
    yb_net_port_info_t found = {0};
    int failed = argc < 2;

    failed |= yb_net_init(NULL, 3, 0) != YB_STATUS_SUCCESS;
    failed |= yb_net_port_set(YB_ACCESS_CMD_SET, 4711, &port) != YB_STATUS_SUCCESS;
    failed |= yb_net_port_get(4711, &found) != YB_STATUS_SUCCESS || found.log_port != port.log_port;
    failed |= !failed && run(argv + 1) != 0;
    failed |= yb_net_port_set(YB_ACCESS_CMD_SET, 4712, NULL) != YB_STATUS_PARAM_NULL;
    failed |= yb_net_deinit() != YB_STATUS_SUCCESS;
    return failed;
}
