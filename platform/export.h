// SPDX-License-Identifier: Apache-2.0
//
// Marks the definitions that leave the reference platform's libraries, whose
// symbols are hidden otherwise. Each library's .map file lists the same names.
#ifndef YBNET_PLATFORM_EXPORT_H
#define YBNET_PLATFORM_EXPORT_H

#define YB_PLATFORM_EXPORT __attribute__((visibility("default")))

#endif
