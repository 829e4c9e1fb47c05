#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks segment.pml with spin, and that it can fail: each rule of the protocol is taken out in turn, and the model
# must then find the accident that the rule prevents. The functions that the model names must exist in the code, and
# the code must name the model.
# usage: check_test.sh SOURCE_DIR
set -euo pipefail
source=$1
model=$source/tests/model/segment.pml
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

verify() { # NAME PROCESSES ROUNDS KILLS < MODEL: prints "errors: N, S states"
    mkdir "$1"
    cat >"$1/model.pml"
    (cd "$1"
        spin -DPROCESSES="$2" -DROUNDS="$3" -DKILLS="$4" -a model.pml >spin.log || { cat spin.log >&2; exit 1; }
        gcc -O2 -DSAFETY -DCOLLAPSE -DMEMLIM=2000 -o pan pan.c
        ./pan -m1000000 >pan.log)
    grep -q 'search depth too small\|out of memory' "$1/pan.log" && { cat "$1/pan.log"; return 1; }
    sed -n 's/.*errors: \([0-9]*\).*/\1/p' "$1/pan.log"
}

holds() { # PROCESSES ROUNDS KILLS
    local errors
    errors=$(verify "holds-$1-$2-$3" "$@" <"$model")
    printf '%s processes, %s loads each, %s killed: %s errors, %s\n' "$@" "$errors" \
        "$(grep -o '[0-9]* states, stored' "holds-$1-$2-$3/pan.log")"
    [[ $errors == 0 ]]
}

breaks() { # RULE SED_EXPRESSION
    local errors
    sed -E "$2" "$model" >"$1.pml"
    if cmp -s "$1.pml" "$model"; then
        printf '%s: the expression changes nothing\n' "$1"
        return 1
    fi
    errors=$(verify "$1" 2 2 2 <"$1.pml")
    printf 'without "%s": %s errors\n' "$1" "$errors"
    [[ $errors != 0 ]]
}

holds 2 2 2
holds 3 1 2
breaks file_lock 's/atomic \{ segments\[seg\].flock_owner == NOBODY -> /atomic { true -> /'
breaks layout_gone 's/:: name != seg -> file_unlock\(\)/:: false -> file_unlock()/'
breaks destroyed_lock 's/:: name == seg \&\& segments\[seg\].destroyed ->/:: false ->/'
breaks give_back_lock 's/^    give_back_lock\(\);$//; s/^    file_lock\(\);$/    file_lock(); give_back_lock();/'
breaks takeover 's/:: atomic \{ segments\[seg\].writers != NOBODY \&\& dead/:: atomic { false \&\& dead/'
breaks proof_of_death 's/:: atomic \{ segments\[seg\].writers != NOBODY \&\& dead\[segments\[seg\]\.writers\] ->/:: atomic { segments[seg].writers != NOBODY ->/'
breaks id_with_the_lock 's/segments\[seg\].write_locked = true; segments\[seg\].writers = me \}/segments[seg].write_locked = true }; maybe_killed(); segments[seg].writers = me/'
breaks id_until_free 's/owner = false; segments\[seg\].write_locked = false \}/owner = false; segments[seg].writers = NOBODY }/; s/^    segments\[seg\].writers = NOBODY$/    segments[seg].write_locked = false/'

# Model and code name each other.
for name in $(grep -oE '^inline [a-z_]+' "$model" | cut -d' ' -f2 | grep -v maybe_killed) segment_load segment_unload \
    lock_and_check attach initialize_contents cl_plock_destroy; do
    grep -rqE "\b$name\(" "$source/net_lib_db" || { echo "no $name() in the code"; exit 1; }
done
grep -rq 'tests/model/segment.pml' "$source/net_lib_db" || { echo 'the code does not name the model'; exit 1; }
echo 'model and code name each other'
