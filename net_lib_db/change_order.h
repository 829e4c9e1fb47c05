// SPDX-License-Identifier: Apache-2.0
//
// The order in which a change reaches shared memory. Under the lock it is seen by
// nobody, until the process is killed in the middle: then the next holder works on
// what was stored so far, and the order decides what it can tell from that. The
// processor keeps the order of stores; these keep the compiler from changing it.
#ifndef YBNET_NET_LIB_DB_CHANGE_ORDER_H
#define YBNET_NET_LIB_DB_CHANGE_ORDER_H

#include <cstdint>

// What is stored before stays before what is stored after.
inline void change_step() {
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
}

// A mark, between what comes before and what comes after.
inline void change_mark(uint8_t &mark, uint8_t value) {
    change_step();
    __atomic_store_n(&mark, value, __ATOMIC_RELEASE);
    change_step();
}

// A mark with the three bytes behind it, in one store.
using change_word [[gnu::may_alias]] = uint32_t;
inline void change_mark_word(change_word *word, uint32_t value) {
    change_step();
    __atomic_store_n(word, value, __ATOMIC_RELEASE);
    change_step();
}

#endif
