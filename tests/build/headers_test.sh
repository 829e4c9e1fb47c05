#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Every public header compiles alone, as C99 and as C++17, with both compilers and all warnings.
# usage: headers_test.sh INCLUDE_DIR
set -euo pipefail
include_dir=$1
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wundef -Werror -fsyntax-only)
failures=0
count=0

compile() { # HEADER COMPILER LANGUAGE STANDARD
    count=$((count + 1))
    if ! printf '#include "%s"\n#include "%s"\n' "$1" "$1" |
        "$2" -x "$3" -std="$4" "${warnings[@]}" -I "$include_dir" -; then
        printf 'FAIL %s with %s as %s\n' "$1" "$2" "$4"
        failures=$((failures + 1))
    fi
}

while IFS= read -r header; do
    for compiler in gcc clang; do compile "$header" "$compiler" c c99; done
    for compiler in g++ clang++; do compile "$header" "$compiler" c++ c++17; done
done < <(cd "$include_dir" && find . -name '*.h' -printf '%P\n' | LC_ALL=C sort)

printf '%d compilations, %d failed\n' "$count" "$failures"
((failures == 0 && count >= 40))
