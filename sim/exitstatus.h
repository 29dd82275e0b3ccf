// SPDX-License-Identifier: MIT
#pragma once

namespace edidvm {
namespace sim {

// What the simulator's programs return: the worst of their files'.
enum ExitStatus : int { Passed = 0, ExpectationsNotMet = 1, BadInput = 2, PluginNotLoaded = 3 };

} // namespace sim
} // namespace edidvm
