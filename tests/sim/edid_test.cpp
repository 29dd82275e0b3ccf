#include "sim/edid/edid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

using edidvm::edid::DetailedTiming;
using edidvm::edid::Edid;
using edidvm::edid::EdidError;
using edidvm::edid::loadEdidFile;
using edidvm::edid::parseEdid;

namespace {

// One detailed timing as edid-decode prints it.
struct Reference
{
    int block, number, width, height;
    bool interlaced;
    double refreshHz, pixelClockMHz;
    int hFront, hSync, hBack, vFront, vSync, vBack;
};
struct ReferenceFile
{
    std::string path;
    std::vector<Reference> timings;
};

// Made at build time by running edid-decode on each file.
const std::vector<ReferenceFile> kReference = {
#include "edid_decode_reference.inc"
};

using Bytes = std::vector<std::uint8_t>;

Bytes readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

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
    Bytes bytes = readBytes(EDIDVM_SHARED_EDID_DIR "/viewsonic-vp2768-dp.edid");
    for (const auto& [offset, value] : change.writes) {
        bytes[offset] = value;
    }
    if (change.fixBlock >= 0) {
        const auto block = bytes.begin() + change.fixBlock * 128;
        bytes[change.fixBlock * 128 + 127] = static_cast<std::uint8_t>(-std::accumulate(block, block + 127, 0u));
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

TEST(EdidDecode, EverySharedFileIsInTheReference)
{
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(EDIDVM_SHARED_EDID_DIR)) {
        if (entry.path().extension() == ".edid") {
            ++files;
            const std::string path = entry.path().string();
            EXPECT_TRUE(std::any_of(kReference.begin(), kReference.end(),
                                    [&](const ReferenceFile& file) { return file.path == path; }))
                << path << " is not in the reference: rerun CMake";
        }
    }
    EXPECT_GT(files, 0);
}

TEST(EdidDecode, SameDetailedTimingsAsEdidDecode)
{
    int interlaced = 0;
    for (const ReferenceFile& file : kReference) {
        SCOPED_TRACE(file.path);
        const Edid edid = loadEdidFile(file.path);
        ASSERT_EQ(edid.timings.size(), file.timings.size());
        for (std::size_t i = 0; i < file.timings.size(); ++i) {
            const Reference& want = file.timings[i];
            const DetailedTiming& got = edid.timings[i];
            SCOPED_TRACE("DTD " + std::to_string(want.number) + ": " + describe(got));
            EXPECT_EQ(got.index + 1, want.number);
            EXPECT_EQ(got.block, want.block);
            EXPECT_EQ(got.preferred, i == 0 && want.block == 0);
            EXPECT_EQ(got.width, want.width);
            EXPECT_EQ(got.height, want.height);
            EXPECT_EQ(got.interlaced, want.interlaced);
            EXPECT_NEAR(got.refreshHz, want.refreshHz, 0.01);
            EXPECT_NEAR(got.pixelClockKHz / 1000.0, want.pixelClockMHz, 1e-6);
            EXPECT_EQ(got.hFrontPorch, want.hFront);
            EXPECT_EQ(got.hSync, want.hSync);
            EXPECT_EQ(got.hBlank - got.hFrontPorch - got.hSync, want.hBack);
            EXPECT_EQ(got.vFrontPorch, want.vFront);
            EXPECT_EQ(got.vSync, want.vSync);
            EXPECT_EQ(got.vBlank - got.vFrontPorch - got.vSync, want.vBack);
            interlaced += want.interlaced;
        }
    }
    // The reference must exercise the frame height and field rate rules.
    EXPECT_GT(interlaced, 0);
}

TEST(EdidDescribe, WidthHeightInterlaceAndRefreshToTwoDecimals)
{
    struct Case
    {
        const char* file;
        std::size_t index;
        const char* text;
    };
    const Case cases[] = {
        {"viewsonic-vp2768-dp.edid", 0, "2560x1440@59.95"},  {"viewsonic-vp2768-dp.edid", 2, "1920x1080i@60.00"},
        {"samsung-s27a950d-dp.edid", 0, "1920x1080@119.98"}, {"goldstar-ite6604-hdmi.edid", 0, "1920x1080@59.93"},
        {"panasonic-mei96a2-dp.edid", 1, "2560x1440@48.00"},
    };
    for (const Case& c : cases) {
        const Edid edid = loadEdidFile(std::string(EDIDVM_SHARED_EDID_DIR "/") + c.file);
        ASSERT_LT(c.index, edid.timings.size()) << c.file;
        EXPECT_EQ(describe(edid.timings[c.index]), c.text) << c.file;
    }
}

TEST(EdidBadInput, EachFaultNamesTheBlockAndTheByte)
{
    const std::string header = " (an EDID starts with 00 FF FF FF FF FF FF 00)";
    const std::string sum = " to make the block sum to 0";
    const std::pair<Change, std::string> cases[] = {
        {{{}, -1, 0}, "block 0, byte 0: file ends after 0 bytes, the base block needs 128"},
        {{{}, -1, 100}, "block 0, byte 100: file ends after 100 bytes, the base block needs 128"},
        {{{}, -1, 200}, "block 1, byte 72: file ends after 200 bytes, inside block 1"},
        {{{{0, 0x01}}}, "block 0, byte 0: header byte is 0x01, must be 0x00" + header},
        {{{{7, 0xFF}}}, "block 0, byte 7: header byte is 0xff, must be 0x00" + header},
        {{{{127, 0xA1}}}, "block 0, byte 127: checksum is 0xa1, must be 0xa0" + sum},
        {{{{12, 0x11}}}, "block 0, byte 127: checksum is 0xa0, must be 0x90" + sum}, // serial number 1 -> 17
        {{{{255, 0xA7}}}, "block 1, byte 127: checksum is 0xa7, must be 0xa6" + sum},
        {{{{129, 0x04}}}, "block 1, byte 127: checksum is 0xa6, must be 0xa5" + sum}, // revision 3 -> 4
        {{{{126, 2}}, 0}, "block 0, byte 126: extension count is 2, but the file holds 1 extension blocks (256 bytes)"},
        {{{{126, 0}}, 0}, "block 0, byte 126: extension count is 0, but the file holds 1 extension blocks (256 bytes)"},
        {{{{130, 2}}, 1}, "block 1, byte 2: detailed timings offset is 2, must be 0 (none) or 4 to 127"},
        {{{{130, 200}}, 1}, "block 1, byte 2: detailed timings offset is 200, must be 0 (none) or 4 to 127"},
        // The first timing's width: low byte 56 is already 0, high nibble in byte 58.
        {{{{58, 0x00}}, 0}, "block 0, byte 54: detailed timing has no active area (0x1440)"},
    };
    for (const auto& [change, error] : cases) {
        const Bytes bytes = viewsonic(change);
        EXPECT_EQ(errorOf([&] { return parseEdid(bytes, "vp2768.edid"); }), "vp2768.edid: " + error);
    }
}

TEST(EdidBadInput, FileErrorsNameThePath)
{
    const std::string data = EDIDVM_EDID_DATA_DIR;
    const std::pair<std::string, std::string> cases[] = {
        {data + "/no-such.edid", ": cannot be opened: No such file or directory"},
        {data, ": cannot be read: Is a directory"},
        {data + "/truncated.edid", ": block 0, byte 100: file ends after 100 bytes, the base block needs 128"},
        {data + "/bad-checksum-block1.edid",
         ": block 1, byte 127: checksum is 0xa7, must be 0xa6 to make the block sum to 0"},
    };
    for (const auto& [path, error] : cases) {
        EXPECT_EQ(errorOf([&path = path] { return loadEdidFile(path); }), path + error);
    }
}

TEST(EdidExtensions, OtherKindsAreSkippedWithANote)
{
    const std::pair<std::uint8_t, const char*> cases[] = {
        {0x70, "block 1: DisplayID extension skipped"},
        {0xF0, "block 1: block map extension skipped"},
        {0x42, "block 1: extension with unknown tag 0x42 skipped"},
    };
    for (const auto& [tag, note] : cases) {
        Change change{{{128, tag}}, 1};
        for (std::size_t i = 129; i < 255; ++i) {
            change.writes.emplace_back(i, 0); // an empty block of that kind
        }
        const Edid edid = parseEdid(viewsonic(change), "vp2768.edid");
        ASSERT_EQ(edid.timings.size(), 1u) << note; // the base block's only
        EXPECT_EQ(edid.notes, std::vector<std::string>{note});
    }
    const Edid three = loadEdidFile(EDIDVM_EDID_DATA_DIR "/displayid-extension.edid");
    EXPECT_EQ(three.notes, std::vector<std::string>{"block 2: DisplayID extension skipped"});
}

TEST(EdidLayouts, TimingsComeFromTheBaseAndCtaBlocksInOrder)
{
    struct Case
    {
        const char* name;
        Change change;
        std::vector<int> blocks; // of the timings, in order
        bool preferred;          // whether the first one is
    };
    const Case cases[] = {
        {"unchanged", {}, {0, 1, 1, 1, 1, 1}, true},
        {"checksum 0x00", {{{12, 0xA1}, {127, 0x00}}}, {0, 1, 1, 1, 1, 1}, true}, // the serial number takes the sum
        {"CTA offset 0 means no timings", {{{130, 0}}, 1}, {0}, true},
        {"no timing in the base block", {{{54, 0}, {55, 0}}, 0}, {1, 1, 1, 1, 1}, false}, // nor a preferred one
    };
    for (const Case& c : cases) {
        const Edid edid = parseEdid(viewsonic(c.change), "vp2768.edid");
        std::vector<int> blocks;
        for (const DetailedTiming& timing : edid.timings) {
            EXPECT_EQ(timing.index, static_cast<int>(blocks.size())) << c.name;
            EXPECT_EQ(timing.preferred, c.preferred && blocks.empty()) << c.name;
            blocks.push_back(timing.block);
        }
        EXPECT_EQ(blocks, c.blocks) << c.name;
        EXPECT_TRUE(edid.notes.empty()) << c.name;
    }
}

} // namespace
