// SPDX-License-Identifier: Apache-2.0
//
// See cl_passivelock.h. Waiting: a short spin, then sleeps on glibc's own futex word (futex(2)), in rounds after
// which the holder is looked at; and taking the lock over from a dead one.
//
// pthread_rwlock_clockwrlock(3p) is not used to wait: where a holder died while __writers_futex was 0, in its
// first or last instructions, that spins for ever, whatever its deadline.
//
// Why nobody alive is robbed. The takeover replaces, in one compare-and-exchange of the pair __readers and
// __writers, a dead owner T by the caller, under an inquest on T (cl_plock_owner.h) that was opened before the
// pair was read. While it lasts every thread that could be recorded as T is dead, none can come into being, and
// nobody else can conclude the same about T. A dead thread changes nothing, other takers wait for the owner to
// become 0: so from the reading to the exchange T stays, and it is a dead one's.
//
// T may have been taking, holding or releasing the lock: the words that go with the pair are brought to what a
// holder's are. It may have owed a sleeper its wake-up: the caller's own release wakes one, and so on from there.
//
// A holder of another build is known by __cur_writer only. One that dies in the few instructions in which that
// is 0 is not recorded anywhere, and waited for.
#include "net_lib_db/complib/cl_passivelock.h"

#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "net_lib_db/complib/cl_plock_owner.h"
#include "net_lib_db/monotonic_clock.h"
#include "net_lib_db/probe.h"

namespace {

constexpr int64_t round_length = 200'000'000; // between two looks at the holder
constexpr int spins = 400; // some 10 us: what a change takes with its msync(2), many times over
constexpr int yields = 16;
constexpr long nap = 50'000; // each one that much longer than the last: the round ends with one below 5 ms

struct lock_words {
    uint64_t pair;
    uint32_t readers;
    uint32_t owner;  // __writers
    uint32_t writer; // __cur_writer
};

lock_words read_words(cl_plock_t *plock) {
    lock_words words = {};
    words.pair = __atomic_load_n(cl_plock_words(plock), __ATOMIC_ACQUIRE);
    words.readers = static_cast<uint32_t>(words.pair);
    words.owner = static_cast<uint32_t>(words.pair >> CL_PLOCK_OWNER_SHIFT);
    words.writer = __atomic_load_n(CL_PLOCK_WORD(plock, __cur_writer), __ATOMIC_RELAXED);
    return words;
}

bool exchange_pair(cl_plock_t *plock, uint64_t expected, uint32_t readers, uint32_t owner) {
    return __atomic_compare_exchange_n(cl_plock_words(plock), &expected,
                                       uint64_t{owner} << CL_PLOCK_OWNER_SHIFT | readers, false,
                                       __ATOMIC_ACQ_REL, __ATOMIC_RELAXED);
}

// ---- Waiting ----------------------------------------------------------------

bool spin(cl_plock_t *plock, cl_plock_user &own) {
    for (int i = 0; i < spins; i++) {
        if (cl_plock_try(plock, own, __atomic_load_n(cl_plock_words(plock), __ATOMIC_RELAXED)))
            return true;
        __builtin_ia32_pause();
    }
    return false;
}

// Sleeps until the lock may be free or the round is over. The futex word says whether its holder will wake
// anybody; in the moments in which it does not, the lock is about to change hands.
void sleep_a_while(cl_plock_t *plock, int64_t end, int *unsettled) {
    constexpr uint32_t slept_on = CL_PLOCK_FUTEX_ON | CL_PLOCK_FUTEX_USED;
    cl_plock_word *const futex = CL_PLOCK_WORD(plock, __writers_futex);
    uint32_t seen = CL_PLOCK_FUTEX_ON;
    if (__atomic_compare_exchange_n(futex, &seen, slept_on, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED) ||
        seen == slept_on) {
        *unsettled = 0;
        const timespec until = monotonic_timespec(end);
        (void)syscall(SYS_futex, futex, FUTEX_WAIT_BITSET, slept_on, &until, nullptr, FUTEX_BITSET_MATCH_ANY);
    } else if (++*unsettled <= yields) {
        (void)sched_yield();
    } else {
        const timespec length = {0, nap * (*unsettled - yields)};
        (void)nanosleep(&length, nullptr);
    }
}

// One round; true when it got the lock.
bool wait_a_round(cl_plock_t *plock, cl_plock_user &own) {
    const int64_t end = monotonic_deadline(round_length);
    int unsettled = 0;
    do {
        sleep_a_while(plock, end, &unsettled);
        if (spin(plock, own)) {
            // Others may sleep on the same word still: the release is to wake the next.
            (void)__atomic_fetch_or(CL_PLOCK_WORD(plock, __writers_futex), CL_PLOCK_FUTEX_USED,
                                    __ATOMIC_RELAXED);
            return true;
        }
    } while (monotonic_now() < end);
    return false;
}

// ---- Taking over ------------------------------------------------------------

// Who is behind a lock that is not free: an owner, or the id of another build's thread; 0 when not recorded.
struct holder {
    uint32_t number;
    bool is_owner;
};

holder holder_of(const lock_words &words) {
    return words.owner != 0 ? holder{words.owner, true} : holder{words.writer, false};
}

bool is_dead(const cl_plock_inquest &inquest, const holder &suspect, const cl_plock_user &own) {
    return suspect.is_owner ? cl_plock_owner_is_dead(inquest, suspect.number, suspect.number == own.owner)
                            : cl_plock_stranger_is_dead(inquest, suspect.number, suspect.number == own.id);
}

// Takes the lock from a dead holder; false when it is not to be had.
bool inherit(cl_plock_t *plock, cl_plock_user &own, const lock_words &words) {
    if ((words.readers & ~uint32_t{CL_PLOCK_FLAGS}) != 0)
        return false; // readers: nobody of this stack
    const uint32_t taken = words.readers | CL_PLOCK_WRITE_PHASE | CL_PLOCK_WRITE_LOCKED;
    // Not counted: it fails when such a reader comes now, and no test gets in between two instructions.
    if (!exchange_pair(plock, words.pair, taken, own.owner)) // GCOVR_EXCL_BR_LINE
        return false;                                        // GCOVR_EXCL_LINE
    const bool phase_is_on = __atomic_load_n(CL_PLOCK_WORD(plock, __wrphase_futex), __ATOMIC_RELAXED) != 0;
    cl_plock_record(plock, own, !phase_is_on);
    (void)__atomic_fetch_or(CL_PLOCK_WORD(plock, __writers_futex), CL_PLOCK_FUTEX_USED, __ATOMIC_RELAXED);
    return true;
}

// The dead holder that the lock was taken over from, else 0.
uint32_t take_over(cl_plock_t *plock, cl_plock_user &own, const cl_plock_place &place) {
    const holder suspect = holder_of(read_words(plock));
    cl_plock_inquest inquest;
    if (suspect.number == 0 || !cl_plock_inquest_open(&inquest, place))
        return 0;
    uint32_t dead = 0;
    if (is_dead(inquest, suspect, own)) {
        const lock_words words = read_words(plock);
        const holder now = holder_of(words);
        if (now.number == suspect.number && now.is_owner == suspect.is_owner && inherit(plock, own, words))
            dead = now.is_owner ? now.number : cl_plock_namesake_here(now.number);
    }
    cl_plock_inquest_close(&inquest);
    return dead;
}

} // namespace

void cl_plock_wake(cl_plock_t *plock, bool readers, bool a_writer) {
    if (readers && (__atomic_exchange_n(CL_PLOCK_WORD(plock, __wrphase_futex), 0U, __ATOMIC_RELAXED) &
                    CL_PLOCK_FUTEX_USED) != 0)
        (void)syscall(SYS_futex, CL_PLOCK_WORD(plock, __wrphase_futex), FUTEX_WAKE, INT_MAX, nullptr, nullptr,
                      0);
    if (a_writer)
        (void)syscall(SYS_futex, CL_PLOCK_WORD(plock, __writers_futex), FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

uint32_t cl_plock_wait(cl_plock_t *plock, cl_plock_user &own, const cl_plock_place &place) {
    if (spin(plock, own))
        return 0;
    YB_PROBE(lock_wait, place.name, plock, own.id,
             cl_plock_bytes::id_of(holder_of(read_words(plock)).number));
    for (;;) {
        if (wait_a_round(plock, own))
            return 0;
        const uint32_t dead = take_over(plock, own, place);
        if (dead != 0) {
            YB_PROBE(lock_takeover, place.name, plock, own.id, cl_plock_bytes::id_of(dead));
            return dead;
        }
    }
}
