#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The installed test kit, as a stranger uses it: the installed example is built against a DESTDIR tree, through pkg-config and
# through find_package(ybnet COMPONENTS testkit), and its tests pass there.
# usage: testkit_install_test.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

DESTDIR=$work/root cmake --install "$build" --prefix /usr >/dev/null
example=$(dirname "$(find "$work/root" -name linkwatch_test.c)")
libdir=$(dirname "$(dirname "$(find "$work/root" -name libybnet-testkit.pc)")")
export LD_LIBRARY_PATH=$libdir PKG_CONFIG_LIBDIR=$libdir/pkgconfig
PATH=$work/root/usr/bin:$PATH

warnings=(-std=gnu11 -Wall -Wextra -Werror)
read -ra flags < <(pkg-config --cflags --libs libybnet)
cc "${warnings[@]}" -o "$work/linkwatch" "$example/linkwatch.c" "${flags[@]}" -lyb_log -lyb_util -lybd
read -ra flags < <(pkg-config --cflags --libs libybnet-testkit libybnet)
cc "${warnings[@]}" -o "$work/linkwatch_test" "$example/linkwatch_test.c" "${flags[@]}"
printf 'pkg-config: '
"$work/linkwatch_test" "$work/linkwatch" 2>/dev/null

# The README's example.
# shellcheck disable=SC2016 # a pattern
sed -n '/^```c$/,/^```$/p' "$example/../README.md" | sed '/^```/d' >"$work/readme.c"
cc "${warnings[@]}" -o "$work/readme" "$work/readme.c" "${flags[@]}"
"$work/readme"
echo 'README: its example passes'

cmake -S "$example" -B "$work/project" -DCMAKE_PREFIX_PATH="$work/root/usr" >/dev/null
cmake --build "$work/project" >/dev/null
printf 'find_package: '
(cd "$work/project" && ctest --output-on-failure | grep 'tests passed')

# Behind another library with the platform's functions, the kit says that it is not in front.
cat >"$work/late.c" <<'C'
#include <errno.h>
#include <stdio.h>
#include <ybnet/testkit/testkit.h>
int main(void) {
    const int result = ybtk_begin();
    printf("%d %s\n", result, errno == EBUSY ? "EBUSY" : "another");
    return (int)yb_log(1, "late", "%s", "") > 0;
}
C
read -ra flags < <(pkg-config --cflags --libs libybnet-testkit)
cc "${warnings[@]}" -o "$work/late" "$work/late.c" "-L$libdir" -lyb_log "${flags[@]}"
printf 'linked too late: '
"$work/late" 2>/dev/null | tee "$work/output"
[[ $(<"$work/output") == '-1 EBUSY' ]]

# The headers, alone, in C and in C++.
headers=$work/root/usr/include/ybnet/testkit
for header in "$headers"/*.h; do
    for language in 'gcc c c99' 'clang c c99' 'g++ c++ c++17' 'clang++ c++ c++17'; do
        read -r compiler name standard <<<"$language"
        "$compiler" -x "$name" "-std=$standard" -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only \
            -I "$work/root/usr/include" "$header"
    done
done
echo 'headers: C99 and C++17'
