// SPDX-License-Identifier: MIT
#include "edid/edid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using namespace edidvm::edid;

namespace {

// A block whose checksum edid-decode finds wrong: the byte and the one due.
struct ChecksumFault
{
    int block;
    std::string found, due;
};
struct ReferenceAxis
{
    int front, sync, back, border;
    char polarity; // 'P', 'N', or ' ' when edid-decode prints none
};
// A mode edid-decode lists, with the label it gives the source.
struct ReferenceMode
{
    int block;
    std::string label;
    int width, height;
    bool interlaced;
    double refreshHz, pixelClockMHz;
    bool preferred, reducedBlanking;
    bool alternative; // another reading of the mode before it: one mode, either satisfies
    ReferenceAxis h, v;
};
struct ReferenceCurve
{
    int startKHz = 0;
    double c = 0, m = 0, k = 0, j = 0;
};
struct ReferenceRange
{
    int minV = 0, maxV = 0, minH = 0, maxH = 0, maxClock = 0;
    std::string formula;
    std::optional<ReferenceCurve> curve;
};
struct ReferenceFile
{
    std::string path;
    std::vector<ChecksumFault> checksums;
    std::vector<ReferenceMode> modes;
    std::string name, serial;
    std::vector<std::string> strings;
    ReferenceRange range;
};

// Made at build time by running edid-decode on each file.
const std::vector<ReferenceFile> kReference = {
#include "edid_decode_reference.inc"
};
// Where edid-decode contradicts the standard and we follow the standard: the
// ids of README's table of accepted differences.
const std::vector<std::string> kAccepted = {EDID_ACCEPTED_DIFFERENCES};

// The label edid-decode gives a mode: DisplayID's and VTB-EXT's detailed
// timings are "DTD", formula timings "CVT", codes without our prefix.
std::string labelOf(const Mode& mode)
{
    std::string label = mode.source;
    for (const char* prefix : {"DisplayID ", "VTB-EXT "}) {
        if (label.rfind(prefix, 0) == 0)
            label.erase(0, std::strlen(prefix));
    }
    if (label.rfind("type ", 0) == 0)
        return label == "type III" || label == "type V" || label == "type IX" ? "CVT" : "DTD";
    if (mode.source.rfind("VTB-EXT DTD", 0) == 0)
        return "DTD";
    return label;
}

// An interlaced detailed timing's field holds its active lines and its
// blanking, borders included, as a progressive frame does; edid-decode
// takes twice the vertical border off the field.
double standardRefresh(const ReferenceMode& want)
{
    const double hTotal = want.width + want.h.front + want.h.sync + want.h.back + 2 * want.h.border;
    const double field = want.height / 2 + want.v.front + want.v.sync + want.v.back + 2 * want.v.border;
    return want.pixelClockMHz * 1e6 / (hTotal * (field + 0.5));
}

bool accepted(const std::string& id)
{
    return std::find(kAccepted.begin(), kAccepted.end(), id) != kAccepted.end();
}

// Same mode, field for field; sets *rule when it takes an accepted difference.
bool same(const Mode& got, const ReferenceMode& want, std::string* rule = nullptr)
{
    const char hPolarity = got.hSyncPositive ? 'P' : 'N';
    char vPolarity = got.sync == Sync::DigitalComposite ? ' ' : got.vSyncPositive ? 'P' : 'N';
    std::string taken;
    if (got.source == "DisplayID type II" && vPolarity != want.v.polarity && accepted("displayid-type2-vsync")) {
        vPolarity = want.v.polarity;
        taken = "displayid-type2-vsync";
    }
    const bool fields = got.block == want.block && labelOf(got) == want.label && got.width == want.width &&
                        got.height == want.height && got.interlaced == want.interlaced &&
                        std::abs(got.pixelClockKHz - want.pixelClockMHz * 1000.0) <= 1.0 &&
                        got.preferred == want.preferred && got.reducedBlanking == want.reducedBlanking &&
                        std::make_tuple(got.hFrontPorch, got.hSync, got.hBackPorch, got.hBorder, hPolarity) ==
                            std::make_tuple(want.h.front, want.h.sync, want.h.back, want.h.border, want.h.polarity) &&
                        std::make_tuple(got.vFrontPorch, got.vSync, got.vBackPorch, got.vBorder, vPolarity) ==
                            std::make_tuple(want.v.front, want.v.sync, want.v.back, want.v.border, want.v.polarity);
    if (!fields)
        return false;
    if (std::abs(got.refreshHz - want.refreshHz) <= 0.01) {
        if (rule != nullptr && !taken.empty())
            *rule = taken;
        return true;
    }
    const bool borderRule = want.interlaced && want.v.border != 0 && got.kind == Kind::Detailed;
    if (borderRule && accepted("interlaced-border") && std::abs(got.refreshHz - standardRefresh(want)) <= 0.01) {
        if (rule != nullptr)
            *rule = "interlaced-border";
        return true;
    }
    return false;
}

std::string shown(const ReferenceMode& want)
{
    return "block " + std::to_string(want.block) + " " + want.label + " " + std::to_string(want.width) + "x" +
           std::to_string(want.height) + (want.interlaced ? "i" : "") + "@" + std::to_string(want.refreshHz) + " " +
           std::to_string(want.pixelClockMHz) + " MHz";
}

using Bytes = std::vector<std::uint8_t>;

// A real two-block EDID (base and CTA-861) changed by the cases below: bytes
// set, then a block's checksum fixed if asked, then the file cut to a size.
struct Change
{
    std::vector<std::pair<std::size_t, std::uint8_t>> writes;
    int fixBlock = -1;
    std::size_t size = 256;
};

Bytes viewsonic(const Change& change = {})
{
    std::ifstream in(EDIDVM_SAMPLE_EDID_DIR "/viewsonic-vp2768-dp.edid", std::ios::binary);
    Bytes bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    for (const auto& [offset, value] : change.writes)
        bytes[offset] = value;
    if (change.fixBlock >= 0) {
        const auto block = bytes.begin() + change.fixBlock * 128;
        block[127] = static_cast<std::uint8_t>(-std::accumulate(block, block + 127, 0u));
    }
    bytes.resize(change.size);
    return bytes;
}

std::string errorOf(const std::function<Edid()>& decode)
{
    try {
        decode();
    } catch (const EdidError& error) {
        return error.what();
    }
    return "(no error)";
}

std::vector<Mode> detailedOf(const Edid& edid)
{
    std::vector<Mode> modes;
    std::copy_if(edid.modes.begin(), edid.modes.end(), std::back_inserter(modes),
                 [](const Mode& mode) { return mode.kind == Kind::Detailed; });
    return modes;
}

// Mode for mode in file order: each of edid-decode's (or of a pair of
// readings, either) matches the next of ours that is the same; what is left
// on either side differs.
TEST(EdidDecode, EveryFileListsTheModesOfEdidDecodeAndNothingElse)
{
    std::size_t compared = 0;
    std::set<std::string> rulesTaken;
    for (const ReferenceFile& file : kReference) {
        const std::string& path = file.path;
        SCOPED_TRACE(path);
        Edid edid;
        ASSERT_NO_THROW(edid = loadEdidFile(path, Checks::Lenient)) << "refused when lenient";
        // Both decoders find the same checksums wrong; ours names the byte.
        std::vector<std::string> checksums, ours;
        for (const ChecksumFault& fault : file.checksums)
            checksums.push_back("block " + std::to_string(fault.block) + ", byte 127: checksum is " + fault.found +
                                ", must be " + fault.due + " to make the block sum to 0");
        std::copy_if(edid.warnings.begin(), edid.warnings.end(), std::back_inserter(ours),
                     [](const std::string& warning) { return warning.find("checksum") != std::string::npos; });
        EXPECT_EQ(ours, checksums);
        // Strict, we refuse what edid-decode only reports, at the first fault.
        if (!edid.warnings.empty()) {
            EXPECT_EQ(errorOf([&path = path] { return loadEdidFile(path); }), path + ": " + edid.warnings.front());
        }

        std::vector<bool> used(edid.modes.size());
        std::size_t next = 0;
        for (std::size_t w = 0; w < file.modes.size(); ++w) {
            std::size_t last = w;
            while (last + 1 < file.modes.size() && file.modes[last + 1].alternative)
                ++last;
            std::size_t found = next;
            std::string rule;
            for (; found < edid.modes.size(); ++found) {
                rule.clear();
                const bool match =
                    std::any_of(file.modes.begin() + w, file.modes.begin() + last + 1,
                                [&](const ReferenceMode& want) { return same(edid.modes[found], want, &rule); });
                if (!used[found] && match)
                    break;
            }
            EXPECT_LT(found, edid.modes.size()) << "missing or out of order: " << shown(file.modes[w]);
            if (found < edid.modes.size()) {
                used[found] = true;
                next = found + 1;
                ++compared;
                if (!rule.empty())
                    rulesTaken.insert(rule);
            }
            w = last;
        }
        for (std::size_t i = 0; i < edid.modes.size(); ++i) {
            const Mode& got = edid.modes[i];
            EXPECT_TRUE(used[i]) << "not listed by edid-decode: block " << got.block << " " << got.source << " "
                                 << describe(got) << " " << got.pixelClockKHz << " kHz";
            EXPECT_EQ(got.index, static_cast<int>(i));
        }
        EXPECT_EQ(std::make_tuple(edid.name, edid.serialText, edid.strings),
                  std::make_tuple(file.name, file.serial, file.strings));
        ASSERT_EQ(edid.range.has_value(), !file.range.formula.empty());
        if (edid.range) {
            const auto lower = [](std::string text) {
                std::transform(text.begin(), text.end(), text.begin(), [](char c) { return char(std::tolower(c)); });
                return text;
            };
            EXPECT_EQ(std::make_tuple(edid.range->minVHz, edid.range->maxVHz, edid.range->minHKHz, edid.range->maxHKHz,
                                      edid.range->maxPixelClockMHz, lower(edid.range->formula)),
                      std::make_tuple(file.range.minV, file.range.maxV, file.range.minH, file.range.maxH,
                                      file.range.maxClock, lower(file.range.formula)));
            ASSERT_EQ(edid.range->secondaryCurve.has_value(), file.range.curve.has_value());
            if (const auto& curve = edid.range->secondaryCurve) {
                const ReferenceCurve& want = *file.range.curve;
                EXPECT_EQ(std::make_tuple(curve->startKHz, curve->c, curve->m, curve->k, curve->j),
                          std::make_tuple(want.startKHz, want.c, int(want.m), int(want.k), want.j));
            }
        }
    }
    // Every accepted difference is one that some file shows.
    EXPECT_EQ(rulesTaken, std::set<std::string>(kAccepted.begin(), kAccepted.end()));
    std::printf("compared %zu files, %zu modes\n", kReference.size(), compared);
    EXPECT_GE(kReference.size(), 64u);
}

// Damage is a warning when lenient and an error when strict; a file that is
// no EDID is refused either way.
struct Fault
{
    const char* name;
    Change change;
    std::string error;
    bool fatal = false;
};

TEST(EdidBadInput, EachFaultNamesTheBlockAndTheByte)
{
    const std::string sum = " to make the block sum to 0";
    const Fault cases[] = {
        {"empty", {{}, -1, 0}, "block 0, byte 0: file ends after 0 bytes, the base block needs 128", true},
        {"cut", {{}, -1, 200}, "block 1, byte 72: file ends after 200 bytes, inside block 1", true},
        {"header",
         {{{7, 0xFF}}},
         "block 0, byte 7: header byte is 0xff, must be 0x00 (an EDID starts with 00 FF FF FF FF FF FF 00)",
         true},
        {"too long",
         {{}, -1, 256 * 128 + 128},
         "block 256, byte 0: file holds 32896 bytes, more than the 32 KiB (256 blocks) of an EDID",
         true},
        {"base checksum", {{{127, 0xA1}}}, "block 0, byte 127: checksum is 0xa1, must be 0xa0" + sum},
        {"CTA revision 4, checksum", {{{129, 0x04}}}, "block 1, byte 127: checksum is 0xa6, must be 0xa5" + sum},
        {"extension count",
         {{{126, 2}}, 0},
         "block 0, byte 126: extension count is 2, but the file holds 1 extension blocks (256 bytes)"},
        {"timing offset",
         {{{130, 2}}, 1},
         "block 1, byte 2: detailed timings offset is 2, must be 0 (none) or 4 to 127"},
        // The first data block (audio, 9 bytes at byte 4) claims 31 bytes.
        {"data block length",
         {{{132, 0x3F}}, 1},
         "block 1, byte 4: data block of 31 bytes runs past the detailed timings at byte 27"},
        // The first timing's width: low byte 56 is already 0, high nibble in byte 58.
        {"no active area", {{{58, 0x00}}, 0}, "block 0, byte 54: detailed timing has no active area (0x1440)"},
    };
    for (const Fault& fault : cases) {
        SCOPED_TRACE(fault.name);
        const Bytes bytes = viewsonic(fault.change);
        EXPECT_EQ(errorOf([&] { return parseEdid(bytes, "vp2768.edid"); }), "vp2768.edid: " + fault.error);
        if (fault.fatal) {
            EXPECT_EQ(errorOf([&] { return parseEdid(bytes, "vp2768.edid", Checks::Lenient); }),
                      "vp2768.edid: " + fault.error);
            continue;
        }
        const Edid lenient = parseEdid(bytes, "vp2768.edid", Checks::Lenient);
        EXPECT_EQ(lenient.warnings, std::vector<std::string>{fault.error});
        EXPECT_FALSE(lenient.modes.empty());
    }

    // The real files' damage, each named; their intact modes are compared above.
    const struct
    {
        const char* name;
        std::vector<std::string> warnings;
    } damaged[] = {
        {"acer-g246hl-overrun", {"block 1, byte 34: data block of 24 bytes runs past the detailed timings at byte 36"}},
        {"xxx-beyondtv-overrun",
         {"block 1, byte 127: checksum is 0xff, must be 0xa6" + sum,
          "block 1, byte 59: HDMI vendor block too short for its 7 HDMI VICs",
          "block 1, byte 60: data block of 31 bytes runs past the detailed timings at byte 77",
          "block 1, byte 77: DTD 3 is all 0xff bytes, as erased memory reads",
          "block 1, byte 95: DTD 4 is all 0xff bytes, as erased memory reads"}},
        {"asus-vw192s-ffname",
         {"block 0, byte 126: extension count is 0, but the file holds 1 extension blocks (256 bytes)"}},
        {"goldstar-37lg5000-badck",
         {"block 1, byte 127: checksum is 0x34, must be 0xb2" + sum,
          "block 1, byte 107: DTD 7 has porches, sync and borders longer than its blanking (back porch 192 h, -10 v)"}},
    };
    for (const auto& file : damaged) {
        SCOPED_TRACE(file.name);
        const Edid edid = loadEdidFile(EDIDVM_SAMPLE_EDID_DIR "/" + std::string(file.name) + ".edid", Checks::Lenient);
        EXPECT_EQ(edid.warnings, file.warnings);
    }

    // A file's errors name its path; only regular files are read.
    const std::string data = EDIDVM_EDID_DATA_DIR;
    const std::pair<std::string, std::string> files[] = {
        {data + "/no-such.edid", ": cannot be opened: No such file or directory"},
        {data, ": cannot be read: Is a directory"},
        {"/dev/zero", ": cannot be read: not a regular file"},
        {data + "/truncated.edid", ": block 0, byte 100: file ends after 100 bytes, the base block needs 128"},
    };
    for (const auto& [path, error] : files)
        EXPECT_EQ(errorOf([&path = path] { return loadEdidFile(path); }), path + error);
}

std::vector<std::string> listing(const Edid& edid)
{
    std::vector<std::string> lines;
    for (const Mode& mode : edid.modes)
        lines.push_back(std::to_string(mode.block) + " " + mode.source + " " + describe(mode) + " " +
                        std::to_string(mode.pixelClockKHz));
    return lines;
}

TEST(EdidHexDump, EdidDecodesOutputReadsAsTheBinaryFile)
{
    for (const ReferenceFile& file : kReference) {
        const std::string& path = file.path;
        const std::string hex = EDIDVM_HEX_DIR "/" + std::filesystem::path(path).stem().string() + ".txt";
        SCOPED_TRACE(hex);
        const Edid binary = loadEdidFile(path, Checks::Lenient);
        const Edid dumped = loadEdidFile(hex, Checks::Lenient);
        EXPECT_EQ(listing(dumped), listing(binary));
        EXPECT_EQ(dumped.warnings, binary.warnings);
        EXPECT_EQ(dumped.blocks, binary.blocks);
    }
    // Line numbers of edid-decode's dump: the heading, a blank line, then 8 lines a block and a blank one.
    std::ifstream in(EDIDVM_HEX_DIR "/viewsonic-vp2768-dp.txt");
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    const auto edited = [&](std::size_t line, const std::string& text) {
        std::vector<std::string> copy = lines;
        copy.at(line - 1) = text;
        std::string joined;
        for (const std::string& each : copy)
            joined += each + "\n";
        return joined;
    };
    const std::string blocks = " no whole number of 128-byte blocks";
    const struct
    {
        const char* name;
        std::string text, error;
    } bad[] = {
        {"odd digit", "00 ff f", "line 1, column 7: expected a byte as two hex digits, got 'f'"},
        {"no hex digit", "edid-decode (hex):\n\n00 fg ff",
         "line 3, column 4: expected a byte as two hex digits, got 'fg ff'"},
        {"decoded text", "Block 0, Base EDID:", "line 1, column 1: expected a byte as two hex digits, got 'Block 0,'"},
        {"a line a byte short", edited(5, lines.at(4).substr(0, lines.at(4).size() - 3)),
         "line 5: 15 bytes where the other lines hold 16; the dump holds 255 bytes," + blocks},
        {"a line a byte long", edited(19, lines.at(18) + " 00"),
         "line 19: 17 bytes where the other lines hold 16; the dump holds 257 bytes," + blocks},
        {"the last line short", "00 11 22\n33 44 55\n66",
         "line 3: the dump holds 7 bytes," + blocks + " (this last line holds 1 bytes, the others 3)"},
    };
    for (const auto& dump : bad) {
        SCOPED_TRACE(dump.name);
        EXPECT_EQ(errorOf([&] { return parseEdid(parseHexDump(dump.text, "h.txt"), "h.txt"); }),
                  "h.txt: " + dump.error);
    }
    // Pairs may run together, as xxd -p prints them, with a shorter last line;
    // the dump ends at the dashes.
    const Bytes base = viewsonic({{}, -1, 128});
    std::string xxd;
    for (std::size_t i = 0; i < base.size(); ++i) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", base[i]);
        xxd += pair + std::string(i % 30 == 29 ? "\r\n" : "");
    }
    EXPECT_EQ(parseHexDump(xxd + "\n----\nzz", "h.txt"), base);
}

// An extension block of that tag, empty.
Change emptyBlock(std::uint8_t tag)
{
    Change change{{{128, tag}}, 1};
    for (std::size_t i = 129; i < 255; ++i)
        change.writes.emplace_back(i, 0);
    return change;
}

TEST(EdidBlocks, DetailedTimingsComeFromTheBaseAndCtaBlocksInOrderAndOtherBlocksAreSkippedWithANote)
{
    const std::vector<int> all = {0, 1, 1, 1, 1, 1};
    // The blocks of the detailed timings in order, whether the first is preferred, the notes.
    const std::tuple<const char*, Change, std::vector<int>, bool, std::vector<std::string>> cases[] = {
        {"as shipped", {}, all, true, {}},
        {"CTA offset 0: no timings there", {{{130, 0}}, 1}, {0}, true, {}},
        {"none in the base block, nor a preferred one", {{{54, 0}, {55, 0}}, 0}, {1, 1, 1, 1, 1}, false, {}},
        {"EDID 1.3 with byte 24's preferred bit cleared", {{{19, 3}, {24, 0}}, 0}, all, false, {}},
        {"from 1.4 the first is preferred whatever byte 24 says", {{{24, 0}}, 0}, all, true, {}},
        {"CTA revision 0", {{{129, 0}}, 1}, {0}, true, {"block 1: CTA-861 extension of revision 0 skipped"}},
        {"CTA revision 1", {{{129, 1}}, 1}, all, true, {}},
        {"block map", emptyBlock(0xF0), {0}, true, {"block 1: block map extension skipped"}},
        {"unknown tag", emptyBlock(0x42), {0}, true, {"block 1: extension with unknown tag 0x42 skipped"}},
    };
    for (const auto& [name, change, blocks, preferred, notes] : cases) {
        SCOPED_TRACE(name);
        const Edid edid = parseEdid(viewsonic(change), "vp2768.edid");
        std::vector<int> got;
        for (const Mode& mode : detailedOf(edid)) {
            EXPECT_EQ(mode.source, "DTD " + std::to_string(got.size() + 1));
            EXPECT_EQ(mode.preferred, preferred && got.empty());
            got.push_back(mode.block);
        }
        EXPECT_EQ(got, blocks);
        EXPECT_EQ(edid.notes, notes);
    }
    // An empty DisplayID section has nothing to skip.
    EXPECT_TRUE(loadEdidFile(EDIDVM_EDID_DATA_DIR "/displayid-extension.edid").notes.empty());
    // Borders lie inside the blanking: the back porch shrinks, the rate stays.
    const Mode plain = detailedOf(parseEdid(viewsonic(), "vp2768.edid")).front();
    const Mode bordered = detailedOf(parseEdid(viewsonic({{{69, 4}, {70, 2}}, 0}), "vp2768.edid")).front();
    EXPECT_EQ(std::make_tuple(bordered.hBackPorch, bordered.vBackPorch, bordered.hBorder, bordered.vBorder),
              std::make_tuple(plain.hBackPorch - 8, plain.vBackPorch - 4, 4, 2));
    EXPECT_DOUBLE_EQ(bordered.refreshHz, plain.refreshHz);
}

} // namespace
