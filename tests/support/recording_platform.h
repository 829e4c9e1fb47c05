// SPDX-License-Identifier: Apache-2.0
//
// The test kit's recording stand-ins for the stack's libraries, linked into every
// test program.
#ifndef YBNET_TESTS_RECORDING_PLATFORM_H
#define YBNET_TESTS_RECORDING_PLATFORM_H

#include "testkit/recording_platform.h" // IWYU pragma: export

#endif
