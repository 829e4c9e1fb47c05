// SPDX-License-Identifier: Apache-2.0
//
// See transcript.h.
#include "tools/demo/transcript.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>

#include "tools/demo/status_name.h"

int surprises = 0;

void heading(const char *text) {
    printf("\n--- %s\n\n", text);
    fflush(stdout);
}

void run(const std::string &command) {
    printf("$ %s\n", command.c_str());
    fflush(stdout);
    const int status = std::system(command.c_str());
    if (status != 0) {
        printf("    exit status %d\n", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
        surprises++;
    }
}

void tell(yb_status_t expected, yb_status_t status, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    printf(" = %s (%u)\n", status_name(status), status);
    if (status != expected) {
        printf("    expected %s\n", status_name(expected));
        surprises++;
    }
}
