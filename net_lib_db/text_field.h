// SPDX-License-Identifier: Apache-2.0
//
// Names that come from outside: fixed char fields of parameter blocks and
// records, which may lack their NUL, and callers' strings. text_field is a
// NUL-terminated copy that never reads past the field; field_key is what a
// name is looked for by, nothing copied.
#ifndef YBNET_NET_LIB_DB_TEXT_FIELD_H
#define YBNET_NET_LIB_DB_TEXT_FIELD_H

#include <cstddef>
#include <cstring>

template <size_t size> struct text_field { char text[size + 1]; };

template <size_t size> text_field<size> text_of_field(const char (&field)[size]) {
    text_field<size> copy = {};
    memcpy(copy.text, field, size);
    return copy;
}

// Names are a few characters long, and the C library's functions have no loop for those: one in line would end with a
// branch that is predicted by luck.
template <size_t size> struct field_key {
    const char *text;
    size_t length; // of text in the field; size + 1 when no field can hold it

    bool equals(const char (&field)[size]) const {
        if (length > size)
            return false;
        return memcmp(field, text, length) == 0 && (length == size || field[length] == '\0');
    }
};

template <size_t size> field_key<size> key_of_field(const char (&field)[size]) {
    return {field, strnlen(field, size)};
}

template <size_t size> field_key<size> key_of_string(const char *string) {
    return {string, strnlen(string, size + 1)};
}

#endif
