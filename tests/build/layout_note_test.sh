#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The library's layout note says what the two segments look like, byte by byte, and is still there when the library
# is stripped. The numbers stand here once more: another one is another segment format.
# usage: layout_note_test.sh LIBRARY
set -euo pipefail
library=$1
section=.note.ybnet.layout
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

check() { # WHAT EXPECTED ACTUAL
    if [[ $2 == "$3" ]]; then
        printf 'ok   %s\n' "$1"
    else
        printf 'FAIL %s\n' "$1"
        diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") | sed 's/^/     /' || true
        failures=$((failures + 1))
    fi
}

# The note as a reader without the project's headers sees it, one value a line.
decode() { # LIBRARY
    objcopy -O binary --only-section="$section" "$1" "$work/note" # nothing when there is no such section
    perl -e '
        my ($owner_size, $size, $type, $owner, $version, $count, $stride, $reserved) = unpack "V3 a8 V4", my $note = join "", <>;
        printf "owner %s (%d)\ntype %d\nsize %d of %d\nversion %d\n", $owner =~ s/\0/./gr, $owner_size, $type, $size, length($note) - 20, $version;
        printf "segments %d of %d bytes, reserved %d\n", $count, $stride, $reserved;
        my @fields = qw(size record_size record_count trailer_offset trailer_size lock_offset lock_size lock_format
            lock_state_offset marker_offset user_count_offset size_check_offset fields_fingerprint);
        for my $i (0 .. $count - 1) {
            my ($name, @values) = unpack "Z32 V" . @fields, substr $note, 36 + $i * $stride, $stride;
            printf "%s %s %s\n", $name, $fields[$_], $fields[$_] =~ /fingerprint/ ? sprintf "%08x", $values[$_] : $values[$_] for 0 .. $#fields;
        }' "$work/note"
}

expected='owner ybnet... (6)
type 76
size 184 of 184
version 1
segments 2 of 84 bytes, reserved 0
/net_lib_ifc size 475216
/net_lib_ifc record_size 116
/net_lib_ifc record_count 4096
/net_lib_ifc trailer_offset 475136
/net_lib_ifc trailer_size 80
/net_lib_ifc lock_offset 475136
/net_lib_ifc lock_size 64
/net_lib_ifc lock_format 1
/net_lib_ifc lock_state_offset 475192
/net_lib_ifc marker_offset 475200
/net_lib_ifc user_count_offset 475204
/net_lib_ifc size_check_offset 475208
/net_lib_ifc fields_fingerprint 164a1740
/net_lib_port size 5772784
/net_lib_port record_size 84
/net_lib_port record_count 65536
/net_lib_port trailer_offset 5772704
/net_lib_port trailer_size 80
/net_lib_port lock_offset 5772704
/net_lib_port lock_size 64
/net_lib_port lock_format 1
/net_lib_port lock_state_offset 5772760
/net_lib_port marker_offset 5772768
/net_lib_port user_count_offset 5772772
/net_lib_port size_check_offset 5772776
/net_lib_port fields_fingerprint a2d47f47'

check 'tells the layout of both segments' "$expected" "$(decode "$library")"

strip --strip-all -o "$work/stripped.so" "$library"
check 'tells it in a stripped library' "$expected" "$(decode "$work/stripped.so")"

check 'is one note to a reader of notes' 'ybnet 0x000000b8' \
    "$(readelf -n "$work/stripped.so" | awk '$1 == "ybnet" {print $1, $2}')"
# Its flags: A, loaded; no W, never written (o is "retain").
check 'is loaded read-only, four-byte aligned' 'NOTE A 4' \
    "$(readelf -SW "$work/stripped.so" | sed -n "s/.*$section *//p" | awk '{sub("o", "", $6); print $1, $6, $NF}')"
check 'lies in a segment of notes' yes \
    "$(readelf -lW "$work/stripped.so" | grep -qP '^\s+\d+\s+(?=.*\.note\.ybnet\.layout)(\.note\S+\s*)+$' && echo yes)"

printf '%d failed\n' "$failures"
((failures == 0))
