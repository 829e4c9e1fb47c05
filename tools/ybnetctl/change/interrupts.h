// SPDX-License-Identifier: Apache-2.0
//
// Ctrl-C and its like while the library is started: the first one lets the step that runs now come to its end, so that
// the process unregisters; the second one ends the process at once.
#ifndef YBNET_YBNETCTL_CHANGE_INTERRUPTS_H
#define YBNET_YBNETCTL_CHANGE_INTERRUPTS_H

namespace ybnetctl {

void watch_interrupts();

// The signal that came, 0 for none.
int interrupted();

// For a step that a signal ended in the place of this process: while a command of the library runs, system(3) ignores
// SIGINT here, and only the command gets it.
void note_interrupt(int number);

// Ends the process by the signal that came, if one did.
void end_if_interrupted();

} // namespace ybnetctl

#endif
