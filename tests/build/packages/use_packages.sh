#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What somebody does who has only the packages: install them, build and run a program, look with ybnetctl, test
# with the kit, read the manual, build the kernel module, put a platform of his own in place of the reference one,
# purge it all.
# usage: use_packages.sh TEST_DIR    (throw_away_root.sh makes the root that this runs in)
set -euo pipefail
cd "$1"
# Images for containers leave manuals out.
dpkg=(dpkg --path-include='/usr/share/man/*' --path-include='/usr/share/doc/*')
names=()
for file in debs/*.deb; do names+=("$(dpkg-deb --field "$file" Package)"); done

step() { # WHAT COMMAND...: its output is of interest only if it fails
    local what=$1 status
    shift
    # Not "if COMMAND": in a condition, a function goes on after a command in it that failed.
    set +e
    (
        set -e
        "$@"
    ) >output 2>&1
    status=$?
    set -e
    if ((status)); then
        printf 'FAIL %s\n' "$what"
        cat output
        exit 1
    fi
    printf 'ok   %s\n' "$what"
}

nothing_is_amiss() {
    dpkg --audit
    dpkg --verify "${names[@]}"
    [[ ! -s output ]]
}

stranger_by_pkg_config() {
    # shellcheck disable=SC2046 # pkg-config prints words
    cc -std=c99 -Wall -Wextra -Wpedantic -Werror -o stranger stranger.c $(pkg-config --cflags --libs libybnet ybnet-platform)
}

stranger_by_cmake() {
    mkdir project
    cat >project/CMakeLists.txt <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(stranger C)
find_package(ybnet 0.1 REQUIRED COMPONENTS platform)
add_executable(stranger ../stranger.c)
target_link_libraries(stranger ybnet::ybnet ybnet::yb_log ybnet::yb_util ybnet::ybd)
CMAKE
    cmake -S project -B project/build && cmake --build project/build && project/build/stranger true
}

library_is_the_documented_one() {
    mkdir -p source/net_lib
    cp -r include source/
    cp libybnet.map source/net_lib/
    ./library_test.sh "$(readlink -f /usr/lib/*/libybnet.so.1)" source
}

tool_shows_what_the_program_keeps() {
    ./stranger ybnetctl --json port list | jq -e '[.ports[].name] == ["strange1"]'
    ./stranger ybnetctl --json status | jq -e '.ports.users_registered == 1'
    ybnetctl --json status | jq -e '.ports.present == false'
}

tool_completes_its_words() {
    bash -c '. /usr/share/bash-completion/bash_completion; _completion_loader ybnetctl; complete -p ybnetctl'
}

service_is_sound_and_off() {
    systemd-analyze verify /lib/systemd/system/ybnetctl-hold.service
    [[ $(systemctl is-enabled ybnetctl-hold.service) == disabled ]]
}

test_kit_runs_the_program_without_privileges() {
    setpriv --reuid=nobody --regid=nogroup --clear-groups ybnet-testkit-run "$PWD/stranger" true
}

python_uses_the_library() {
    cat >stranger.py <<'PYTHON'
import ybnet
assert ybnet.__file__ == "/usr/lib/python3/dist-packages/ybnet/__init__.py", ybnet.__file__
with ybnet.Library() as lib:
    lib.port_set(2001, ybnet.PortInfo(name="strange2", log_port=0x100, protocol=1))
    assert [port.name for port in lib.ports()] == ["strange2"]
PYTHON
    /usr/bin/python3 -W error stranger.py
}

manual_pages_are_found() {
    local page section count=0
    while IFS= read -r page; do
        page=${page##*/}
        page=${page%.gz}
        section=${page##*.}
        man -w "$section" "${page%.*}"
        count=$((count + 1))
    done < <(dpkg --listfiles "${names[@]}" | grep '^/usr/share/man/man.*/.')
    ((count > 0))
}

module_is_built() {
    local kernel module
    kernel=$(dpkg-query -W -f '${Depends}' linux-headers-cloud-amd64 | grep -oP 'linux-headers-\K\S+-cloud-amd64')
    # The package's own script builds for the running kernel only, where that is one of this machine's.
    dkms install ybnet-driver-sim/0.1.0 -k "$kernel"
    module=/lib/modules/$kernel/updates/dkms/yb_core_sim.ko
    [[ $(modinfo -F vermagic "$module") == "$kernel "* ]] && modinfo -F alias "$module" | grep -x rtnl-link-yb_netdev
}

# The same three names with other contents, as a switch's software stack has them.
stack_platform_package() {
    local libdir library
    libdir=$(dirname "$(readlink -f /usr/lib/*/libybnet.so.1)")
    mkdir -p "stack/DEBIAN" "stack$libdir"
    for library in libyb_log libyb_util libybd; do
        cc -shared -fPIC -Wall -Wextra -Werror -D"$library" -Wl,-soname,"$library.so.1" \
            -o "stack$libdir/$library.so.1" stack_platform.c
    done
    cat >stack/DEBIAN/control <<'CONTROL'
Package: stack-platform
Version: 7
Architecture: amd64
Maintainer: a stack <stack@example.org>
Provides: ybnet-platform-abi (= 1)
Conflicts: ybnet-platform-abi
Replaces: ybnet-platform-abi
Description: platform libraries of some switch's software stack
CONTROL
    sed -i "s/amd64/$(dpkg --print-architecture)/" stack/DEBIAN/control
    dpkg-deb --root-owner-group --build stack stack.deb
}

stack_platform_takes_over() {
    apt-get -q --yes --no-install-recommends install ./stack.deb
    [[ $(dpkg-query -W -f '${db:Status-Status}' ybnet-platform) != installed ]]
    [[ $(dpkg-query -W -f '${db:Status-Status}' libybnet1) == installed ]]
    ./stranger ybnetctl --json status | tee stack.log
    grep -x 'the stack logs: .*' stack.log
}

step 'the packages install' "${dpkg[@]}" --install debs/*.deb
step 'dpkg finds nothing amiss' nothing_is_amiss
step 'the library is the documented one' library_is_the_documented_one
step 'a program builds with pkg-config' stranger_by_pkg_config
step 'a program builds and runs with find_package' stranger_by_cmake
step 'ybnetctl shows what the program keeps' tool_shows_what_the_program_keeps
step 'ybnetctl completes its words' tool_completes_its_words
step 'the service of ybnetctl is sound, and off' service_is_sound_and_off
step 'the test kit runs the program without privileges' test_kit_runs_the_program_without_privileges
step 'a Python program uses the library' python_uses_the_library
step 'the manual pages are found' manual_pages_are_found
step 'DKMS builds the simulated driver' module_is_built
step 'a platform of the stack builds' stack_platform_package
step 'a platform of the stack takes the place of the reference one' stack_platform_takes_over
step 'the packages are purged' "${dpkg[@]}" --purge stack-platform "${names[@]}"
