// SPDX-License-Identifier: Apache-2.0
//
// A shared library that is not libybnet: another name, other symbols, no note.
extern "C" int other_library_function();

int other_library_function() {
    return 1;
}
