/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The kit's ip and vconfig, which PATH finds in front of the host's. They record
 * how they were run. Unless the test tells them otherwise, they change the
 * netdevs of the test as the host's change the kernel: VLANs, bridges, names,
 * namespaces, up and down. A command that they do not know fails with a line on
 * standard error ("not modelled").
 */
#ifndef YBNET_TESTKIT_TOOLS_H
#define YBNET_TESTKIT_TOOLS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Command lines so far, of all processes, in order: "vconfig add swid0_eth 5".
 * Number index, NULL when there is none; valid until the thread's next call.
 */
size_t ybtk_tool_run_count(void);
const char *ybtk_tool_run_get(size_t index);

/*
 * Command lines that match pattern (fnmatch(3): "ip link set *") print output,
 * unless it is NULL, exit with exit_status and change nothing; the next times
 * only, or for ever with times 0. The latest call that matches counts.
 */
int ybtk_tool_answer(const char *pattern, int exit_status, const char *output, unsigned times);

/*
 * The tool, "ip" or "vconfig", runs this text by /bin/sh, its arguments as $1 and
 * so on, instead of all of the above; NULL ends that. $0 is a file in the test's
 * directory, beside which the text can keep things. EINVAL for another tool.
 */
int ybtk_tool_script(const char *tool, const char *shell_text);

#ifdef __cplusplus
}
#endif

#endif
