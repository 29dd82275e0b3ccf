#include "edid/edid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

using namespace edidvm::edid;

namespace {

// One detailed timing as edid-decode prints it.
struct Reference
{
    int block, number, width, height;
    bool interlaced;
    double refreshHz, pixelClockMHz;
    int hFront, hSync, hBack, vFront, vSync, vBack;
};
// A block whose checksum edid-decode finds wrong: the byte and the one due.
struct ChecksumFault
{
    int block;
    std::string found, due;
};
// Any mode edid-decode lists, with the label it gives the source.
struct ReferenceMode
{
    int block;
    std::string source;
    int width, height;
    bool interlaced;
    double refreshHz, pixelClockMHz;
    bool preferred;
};
struct ReferenceRange
{
    int minV = 0, maxV = 0, minH = 0, maxH = 0, maxClock = 0;
    std::string formula;
};
struct ReferenceFile
{
    std::string path;
    std::vector<Reference> timings;
    std::vector<ChecksumFault> checksums;
    std::vector<ReferenceMode> modes;
    bool firstPreferred;
    std::string name, serial;
    ReferenceRange range;
};

// Made at build time by running edid-decode on each file.
const std::vector<ReferenceFile> kReference = {
#include "edid_decode_reference.inc"
};

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

// edid-decode labels DisplayID timings "DTD" without a number.
bool same(const Mode& got, const ReferenceMode& want)
{
    return got.block == want.block && (got.kind == Kind::DisplayId ? "DTD" : got.source) == want.source &&
           got.width == want.width && got.height == want.height && got.interlaced == want.interlaced &&
           std::abs(got.refreshHz - want.refreshHz) <= 0.01 &&
           std::abs(got.pixelClockKHz - want.pixelClockMHz * 1000.0) < 0.5 &&
           (got.kind != Kind::DisplayId || got.preferred == want.preferred);
}

TEST(EdidDecode, EveryFileListsTheModesAndPorchesOfEdidDecodeAndNothingElse)
{
    int refused = 0;
    for (const ReferenceFile& file : kReference) {
        const std::string& path = file.path;
        SCOPED_TRACE(path);
        const Edid edid = loadEdidFile(path, Checks::Lenient);
        std::vector<std::string> warnings;
        for (const ChecksumFault& fault : file.checksums)
            warnings.push_back("block " + std::to_string(fault.block) + ", byte 127: checksum is " + fault.found +
                               ", must be " + fault.due + " to make the block sum to 0");
        EXPECT_EQ(edid.warnings, warnings);
        for (const ReferenceMode& want : file.modes) {
            const bool found =
                std::any_of(edid.modes.begin(), edid.modes.end(), [&](const Mode& got) { return same(got, want); });
            EXPECT_TRUE(found) << "missing: block " << want.block << " " << want.source << " " << want.width << "x"
                               << want.height << " " << want.refreshHz << " Hz";
        }
        for (const Mode& got : edid.modes) {
            const bool listed = std::any_of(file.modes.begin(), file.modes.end(),
                                            [&](const ReferenceMode& want) { return same(got, want); });
            EXPECT_TRUE(listed) << "not listed by edid-decode: block " << got.block << " " << got.source << " "
                                << describe(got) << " " << got.pixelClockKHz << " kHz";
            EXPECT_EQ(got.index, &got - edid.modes.data());
        }
        if (!file.checksums.empty()) {
            // Strict, we refuse what edid-decode only reports, at the first bad block.
            EXPECT_EQ(errorOf([&path = path] { return loadEdidFile(path); }), path + ": " + warnings.front());
            ++refused;
        }
        // Detailed timings in order, with their porches.
        const std::vector<Mode> detailed = detailedOf(edid);
        ASSERT_EQ(detailed.size(), file.timings.size());
        for (std::size_t i = 0; i < detailed.size(); ++i) {
            const Reference& want = file.timings[i];
            const Mode& got = detailed[i];
            SCOPED_TRACE("DTD " + std::to_string(want.number) + ": " + describe(got));
            EXPECT_EQ(std::make_tuple(got.source, got.block, got.preferred, got.width, got.height, got.interlaced),
                      std::make_tuple("DTD " + std::to_string(want.number), want.block,
                                      i == 0 && want.block == 0 && file.firstPreferred, want.width, want.height,
                                      want.interlaced));
            EXPECT_EQ(
                std::make_tuple(got.hFrontPorch, got.hSync, got.hBackPorch, got.vFrontPorch, got.vSync, got.vBackPorch),
                std::make_tuple(want.hFront, want.hSync, want.hBack, want.vFront, want.vSync, want.vBack));
        }
        EXPECT_EQ(edid.name, file.name);
        EXPECT_EQ(edid.serialText, file.serial);
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
        }
    }
    EXPECT_GE(kReference.size(), 18u);
    EXPECT_GT(refused, 0) << "the files must exercise a bad checksum found by both decoders";
}

TEST(EdidBadInput, EachFaultNamesTheBlockAndTheByte)
{
    const std::string sum = " to make the block sum to 0";
    const std::pair<Change, std::string> cases[] = {
        {{{}, -1, 0}, "block 0, byte 0: file ends after 0 bytes, the base block needs 128"},
        {{{}, -1, 200}, "block 1, byte 72: file ends after 200 bytes, inside block 1"},
        {{{{7, 0xFF}}},
         "block 0, byte 7: header byte is 0xff, must be 0x00 (an EDID starts with 00 FF FF FF FF FF FF 00)"},
        {{{{127, 0xA1}}}, "block 0, byte 127: checksum is 0xa1, must be 0xa0" + sum},
        {{{{129, 0x04}}}, "block 1, byte 127: checksum is 0xa6, must be 0xa5" + sum}, // revision 3 -> 4
        {{{{126, 2}}, 0}, "block 0, byte 126: extension count is 2, but the file holds 1 extension blocks (256 bytes)"},
        {{{{130, 2}}, 1}, "block 1, byte 2: detailed timings offset is 2, must be 0 (none) or 4 to 127"},
        // The first data block (audio, 9 bytes at byte 4) claims 31 bytes.
        {{{{132, 0x3F}}, 1}, "block 1, byte 4: data block of 31 bytes runs past the detailed timings at byte 27"},
        // The first timing's width: low byte 56 is already 0, high nibble in byte 58.
        {{{{58, 0x00}}, 0}, "block 0, byte 54: detailed timing has no active area (0x1440)"},
        {{{}, -1, 256 * 128 + 128}, "block 256, byte 0: file holds 32896 bytes, more than 256 blocks"},
    };
    for (const auto& [change, error] : cases)
        EXPECT_EQ(errorOf([&change = change] { return parseEdid(viewsonic(change), "vp2768.edid"); }),
                  "vp2768.edid: " + error);

    // Not strict, checksum and count faults are warnings and the modes still come.
    const Edid lenient = parseEdid(viewsonic({{{126, 2}, {255, 0}}}), "vp2768.edid", Checks::Lenient);
    EXPECT_EQ(lenient.warnings.size(), 3u);
    EXPECT_EQ(detailedOf(lenient).size(), 6u);

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
    const std::pair<std::string, std::string> bad[] = {
        {"00 ff f", "h.txt: line 1, column 7: expected a byte as two hex digits, got 'f'"},
        {"edid-decode (hex):\n\n00 fg ff", "h.txt: line 3, column 4: expected a byte as two hex digits, got 'fg ff'"},
        {"Block 0, Base EDID:", "h.txt: line 1, column 1: expected a byte as two hex digits, got 'Block 0,'"},
    };
    for (const auto& [text, error] : bad)
        EXPECT_EQ(errorOf([&text = text] { return parseEdid(parseHexDump(text, "h.txt"), "h.txt"); }), error);
    // Pairs may run together, as xxd -p prints them; the dump ends at the dashes.
    EXPECT_EQ(parseHexDump("00ff\r\n 10\n----\nzz", "h.txt"), (Bytes{0x00, 0xFF, 0x10}));
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
