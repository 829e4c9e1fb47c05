#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The tutorial's two programs, built against the installed library as the tutorial builds them, print what it shows:
# two processes on this machine's kernel, in namespaces of the test's own. The README's piece of C compiles, too.
# usage: tutorial_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source_dir=$1
build=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

# ---- Inside the namespaces ------------------------------------------------------

wait_for() { # TEXT FILE
    local round
    for ((round = 0; round < 200; round++)); do
        if grep -q "$1" "$2" 2>/dev/null; then return; fi
        sleep 0.05
    done
    printf 'no "%s" in %s:\n' "$1" "$2" >&2
    cat "$2" >&2
    return 1
}

play() { # DIR: what the tutorial does in two terminals
    cd "$1"
    mount -t tmpfs none /dev/shm
    mkfifo enter
    ./owner <enter >owner.out &
    exec 3>enter
    wait_for 'to set it up' owner.out
    ls /dev/shm >segments
    ./follower loop1 >follower.out &
    wait_for 'is system ifindex' follower.out
    echo >&3
    wait_for 'to remove it' owner.out
    wait "$!" # the follower has seen it
    echo >&3
    wait
    ls /dev/shm >segments.after
    ip link show dev loop1 >/dev/null 2>&1 && echo 'loop1 is still there' >>segments.after
    return 0
}

if [[ $build == --play ]]; then
    play "$source_dir"
    exit
fi

# ---- Outside --------------------------------------------------------------------

export PYTHONDONTWRITEBYTECODE=1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

DESTDIR=$work/root cmake --install "$build" --prefix /usr >/dev/null
libdir=$(dirname "$(dirname "$(find "$work/root" -name libybnet.pc)")")
examples=$work/root/usr/share/doc/ybnet/docs/examples
export PKG_CONFIG_LIBDIR=$libdir/pkgconfig LD_LIBRARY_PATH=$libdir

# shellcheck disable=SC2046 # pkg-config prints words
cc -std=c99 -Wall -Wextra -Werror -o "$work/owner" "$examples/first_client.c" \
    $(pkg-config --cflags --libs libybnet ybnet-platform)
cmake -S "$examples" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/root/usr" -DCMAKE_CXX_FLAGS='-Wall -Wextra -Werror' \
    >/dev/null
cmake --build "$work/build" >/dev/null
cp "$work/build/follower" "$work/"

"$here/docs_check.py" client "$source_dir" >"$work/client.c"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror -o "$work/client" "$work/client.c" $(pkg-config --cflags --libs libybnet ybnet-platform)

# As root of a user namespace of its own; on a host that refuses one, as the host's root.
namespaces=(--mount --net)
if unshare --user --map-root-user true 2>/dev/null; then namespaces+=(--user --map-root-user); fi
unshare "${namespaces[@]}" "$0" "$work" --play

# The number of the netdev depends on what the kernel puts into a new namespace by itself.
same() { # NAME
    diff <("$here/docs_check.py" output "$source_dir" "$1" | sed 's/Linux ifindex [0-9]*/Linux ifindex N/') \
        <(sed 's/Linux ifindex [0-9]*/Linux ifindex N/' "$work/$1.out")
}
same owner
echo 'the owner prints what the tutorial shows'
same follower
echo 'the follower prints what the tutorial shows'
diff <(printf 'net_lib_ifc\nnet_lib_port\n') "$work/segments"
diff /dev/null "$work/segments.after"
echo 'the databases are there while a process runs, and gone with the last one'
