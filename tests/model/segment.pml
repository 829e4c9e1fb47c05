// SPDX-License-Identifier: Apache-2.0
//
// A segment's life as processes load, use and unload it, and as any of them is
// killed at any step: creating, registering, the file lock, the segment's lock and
// its takeover. Steps carry the names of the functions in net_lib_db/ that make
// them: segment.cc (create_locked, attach, lock_and_check, register_user,
// unregister_user, segment_unload, give_back_lock, remove_name), file_lock.cc (file_lock,
// file_unlock) and cl_passivelock (cl_plock_excl_acquire, cl_plock_release).
//
// Checked in every reachable state:
//   one_owner          two living processes never hold one segment's lock
//   no_destroyed_lock  nobody takes a lock that its last user destroyed
//   name_kept          a registered process's segment has its name
//   none_lost          a segment's count is never below its living registered users
// and that no process waits for ever (no invalid end state).
//
// What is left out: sizes and contents, a segment removed by hand, builds with
// another layout. A file is either finished (its size check is written) or not.

#ifndef PROCESSES
#define PROCESSES 3
#endif
#ifndef ROUNDS
#define ROUNDS 2 // loads and unloads of each process
#endif
#ifndef KILLS
#define KILLS 2 // how many processes are killed in one run
#endif
#define FILES 5 // segments that can come to exist in one run; more are never needed
#define NOBODY 0

// The name "/net_lib_ifc": the file that it stands for, NOBODY for none.
byte name;
byte files_made;

typedef file {
    bool finished;     // size check written
    bool destroyed;    // lock state
    byte count;        // user count
    byte registered;   // living processes that registered and have not unregistered: a ghost, for checking
    byte flock_owner;  // file_lock()
    bool write_locked; // __readers, PTHREAD_RWLOCK_WRLOCKED
    byte writers;      // __writers: the owner's id
    byte inside;       // living owners: a ghost
};
file segments[FILES + 1];

bool dead[PROCESSES + 1];
byte kills;

// Any process may be killed before any step: the kernel gives its file lock back, the segment's lock stays as it is.
inline maybe_killed() {
    if
    :: kills < KILLS ->
        d_step {
            kills++;
            dead[me] = true;
            if
            :: registered -> segments[seg].registered--; registered = false
            :: else
            fi;
            if
            :: seg != NOBODY && segments[seg].flock_owner == me -> segments[seg].flock_owner = NOBODY
            :: else
            fi;
            if
            :: owner -> segments[seg].inside--; owner = false
            :: else
            fi;
        }
        goto killed
    :: true
    fi
}

inline file_lock() {
    maybe_killed();
    atomic { segments[seg].flock_owner == NOBODY -> segments[seg].flock_owner = me }
}

inline file_unlock() {
    maybe_killed();
    segments[seg].flock_owner = NOBODY
}

// Taking the lock and recording oneself in it is one compare-and-exchange, and so is the takeover: the dead owner's id
// for one's own (inherit() in cl_passivelock.cc). That the owner is dead, and its id nobody else's, the code proves by
// an inquest (cl_plock_owner.cc); here it is known.
inline cl_plock_excl_acquire() {
    maybe_killed();
    assert(!segments[seg].destroyed); // no_destroyed_lock
    if
    :: atomic { !segments[seg].write_locked && segments[seg].writers == NOBODY ->
                segments[seg].write_locked = true; segments[seg].writers = me }
    :: atomic { segments[seg].writers != NOBODY && dead[segments[seg].writers] ->
                segments[seg].write_locked = true; segments[seg].writers = me }
    fi;
    d_step {
        segments[seg].inside++;
        owner = true;
        assert(segments[seg].inside == 1) // one_owner
    }
}

// The id goes after the lock is free, so that no instant has a taken lock of nobody's.
inline cl_plock_release() {
    maybe_killed();
    d_step { segments[seg].inside--; owner = false; segments[seg].write_locked = false }
    maybe_killed();
    segments[seg].writers = NOBODY
}

inline give_back_lock() {
    if
    :: owner -> cl_plock_release()
    :: else
    fi
}

inline register_user() {
    cl_plock_excl_acquire();
    maybe_killed();
    d_step { segments[seg].count++; segments[seg].registered++; registered = true }
    cl_plock_release()
}

inline unregister_user() {
    cl_plock_excl_acquire();
    maybe_killed();
    d_step {
        segments[seg].registered--;
        registered = false;
        if
        :: segments[seg].count != 0 -> segments[seg].count--
        :: else
        fi
    }
    cl_plock_release()
}

// The name goes only when it still stands for this file (its link count is not 0). It always does unless somebody
// removed the file by hand, which is left out here.
inline remove_name() {
    maybe_killed();
    d_step {
        if
        :: name == seg -> name = NOBODY
        :: else
        fi
    }
}

inline create_locked() {
    // initialize_contents(), then the size check, which tells the others that the segment can be used
    cl_plock_excl_acquire();
    cl_plock_release();
    maybe_killed();
    segments[seg].finished = true
}

proctype process(byte me) {
    byte seg = NOBODY;
    byte round = 0;
    bool registered = false;
    bool owner = false;

next_round:
    if
    :: round == ROUNDS -> goto done
    :: else -> round++
    fi;

segment_load:
    seg = NOBODY;
    maybe_killed();
    if
    :: atomic { name == NOBODY && files_made < FILES -> files_made++; name = files_made; seg = files_made }
        file_lock();
        create_locked();
        register_user();
        file_unlock();
        goto loaded
    :: atomic { name != NOBODY -> seg = name } // attach
    fi;

    // lock_and_check: an unfinished segment is waited for, but not for ever: its creator may be dead
    if
    :: segments[seg].finished
    :: !segments[seg].finished && segments[seg].flock_owner == NOBODY -> goto next_round // refused as foreign
    fi;
    file_lock();
    if
    :: name != seg -> file_unlock(); goto segment_load // layout::gone
    :: name == seg && segments[seg].destroyed ->
        remove_name(); // its last user died before it could
        file_unlock();
        goto segment_load
    :: else
    fi;
    register_user();
    file_unlock();

loaded:
    assert(name == seg);                                       // name_kept
    assert(segments[seg].count >= segments[seg].registered);   // none_lost
    if
    :: true // the process goes on to unload
    :: cl_plock_excl_acquire(); cl_plock_release() // it uses the segment
    :: cl_plock_excl_acquire()                     // and goes on to unload with the lock in its hands
    fi;
    assert(name == seg);

segment_unload:
    give_back_lock();
    file_lock();
    unregister_user();
    if
    :: segments[seg].count == 0 ->
        maybe_killed();
        segments[seg].destroyed = true; // cl_plock_destroy
        remove_name()
    :: else
    fi;
    file_unlock();
    goto next_round;

killed:
    skip;
done:
    skip
}

init {
    byte each = 1;
    atomic {
        do
        :: each <= PROCESSES -> run process(each); each++
        :: else -> break
        od
    }
}
