// SPDX-License-Identifier: Apache-2.0
//
// Names that come from outside: fixed char fields of parameter blocks and
// records, which may lack their NUL, and callers' strings. text_field is a
// NUL-terminated copy that never reads past the field.
#ifndef YBNET_NET_LIB_DB_TEXT_FIELD_H
#define YBNET_NET_LIB_DB_TEXT_FIELD_H

#include <cstddef>
#include <cstring>

template <size_t size> struct text_field {
    char text[size + 1];
    bool too_long; // a caller's string that no field can hold

    bool equals(const char (&field)[size]) const {
        return !too_long && strncmp(text, field, size) == 0;
    }
};

template <size_t size> text_field<size> text_of_field(const char (&field)[size]) {
    text_field<size> copy = {};
    memcpy(copy.text, field, size);
    return copy;
}

template <size_t size> text_field<size> text_of_string(const char *string) {
    text_field<size> copy = {};
    const size_t length = strnlen(string, size);
    memcpy(copy.text, string, length);
    copy.too_long = length == size && string[length] != '\0';
    return copy;
}

#endif
