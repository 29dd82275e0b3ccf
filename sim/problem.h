// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace edidvm {
namespace sim {

// One problem of a refused scenario file, as a program reads it.
struct Problem
{
    std::string file; // as the file was named to the reader
    // A JSON pointer ("/steps/3/interface", "/" for the whole document);
    // empty when the problem has no place in it (unreadable, not JSON).
    std::string path;
    std::string message; // one line
};

} // namespace sim
} // namespace edidvm
