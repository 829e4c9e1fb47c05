// SPDX-License-Identifier: Apache-2.0
//
// What the demo's transcript is made of: headings, commands with their output,
// and calls with the status they were expected to return.
#ifndef YBNET_TOOLS_DEMO_TRANSCRIPT_H
#define YBNET_TOOLS_DEMO_TRANSCRIPT_H

#include <string>

#include "ybnet/yb_status.h"

// How often something did not end as expected.
extern int surprises;

void heading(const char *text);

// Shows and runs a shell command; one that fails is a surprise.
void run(const std::string &command);

// Shows a call (format, as printf(3)) and its status; a status other than the expected one is a surprise.
void tell(yb_status_t expected, yb_status_t status, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

#endif
