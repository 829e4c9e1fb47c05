// SPDX-License-Identifier: Apache-2.0
//
// See injector.h. Rests on the x86-64 psABI: a lazily or eagerly bound import is one word of the caller's table,
// which here comes to point to a thunk that keeps all argument registers.
#include "tests/faults/injector.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace faults {

// ---- One call ---------------------------------------------------------------

namespace {

// The argument registers of a call, as the thunk keeps them.
struct registers {
    uint64_t argument[6]; // rdi, rsi, rdx, rcx, r8, r9
    uint64_t result;      // rax: in, how many vector registers a variadic call uses
};

struct import {
    const char *function;
    uintptr_t real;
};
constexpr size_t imports_max = 64;
import imports[imports_max];
size_t import_count;

// In shared memory: children of a watched process are watched too, and the test reads what they did.
struct record {
    std::atomic<size_t> calls;
    std::atomic<bool> happened;
    uint8_t called[4096];
};
record *shared;
bool watching;
fault planned;
bool is_planned;

// What a release that was failed should have released.
void *kept_memory;
size_t kept_size;
int kept_descriptor = -1;

const char *redirected_from;
const char *redirected_to;

const char *awaited_function;
void (*awaited_action)();

void do_what_was_awaited() {
    if (awaited_function != nullptr)
        awaited_action();
    awaited_function = nullptr;
}

// The row of callees() for a call; false for one that cannot fail.
bool find_callee(const import &called, const registers &regs, size_t *row) {
    const bool by_number = strcmp(called.function, "syscall") == 0;
    for (size_t i = 0; i < callees().size(); i++) {
        const callee &one = callees()[i];
        if (strcmp(one.function, called.function) == 0 &&
            (!by_number || static_cast<uint64_t>(one.number) == regs.argument[0])) {
            *row = i;
            return true;
        }
    }
    return false;
}

using of_stream = int(void *);

// A file and a process's end are taken away even when that is reported as failed (close(2)); memory is not, and a
// descriptor not when EBADF says that it is none. Who gets that from flock(2) has no lock any more.
void do_what_happens_all_the_same(const import &called, const registers &regs, const fault &fault) {
    const auto first = reinterpret_cast<void *>(regs.argument[0]);
    if (is_one_of(called.function, {"fclose", "pclose"}))
        (void)reinterpret_cast<of_stream *>(called.real)(first);
    if (strcmp(called.function, "close") == 0) {
        if (fault.error == EBADF)
            kept_descriptor = static_cast<int>(regs.argument[0]);
        else
            (void)close(static_cast<int>(regs.argument[0]));
    }
    if (strcmp(called.function, "flock") == 0 && fault.error == EBADF)
        (void)flock(static_cast<int>(regs.argument[0]), LOCK_UN);
    if (strcmp(called.function, "munmap") == 0) {
        kept_memory = first;
        kept_size = regs.argument[1];
    }
}

constexpr size_t cut_size = 20; // a message's header and a little more
constexpr uint64_t exited_with_1 = 1 << 8;

// True when the call is not to be made: its result stands in regs then.
bool treat(const import &called, const callee &row, registers &regs) {
    switch (planned.what) {
    case treatment::nothing:
        regs.result = 0;
        return true;
    case treatment::cut:
        if (strcmp(called.function, "recvmsg") == 0)
            reinterpret_cast<struct msghdr *>(regs.argument[1])->msg_iov->iov_len = cut_size;
        else
            regs.argument[2] = cut_size;
        return false;
    case treatment::exit_1:
        do_what_happens_all_the_same(called, regs, planned);
        regs.result = exited_with_1;
        return true;
    default:
        do_what_happens_all_the_same(called, regs, planned);
        if (row.how == fails_with::the_number) {
            regs.result = static_cast<uint64_t>(planned.error);
            return true;
        }
        errno = planned.error;
        regs.result = row.how == fails_with::zero ? 0 : ~uint64_t{0};
        return true;
    }
}

} // namespace

// The function that is to be called, or 0 when the call has been treated.
extern "C" __attribute__((visibility("hidden"))) uintptr_t faults_decide(registers *regs, uint64_t index) {
    const import &called = imports[index];
    if (redirected_from != nullptr && strcmp(called.function, "fopen") == 0 &&
        strcmp(reinterpret_cast<const char *>(regs->argument[0]), redirected_from) == 0)
        regs->argument[0] = reinterpret_cast<uintptr_t>(redirected_to);
    size_t row = 0;
    if (!watching || !find_callee(called, *regs, &row))
        return called.real;
    if (awaited_function != nullptr && name_of(callees()[row]) == awaited_function)
        do_what_was_awaited();
    const size_t call = shared->calls.fetch_add(1);
    if (call < sizeof(shared->called))
        shared->called[call] = static_cast<uint8_t>(row);
    if (!is_planned || call != planned.call)
        return called.real;
    shared->happened = true;
    return treat(called, callees()[row], *regs) ? 0 : called.real;
}

// One thunk for each import: its number goes to the common part, which keeps all that a call may bring along in
// registers. The function itself then finds the stack as its caller left it.
asm(R"(
    .text
    .p2align 4
faults_common:
    pushq %rbp
    movq %rsp, %rbp
    subq $200, %rsp
    movq %rdi, 0(%rsp)
    movq %rsi, 8(%rsp)
    movq %rdx, 16(%rsp)
    movq %rcx, 24(%rsp)
    movq %r8, 32(%rsp)
    movq %r9, 40(%rsp)
    movq %rax, 48(%rsp)
    movups %xmm0, 64(%rsp)
    movups %xmm1, 80(%rsp)
    movups %xmm2, 96(%rsp)
    movups %xmm3, 112(%rsp)
    movups %xmm4, 128(%rsp)
    movups %xmm5, 144(%rsp)
    movups %xmm6, 160(%rsp)
    movups %xmm7, 176(%rsp)
    movq %rsp, %rdi
    movq 8(%rbp), %rsi
    call faults_decide
    movq %rax, %r11
    movq 0(%rsp), %rdi
    movq 8(%rsp), %rsi
    movq 16(%rsp), %rdx
    movq 24(%rsp), %rcx
    movq 32(%rsp), %r8
    movq 40(%rsp), %r9
    movq 48(%rsp), %rax
    movups 64(%rsp), %xmm0
    movups 80(%rsp), %xmm1
    movups 96(%rsp), %xmm2
    movups 112(%rsp), %xmm3
    movups 128(%rsp), %xmm4
    movups 144(%rsp), %xmm5
    movups 160(%rsp), %xmm6
    movups 176(%rsp), %xmm7
    leave
    leaq 8(%rsp), %rsp
    testq %r11, %r11
    jz 1f
    jmp *%r11
1:  ret

    .p2align 4
faults_thunks:
    .set faults_number, 0
    .rept 64
    .p2align 4
    pushq $faults_number
    jmp faults_common
    .set faults_number, faults_number + 1
    .endr
)");
extern "C" __attribute__((visibility("hidden"))) const std::byte faults_thunks[];

// ---- The library's imports --------------------------------------------------

namespace {

constexpr size_t thunk_size = 16;

const struct link_map *find_library() {
    const auto *map = static_cast<const struct link_map *>(dlopen(nullptr, RTLD_LAZY | RTLD_NOLOAD));
    while (map != nullptr && strstr(map->l_name, "/libybnet.so") == nullptr)
        map = map->l_next;
    return map;
}

template <typename value_t> value_t at(uint64_t address) {
    return reinterpret_cast<value_t>(address);
}

// glibc has relocated the addresses in the dynamic section of every object but the vDSO.
struct dynamic_section {
    const Elf64_Sym *symbols = nullptr;
    const char *names = nullptr;
    const Elf64_Rela *imports = nullptr;
    size_t imports_size = 0;

    explicit dynamic_section(const Elf64_Dyn *entry) {
        for (; entry->d_tag != DT_NULL; entry++) {
            if (entry->d_tag == DT_SYMTAB)
                symbols = at<const Elf64_Sym *>(entry->d_un.d_ptr);
            else if (entry->d_tag == DT_STRTAB)
                names = at<const char *>(entry->d_un.d_ptr);
            else if (entry->d_tag == DT_JMPREL)
                imports = at<const Elf64_Rela *>(entry->d_un.d_ptr);
            else if (entry->d_tag == DT_PLTRELSZ)
                imports_size = entry->d_un.d_val;
        }
    }
};

// The table is read-only once all imports are bound.
bool replace(uintptr_t *word, uintptr_t value) {
    const auto page_size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    void *const page = at<void *>(reinterpret_cast<uintptr_t>(word) & ~(page_size - 1));
    if (mprotect(page, page_size, PROT_READ | PROT_WRITE) != 0)
        return false;
    *word = value;
    return true;
}

bool is_a_callee(const char *name) {
    for (const callee &one : callees()) {
        if (strcmp(one.function, name) == 0)
            return true;
    }
    return false;
}

} // namespace

void part_from_other_processes() {
    void *const memory =
        mmap(nullptr, sizeof(record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        abort();
    shared = static_cast<record *>(memory);
}

std::string interpose() {
    const struct link_map *const library = find_library();
    if (library == nullptr)
        return "libybnet.so is not loaded";
    part_from_other_processes();

    const dynamic_section dynamic(library->l_ld);
    for (size_t i = 0; i < dynamic.imports_size / sizeof(Elf64_Rela); i++) {
        const Elf64_Rela &relocation = dynamic.imports[i];
        const char *const name = dynamic.names + dynamic.symbols[ELF64_R_SYM(relocation.r_info)].st_name;
        if (!is_a_callee(name))
            continue;
        auto *const word = at<uintptr_t *>(library->l_addr + relocation.r_offset);
        if (import_count == imports_max)
            return "more imports than thunks";
        imports[import_count] = {name, *word};
        if (!replace(word, reinterpret_cast<uintptr_t>(faults_thunks + thunk_size * import_count)))
            return std::string("the import of ") + name + " cannot be replaced";
        import_count++;
    }
    for (const callee &one : callees()) {
        bool is_imported = false;
        for (size_t i = 0; i < import_count; i++)
            is_imported = is_imported || strcmp(imports[i].function, one.function) == 0;
        if (!is_imported)
            return std::string(one.function) + " is not imported by a jump slot";
    }
    return "";
}

void redirect(const char *path, const char *to) {
    redirected_from = path;
    redirected_to = to;
}

void before_call(const char *function, void (*action)()) {
    awaited_function = function;
    awaited_action = action;
}

void watch(const fault *fault) {
    is_planned = fault != nullptr;
    if (is_planned)
        planned = *fault;
    shared->calls = 0;
    shared->happened = false;
    watching = true;
}

void watch_no_more() {
    watching = false;
    do_what_was_awaited();
}

std::vector<size_t> calls_made() {
    const size_t count =
        shared->calls < sizeof(shared->called) ? shared->calls.load() : sizeof(shared->called);
    return {shared->called, shared->called + count};
}

bool happened() {
    return shared->happened;
}

void make_up_for_release() {
    if (kept_memory != nullptr)
        (void)munmap(kept_memory, kept_size);
    if (kept_descriptor >= 0)
        (void)close(kept_descriptor);
    kept_memory = nullptr;
    kept_descriptor = -1;
}

} // namespace faults
