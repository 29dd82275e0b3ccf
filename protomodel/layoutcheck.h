// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

// Records with texts, lists or function objects are not standard-layout, so
// offsetof on them is only conditionally supported and g++ warns. Both of
// our compilers support it, and the offsets are contract: check them anyway.
#define EDIDVM_ASSERT_OFFSET(Type, field, offset)                                                                      \
    _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Winvalid-offsetof\"") static_assert(             \
        offsetof(Type, field) == (offset), #Type "::" #field " must sit at byte " #offset);                            \
    _Pragma("GCC diagnostic pop")

#define EDIDVM_ASSERT_SIZE(Type, size) static_assert(sizeof(Type) == (size), #Type " must be " #size " bytes")
