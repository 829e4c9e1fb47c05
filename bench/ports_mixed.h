// SPDX-License-Identifier: Apache-2.0
//
// Two processes at once, each with 90 % lookups and 10 % changes of known ports:
// how many operations a second each gets done, with the library and with LMDB.
#ifndef YBNET_BENCH_PORTS_MIXED_H
#define YBNET_BENCH_PORTS_MIXED_H

#include "bench/port_tables.h"

// Prints the table. The library's database must hold `table`.
void measure_mixed_work(const port_table &table);

#endif
