// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace edidvm {
namespace bench {

// Heap allocations made so far by the whole process: the executable
// replaces the global operator new, so those from shared libraries count.
std::uint64_t allocationCount();

} // namespace bench
} // namespace edidvm
