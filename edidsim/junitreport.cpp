// SPDX-License-Identifier: MIT
#include "edidsim/junitreport.h"

#include <cstdio>

namespace edidvm {
namespace edidsim {

namespace {
// XML 1.0 holds no other control characters than tab and the line ends:
// those from a scenario are written as the trace escapes them.
std::string escaped(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c == '"')
            out += "&quot;";
        else if (byte < 0x20 && c != '\t' && c != '\n' && c != '\r') {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", byte);
            out += code;
        } else
            out += c;
    }
    return out;
}
} // namespace

std::string junitXml(const std::vector<JunitCase>& cases)
{
    using Outcome = JunitCase::Outcome;
    int counts[4] = {0, 0, 0, 0};
    for (const JunitCase& item : cases)
        ++counts[static_cast<int>(item.outcome)];
    const std::string totals = "tests=\"" + std::to_string(cases.size()) + "\" failures=\"" +
                               std::to_string(counts[static_cast<int>(Outcome::Failed)]) + "\" errors=\"" +
                               std::to_string(counts[static_cast<int>(Outcome::Error)]) + "\" skipped=\"" +
                               std::to_string(counts[static_cast<int>(Outcome::Skipped)]) + "\"";
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites " + totals +
                      ">\n  <testsuite name=\"edidsim\" " + totals + ">\n";
    for (const JunitCase& item : cases) {
        xml += "    <testcase classname=\"edidsim\" name=\"" + escaped(item.name) + "\"";
        const char* tag = item.outcome == Outcome::Failed    ? "failure"
                          : item.outcome == Outcome::Error   ? "error"
                          : item.outcome == Outcome::Skipped ? "skipped"
                                                             : nullptr;
        if (tag == nullptr) {
            xml += "/>\n";
            continue;
        }
        xml += ">\n      <" + std::string(tag) + " message=\"" + escaped(item.message) + "\"";
        xml += item.text.empty() ? "/>\n" : ">" + escaped(item.text) + "</" + tag + ">\n";
        xml += "    </testcase>\n";
    }
    return xml + "  </testsuite>\n</testsuites>\n";
}

} // namespace edidsim
} // namespace edidvm
