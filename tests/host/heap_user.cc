// SPDX-License-Identifier: Apache-2.0
//
// A library that does use the heap, for no_heap_test.cc to prove its detector on.
#include <cstdlib>
#include <new>

extern "C" {

void heap_user_malloc(void) {
    void *volatile memory = malloc(10);
    free(memory);
}
void heap_user_calloc(void) {
    void *volatile memory = calloc(1, 10);
    free(memory);
}
void heap_user_realloc(void) {
    void *volatile memory = realloc(nullptr, 10);
    free(memory);
}
void heap_user_new(void) {
    char *volatile memory = new char[10];
    delete[] memory;
}
void heap_user_nothing(void) {}

} // extern "C"
