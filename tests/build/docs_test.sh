#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The documents are in order: manual pages that mandoc and man accept, for every exported name; a reference in which
# nothing is missing; pictures that are what their texts say; pages whose links, code and messages hold.
# usage: docs_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source_dir=$1
build=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PYTHONDONTWRITEBYTECODE=1
failures=0

step() { # WHAT COMMAND...
    local what=$1 output
    shift
    if output=$("$@" 2>&1); then
        printf 'ok   %s\n' "$what"
    else
        printf 'FAIL %s\n' "$what"
        printf '     %s\n' "${output//$'\n'/$'\n'     }"
        failures=$((failures + 1))
    fi
}

# ---- Manual pages ---------------------------------------------------------------

man_dir=$build/docs/man
mapfile -t links < <(grep -l '^\.so ' "$man_dir"/man3/*.3)
mapfile -t pages < <(grep -L '^\.so ' "$man_dir"/man3/*.3 "$man_dir"/man7/*.7)

mandoc_accepts_every_page() { ((${#pages[@]} >= 20)) && mandoc -T lint -W warning "${pages[@]}"; }

man_accepts_every_page() {
    local page warnings
    for page in "${pages[@]}"; do
        # The name of one function is longer than a line of 80 columns can be broken for.
        warnings=$(MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null |
            grep -v "can't break line" || true)
        [[ -z $warnings ]] || { printf '%s: %s\n' "$page" "$warnings"; return 1; }
    done
}

every_link_page_leads_to_a_page() {
    local link target
    ((${#links[@]} >= 50)) || return 1
    for link in "${links[@]}"; do
        target=$man_dir/$(sed -n 's/^\.so //p' "$link")
        if ! grep -qs "^\.Nm $(basename "$link" .3)\( ,\)\?$" "$target"; then
            printf '%s: %s does not name it\n' "$link" "$target"
            return 1
        fi
    done
}

every_exported_name_has_a_page() {
    local name missing=0
    while read -r name; do
        [[ -f $man_dir/man3/$name.3 ]] || { printf 'no page for %s\n' "$name"; missing=1; }
    done < <(grep -oP '^\s+\K\w+(?=;)' "$source_dir/net_lib/libybnet.map")
    return "$missing"
}

# A prototype with all its parameters, a table of statuses, a sentence cut out for RETURN VALUES.
pages_say_what_the_headers_say() {
    local text
    text=$(MANWIDTH=80 mandoc -T ascii "$man_dir/man3/yb_net_interface_set.3" | sed 's/.\x08//g' | tr -s ' \n' ' ')
    local expected
    for expected in 'yb_net_interface_set_full(yb_access_cmd_t cmd, uint32_t sys_ifindex, yb_net_interface_params_t *params, uint16_t rif, uint16_t vrid);' \
        'YB_ACCESS_CMD_EDIT give a PORT_VLAN interface another VLAN id' \
        'YB_STATUS_CMD_UNSUPPORTED another command, unlogged'; do
        [[ $text == *"$expected"* ]] || { printf 'missing: %s\n' "$expected"; return 1; }
    done
}

# A table of results that was taken for something else would leave this behind.
no_list_of_results_is_empty() { ! grep -lPzo 'Returns[^.\n]*:\n\.(?!Pp|Bl)' "${pages[@]}"; }

step 'mandoc accepts every manual page' mandoc_accepts_every_page
step 'man accepts every manual page' man_accepts_every_page
step 'every link page leads to a page that names it' every_link_page_leads_to_a_page
step 'every exported name has a manual page' every_exported_name_has_a_page
step 'no list of results is empty' no_list_of_results_is_empty
step 'manual pages say what the headers say' pages_say_what_the_headers_say

# ---- Reference ------------------------------------------------------------------

reference() { # INCLUDE_DIR: of these headers, into a directory of this test
    sed "s|$source_dir/include|$1|g" "$build/docs/Doxyfile" >"$work/Doxyfile"
    printf 'OUTPUT_DIRECTORY = %s\n' "$work/reference" >>"$work/Doxyfile"
    mkdir -p "$work/reference"
    doxygen "$work/Doxyfile"
}

every_declaration_is_documented() { reference "$source_dir/include" && [[ -f $work/reference/html/net__lib_8h.html ]]; }

a_field_without_a_comment_is_noticed() {
    mkdir -p "$work/copy"
    cp -R "$source_dir/include" "$work/copy/include"
    sed -i 's|/\* the stack.s number, the key \*/||' "$work/copy/include/ybnet/yb_net_interface.h"
    ! reference "$work/copy/include" >"$work/doxygen.log" 2>&1 && grep -q 'Member sys_ifindex' "$work/doxygen.log"
}

step 'every public declaration is documented (Doxygen)' every_declaration_is_documented
step 'a field without a comment is noticed' a_field_without_a_comment_is_noticed

# ---- Pictures -------------------------------------------------------------------

pictures_are_what_their_texts_say() {
    mkdir "$work/pictures"
    OUTPUT_DIR=$work/pictures "$source_dir/docs/pictures/render" "$source_dir"/docs/pictures/*.dot
    "$source_dir/bench/scale/plot" "$source_dir/docs/scale.json" "$work/pictures"
    diff -r --exclude='*.dot' --exclude=render "$source_dir/docs/pictures" "$work/pictures"
}

step 'pictures are what their texts say' pictures_are_what_their_texts_say

the_speed_page_shows_its_numbers() {
    "$source_dir/bench/report" check "$source_dir" || return 1
    mkdir -p "$work/other/docs"
    cp "$source_dir/docs/speed.md" "$work/other/docs/"
    sed '0,/"ns": /s//"ns": 1/' "$source_dir/docs/speed.json" >"$work/other/docs/speed.json"
    ! "$source_dir/bench/report" check "$work/other" 2>"$work/check.log" && grep -q 'does not show' "$work/check.log"
}

step 'the page on speed shows its numbers, and no others' the_speed_page_shows_its_numbers

# ---- Pages for people -----------------------------------------------------------

installed_pages_lead_somewhere() {
    DESTDIR=$work/root cmake --install "$build" --prefix /usr >/dev/null
    "$here/docs_check.py" links "$work/root/usr/share/doc/ybnet"
}

step 'links between the pages lead somewhere' "$here/docs_check.py" links "$source_dir"
step 'links between the installed pages too' installed_pages_lead_somewhere
step 'code in the pages is the code in the files' "$here/docs_check.py" blocks "$source_dir"
step 'messages in the pages are ones that the library logs' "$here/docs_check.py" messages "$source_dir"

printf '%d failed\n' "$failures"
((failures == 0))
