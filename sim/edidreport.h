// SPDX-License-Identifier: MIT
#pragma once

// What `edidsim decode` prints of a decoded EDID: lines for a person, or one
// JSON object. A library's part, so that the EDID fuzzer drives them too.

#include "edid/edid.h"

#include <string>

namespace edidvm {
namespace sim {

// The header, range limits, preferred mode, warnings, notes and a table of
// every mode, each line ending in a newline.
std::string edidText(const std::string& file, const edid::Edid& edid);

// One line of JSON, without the newline. Every text is valid UTF-8 in it,
// whatever bytes the file name holds.
std::string edidJsonLine(const std::string& file, const edid::Edid& edid);

} // namespace sim
} // namespace edidvm
