/* SPDX-License-Identifier: Apache-2.0 */
/* Proof of fixed layouts at compile time, in C99 as in C++. */
#ifndef YBNET_YB_STATIC_ASSERT_H
#define YBNET_YB_STATIC_ASSERT_H

#include <stddef.h>

#if defined(__cplusplus)
#define YB_STATIC_ASSERT(condition, name) static_assert(condition, #name)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define YB_STATIC_ASSERT(condition, name) _Static_assert(condition, #name)
#else
#define YB_STATIC_ASSERT(condition, name) typedef char yb_static_assert_##name[(condition) ? 1 : -1]
#endif

/* The field lies at this offset; fields of fields are named with YB_ASSERT_OFFSET_OF. */
#define YB_ASSERT_OFFSET(type, field, offset)                                                                \
    YB_STATIC_ASSERT(offsetof(type, field) == (offset), type##_##field##_is_at_##offset)
#define YB_ASSERT_OFFSET_OF(type, path, name, offset)                                                        \
    YB_STATIC_ASSERT(offsetof(type, path) == (offset), type##_##name##_is_at_##offset)
#define YB_ASSERT_SIZE(type, size) YB_STATIC_ASSERT(sizeof(type) == (size), type##_has_##size##_bytes)

#endif
