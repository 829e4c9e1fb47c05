#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The test kit's example passes for an ordinary user, without any capability and without new namespaces, and neither
# it nor the daemon that it tests asks the kernel for anything that the kit stands in for.
# usage: testkit_unprivileged_test.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A copy, because others may not be allowed into the build directory.
mkdir -p "$work/lib" "$work/libexec" "$work/traces"
cp -a "$build"/lib/*.so* "$work/lib"
cp -a "$build/libexec/ybnet-testkit" "$build/libexec/ybnet-testkit-run" "$work/libexec"
cp "$build/bin/linkwatch" "$build/bin/linkwatch_test" "$work"
chmod -R a+rX "$work"
chmod 777 "$work/traces"
cd "$work"

as_nobody=()
if ((EUID == 0)); then
    as_nobody=(setpriv --reuid=65534 --regid=65534 --clear-groups --no-new-privs --bounding-set=-all --inh-caps=-all)
fi
segments() { find /dev/shm -maxdepth 1 -name 'net_lib_*' -printf '%p %i %T@\n' 2>/dev/null | sort; }
before=$(segments)
# shellcheck disable=SC2016 # for the inner shell
env "LD_LIBRARY_PATH=$work/lib" "${as_nobody[@]}" bash -c '
    [[ $(id -u) != 0 && $(grep CapEff /proc/self/status) =~ 0000000000000000$ ]] || { echo "not an ordinary user"; exit 1; }
    exec strace -ff -o traces/of -e trace=socket,unshare,clone,clone3,setns,mount,openat \
        ./linkwatch_test ./linkwatch libexec/ybnet-testkit-run' 2>/dev/null
[[ $(segments) == "$before" ]] || { echo 'a segment of the host was touched'; exit 1; }

cat traces/of.* >trace
grep -q 'AF_UNIX' trace || { echo 'the trace shows none of the kit'\''s sockets'; exit 1; }
if grep -E 'AF_NETLINK|unshare\(|setns\(|mount\(|CLONE_NEW|"/dev/shm/net_lib|"/proc/qrn_yb|"/dev/yb_core' trace; then
    echo 'the kernel was asked'
    exit 1
fi
left=$(find /dev/shm /tmp -maxdepth 1 -name 'ybnet-testkit-*' -user 65534 2>/dev/null || true)
[[ -z $left ]] || { echo "left behind: $left"; exit 1; }
echo "ordinary user: uid ${as_nobody:+65534}, no netlink socket, no namespace, no segment of the host"
