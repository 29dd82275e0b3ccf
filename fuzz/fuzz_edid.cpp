// SPDX-License-Identifier: MIT
// libFuzzer target: the input is an EDID file's bytes. The decoder must give
// modes that hold together or refuse with an EdidError of one line naming
// the block and byte; anything else (another exception, a sanitizer report,
// a broken timing) is a fault. What it decodes goes through edidsim
// decode's text and JSON output too, which must be valid UTF-8 and parse.
//
// Random bytes rarely sum to 0, so each input is decoded a second time with
// every whole block's checksum set right: that copy reaches the modes.

#include "edid/edid.h"
#include "sim/edidreport.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <regex>
#include <string>
#include <vector>

using namespace edidvm::edid;

namespace {

[[noreturn]] void fail(const char* what, const Mode& timing)
{
    std::fprintf(stderr, "edidvm-fuzz-edid: %s (block %d, timing %d: %s)\n", what, timing.block, timing.index,
                 describe(timing).c_str());
    std::abort();
}

[[noreturn]] void failOutput(const char* what, const std::string& output)
{
    std::fprintf(stderr, "edidvm-fuzz-edid: %s: %s\n", what, output.c_str());
    std::abort();
}

bool validUtf8(const std::string& text)
{
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const std::size_t length = byte < 0x80         ? 1
                                   : (byte >> 5) == 6  ? 2
                                   : (byte >> 4) == 14 ? 3
                                   : (byte >> 3) == 30 ? 4
                                                       : 0;
        if (length == 0 || i + length > text.size())
            return false;
        for (std::size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80)
                return false;
        }
        i += length;
    }
    return true;
}

// What edidsim decode prints: the text as it is, the JSON parsed back.
void report(const Edid& edid)
{
    const std::string text = edidvm::sim::edidText("fuzz.edid", edid);
    if (!validUtf8(text))
        failOutput("text output that is no UTF-8", text);
    const std::string json = edidvm::sim::edidJsonLine("fuzz.edid", edid);
    if (!validUtf8(json) || json.find('\n') != std::string::npos)
        failOutput("JSON output that is no UTF-8 line", json);
    const nlohmann::json parsed = nlohmann::json::parse(json, nullptr, false);
    if (parsed.is_discarded() || parsed.at("modes").size() != edid.modes.size())
        failOutput("JSON output that does not parse back", json);
}

void check(const std::vector<std::uint8_t>& bytes, Checks checks = Checks::Strict)
{
    Edid edid;
    try {
        edid = parseEdid(bytes, "fuzz.edid", checks);
    } catch (const EdidError& error) {
        // One line naming the block and the byte.
        static const std::regex named(R"(^fuzz\.edid: block \d+, byte \d+: [^\n]+$)");
        if (!std::regex_match(error.what(), named)) {
            std::fprintf(stderr, "edidvm-fuzz-edid: an error that names no block and byte: %s\n", error.what());
            std::abort();
        }
        return;
    }
    if (checks == Checks::Strict && !edid.warnings.empty())
        failOutput("warnings when strict", edid.warnings.front());
    const int blocks = static_cast<int>(bytes.size() / 128);
    bool noActiveArea = false;
    for (const std::string& warning : edid.warnings)
        noActiveArea = noActiveArea || warning.find("no active area") != std::string::npos;
    for (std::size_t i = 0; i < edid.modes.size(); ++i) {
        const Mode& t = edid.modes[i];
        if (t.index != static_cast<int>(i))
            fail("index out of order", t);
        if (t.block < 0 || t.block >= blocks)
            fail("block outside the file", t);
        if (t.preferred && t.kind != Kind::DisplayId && (t.kind != Kind::Detailed || t.block != 0))
            fail("preferred is neither the base block's first detailed timing nor DisplayID's", t);
        if (t.pixelClockKHz == 0 || t.width < 0 || t.height < 0)
            fail("empty timing", t);
        // Only a detailed timing may have no active area, and never silently.
        if ((t.width == 0 || t.height == 0) && (t.kind != Kind::Detailed || !noActiveArea))
            fail("no active area, and no warning", t);
        if (!std::isfinite(t.refreshHz) || t.refreshHz <= 0.0)
            fail("refresh rate not a positive number", t);
    }
    report(edid);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::vector<std::uint8_t> bytes(data, data + size);
    check(bytes);
    bool changed = false;
    for (std::size_t block = 0; block + 128 <= bytes.size(); block += 128) {
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(block);
        const auto sum = static_cast<std::uint8_t>(-std::accumulate(first, first + 127, 0u));
        changed |= first[127] != sum;
        first[127] = sum;
    }
    if (changed)
        check(bytes);
    // As edidsim decode reads it: damage only warned, and the input as a hex dump.
    check(std::vector<std::uint8_t>(data, data + size), Checks::Lenient);
    check(bytes, Checks::Lenient);
    try {
        check(parseHexDump(std::string(data, data + size), "fuzz.txt"), Checks::Lenient);
    } catch (const EdidError&) {
    }
    return 0;
}
