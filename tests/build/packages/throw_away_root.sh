#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs use_packages.sh in a root that is this machine's with a layer of memory on top, and says what is left in that
# layer afterwards. Needs root, and namespaces of its own for mounts, network and processes: packages_test.sh.
# usage: throw_away_root.sh PACKAGES_DIR SOURCE_DIR
set -euo pipefail
packages=$1
source_dir=$2
layers=/mnt

# What dpkg and the tools it runs keep for themselves, whatever is installed.
kept='^/(var/lib/dpkg|var/log|var/cache|var/tmp|tmp|etc/ld\.so\.cache|var/lib/dkms/mok\.(key|pub)|usr/lib/modules/[^/]+/modules\..*)(/|$)'

mount --make-rprivate /
mount -t tmpfs ybnet_packages "$layers"
mkdir "$layers"/{upper,work,root}
mount -t overlay ybnet_packages -o "lowerdir=/,upperdir=$layers/upper,workdir=$layers/work" "$layers/root"
mount --rbind /dev "$layers/root/dev"
mount -t tmpfs ybnet_shm "$layers/root/dev/shm"
mount -t proc proc "$layers/root/proc"
mount -t sysfs sysfs "$layers/root/sys"
mount -t tmpfs ybnet_run "$layers/root/run"
mount -t tmpfs ybnet_tmp "$layers/root/tmp"

mkdir "$layers/root/tmp/test"
cp -r -- "$packages" "$layers/root/tmp/test/debs"
cp -r -- "$source_dir/tests/build/packages/." "$source_dir/tests/build/library_test.sh" \
    "$source_dir/include" "$source_dir/net_lib/libybnet.map" "$layers/root/tmp/test/"
chroot "$layers/root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
    /tmp/test/use_packages.sh /tmp/test

# A file that hides one of the machine's is no more welcome than a new one.
left=$(cd "$layers/upper" && find . -mindepth 1 -printf '%y %P\n' | while read -r type path; do
    [[ ! /$path =~ $kept ]] || continue
    if [[ $type == c ]]; then
        printf 'removed: /%s\n' "$path"
    elif [[ ! -e /$path && ! -L /$path ]]; then
        printf 'left: /%s\n' "$path"
    elif [[ $type == f ]] && ! cmp -s -- "$path" "/$path"; then
        printf 'changed: /%s\n' "$path"
    fi
done)
if [[ -n $left ]]; then
    printf 'FAIL purging leaves the machine as it was\n%s\n' "$left"
    exit 1
fi
echo 'ok   purging leaves the machine as it was'
