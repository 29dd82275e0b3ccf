// SPDX-License-Identifier: MIT
#pragma once

// A JUnit XML report of a run, one test case per scenario file, for CI
// servers that show test results.

#include <string>
#include <vector>

namespace edidvm {
namespace edidsim {

struct JunitCase
{
    enum class Outcome { Passed, Failed, Skipped, Error };

    std::string name; // the scenario file as given
    Outcome outcome = Outcome::Passed;
    std::string message; // failed, skipped or error: why, one line
    std::string text;    // failed or error: the detail, as the text trace shows it
};

// The report's XML; no times, so two runs of the same build diff clean.
std::string junitXml(const std::vector<JunitCase>& cases);

} // namespace edidsim
} // namespace edidvm
