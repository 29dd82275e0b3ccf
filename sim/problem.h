// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace edidvm {
namespace sim {

// One problem of a refused scenario file, as a program reads it.
struct Problem
{
    std::string file; // as the file was named to the reader
    // A JSON pointer ("/steps/3/interface", "" for the whole document, which
    // the text shows as "/"); none when the problem has no place in it
    // (unreadable, not JSON).
    std::optional<std::string> path;
    std::string message; // one line
};

} // namespace sim
} // namespace edidvm
