// SPDX-License-Identifier: Apache-2.0
//
// The recorded interfaces as a table for people.
#ifndef YBNET_TOOLS_DEMO_RECORD_TABLE_H
#define YBNET_TOOLS_DEMO_RECORD_TABLE_H

// Prints every record of the interfaces database, which this process must have loaded, to standard output.
void print_record_table();

#endif
