#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The installed library, as a stranger's program finds and uses it: through pkg-config from C, and through
# find_package(ybnet) from CMake. Both programs are built against a DESTDIR tree and run. And the tool, installed under
# a prefix that nobody named before, with the libraries and the service of that prefix.
# usage: install_test.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

DESTDIR=$work/root cmake --install "$build" --prefix /usr >/dev/null
libdir=$(dirname "$(dirname "$(find "$work/root" -name libybnet.pc)")")

cat >"$work/client.c" <<'C'
#include <stdio.h>
#include <ybnet/net_lib.h>
int main(void) {
    yb_net_interface_params_t params = {.type = YB_L2_INTERFACE_TYPE_VLAN, .ns_name = "blue"};
    params.by_type.vlan.vlan_id = 10;
    printf("%u %u\n", yb_net_interface_params_get(1, NULL), (unsigned)sizeof(params));
    return 0;
}
C
export PKG_CONFIG_LIBDIR=$libdir/pkgconfig
# shellcheck disable=SC2046 # pkg-config prints words
cc -std=c99 -Wall -Wextra -Werror -o "$work/by_pkg_config" "$work/client.c" \
    $(pkg-config --cflags --libs libybnet ybnet-platform)
printf 'pkg-config: '
LD_LIBRARY_PATH=$libdir "$work/by_pkg_config" | tee "$work/output"
[[ $(<"$work/output") == '12 100' ]]

mkdir "$work/project"
cat >"$work/project/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(client C)
find_package(ybnet 0.1 REQUIRED COMPONENTS platform)
add_executable(client ../client.c)
target_link_libraries(client ybnet::ybnet ybnet::yb_log ybnet::yb_util ybnet::ybd)
CMAKE
cmake -S "$work/project" -B "$work/project/build" -DCMAKE_PREFIX_PATH="$work/root/usr" >/dev/null
cmake --build "$work/project/build" >/dev/null
printf 'find_package: '
LD_LIBRARY_PATH=$libdir "$work/project/build/client" | tee "$work/output"
[[ $(<"$work/output") == '12 100' ]]

[[ $(readlink "$libdir/libybnet.so") == libybnet.so.1 && -f $libdir/libybnet.so.1 ]]
echo 'soname links: as they should be'

exec_start() { find "$1" -name ybnetctl-hold.service -exec grep '^ExecStart=' {} +; }
[[ $(exec_start "$work/root") == 'ExecStart=/usr/bin/ybnetctl hold' ]]
echo 'service: runs the tool of its prefix'

if grep -q '^CMAKE_SKIP_INSTALL_RPATH:.*=ON' "$build/CMakeCache.txt"; then
    echo 'another prefix: not for this build, whose libraries are where the loader looks'
    exit
fi
cmake --install "$build" --prefix "$work/elsewhere" >/dev/null
[[ $(exec_start "$work/elsewhere") == "ExecStart=$work/elsewhere/bin/ybnetctl hold" ]]
printf 'another prefix: '
"$work/elsewhere/bin/ybnetctl" --version
loaded=$(ldd "$work/elsewhere/bin/ybnetctl" | sed -n 's/^\s*libyb[^ ]* => \(.*\) (.*/\1/p')
[[ $(wc -l <<<"$loaded") -ge 2 ]] && ! grep -v "^$work/elsewhere/" <<<"$loaded"
