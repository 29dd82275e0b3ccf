// SPDX-License-Identifier: MIT
#pragma once

// The one way scenario files are written, so that a file blessed or
// reformatted by edidsim diffs only where its content changed: two-space
// indentation, an object or list on one line where it fits in 120 columns,
// the top-level object and the list of steps one item a line, keys in the
// order the file gives them.

#include <nlohmann/json.hpp>

#include <functional>
#include <string>

namespace edidvm {
namespace sim {

// A scenario file's JSON with its keys in the file's order, read as the
// scenario reader reads its bytes. Throws ScenarioError ("FILE: parse error
// at line 5, column 5: ...").
nlohmann::ordered_json readScenarioDocument(const std::string& file);

// The canonical text of a scenario file, ending with a newline.
std::string canonicalScenarioText(const nlohmann::ordered_json& document);

// Replaces the file's content by way of a new file beside it, renamed over
// it, so a reader never sees half a file; a symbolic link's target is
// replaced, beside the target, and the link kept. check, when given, is called with
// the new file's path before the rename; what it throws leaves the file as
// it was. Throws ScenarioError.
void replaceScenarioFile(const std::string& file, const std::string& text,
                         const std::function<void(const std::string&)>& check = {});

} // namespace sim
} // namespace edidvm
