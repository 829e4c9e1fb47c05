#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The Debian packages: built from a copy of the sources, judged by lintian, then installed, used and purged in a
# throw-away root that has this machine's files underneath and no network. packages/ has what runs in there.
# usage: packages_test.sh SOURCE_DIR
set -euo pipefail
source_dir=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# What is or could be committed; a source tree without git has nothing else in it but build directories.
copy_sources() { # TO
    mkdir -p "$1"
    cd "$source_dir"
    if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
        git ls-files -coz --exclude-standard
    else
        find . \( -name 'build' -prune \) -o -name 'build-*' -prune -o \( -type f -o -type l \) -print0
    fi | perl -0 -lne 'print if -e or -l' | tar --create --null --files-from - | tar --extract --directory "$1"
}

build_packages() {
    cd "$work/ybnet"
    DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)" dpkg-buildpackage --unsigned-source --unsigned-changes
}

(copy_sources "$work/ybnet")
if ! (build_packages) >"$work/log" 2>&1; then
    tail -n 60 "$work/log"
    echo 'FAIL the packages do not build'
    exit 1
fi
packages=("$work"/*_*.deb)
printf 'ok   builds %d packages in %d s\n' "${#packages[@]}" "$SECONDS"

lintian --allow-root --fail-on error,warning "$work"/*.changes
echo 'ok   lintian has no errors or warnings'

mkdir "$work/debs"
mv -- "$work"/*_*.deb "$work/debs"
rm -f -- "$work"/debs/*-dbgsym_*.deb
unshare --mount --net --ipc --pid --fork --kill-child "$source_dir/tests/build/packages/throw_away_root.sh" \
    "$work/debs" "$source_dir"
