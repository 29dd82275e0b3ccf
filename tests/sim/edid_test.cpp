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
struct ReferenceFile
{
    std::string path;
    std::vector<Reference> timings;
    std::vector<ChecksumFault> checksums;
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

TEST(EdidDecode, EverySampleFileHasTheTimingsOfEdidDecode)
{
    int files = 0, interlaced = 0, refused = 0;
    for (const auto& entry : std::filesystem::directory_iterator(EDIDVM_SAMPLE_EDID_DIR)) {
        if (entry.path().extension() != ".edid")
            continue;
        ++files;
        const std::string path = entry.path().string();
        SCOPED_TRACE(path);
        const auto file = std::find_if(kReference.begin(), kReference.end(), [&](auto& f) { return f.path == path; });
        ASSERT_NE(file, kReference.end()) << "not in the reference: rerun CMake";
        if (!file->checksums.empty()) {
            // We refuse what edid-decode only reports, at the first bad block.
            const ChecksumFault& fault = file->checksums.front();
            EXPECT_EQ(errorOf([&] { return loadEdidFile(path); }),
                      path + ": block " + std::to_string(fault.block) + ", byte 127: checksum is " + fault.found +
                          ", must be " + fault.due + " to make the block sum to 0");
            ++refused;
            continue;
        }
        const Edid edid = loadEdidFile(path);
        ASSERT_EQ(edid.timings.size(), file->timings.size());
        for (std::size_t i = 0; i < edid.timings.size(); ++i) {
            const Reference& want = file->timings[i];
            const DetailedTiming& got = edid.timings[i];
            SCOPED_TRACE("DTD " + std::to_string(want.number) + ": " + describe(got));
            // Number, block, preferred, size, interlace, then the porches.
            EXPECT_EQ(std::make_tuple(got.index + 1, got.block, got.preferred, got.width, got.height, got.interlaced),
                      std::make_tuple(want.number, want.block, i == 0 && want.block == 0, want.width, want.height,
                                      want.interlaced));
            EXPECT_EQ(std::make_tuple(got.hFrontPorch, got.hSync, got.hBlank - got.hFrontPorch - got.hSync,
                                      got.vFrontPorch, got.vSync, got.vBlank - got.vFrontPorch - got.vSync),
                      std::make_tuple(want.hFront, want.hSync, want.hBack, want.vFront, want.vSync, want.vBack));
            EXPECT_NEAR(got.refreshHz, want.refreshHz, 0.01);
            EXPECT_NEAR(got.pixelClockKHz / 1000.0, want.pixelClockMHz, 1e-6);
            interlaced += want.interlaced;
        }
    }
    EXPECT_GT(files, 0);
    EXPECT_GT(interlaced, 0) << "the files must exercise the frame height and field rate rules";
    EXPECT_GT(refused, 0) << "the files must exercise a bad checksum found by both decoders";
}

TEST(EdidDescribe, WidthHeightInterlaceAndRefreshToTwoDecimals)
{
    const std::tuple<const char*, std::size_t, const char*> cases[] = {
        {"viewsonic-vp2768-dp.edid", 0, "2560x1440@59.95"},
        {"viewsonic-vp2768-dp.edid", 2, "1920x1080i@60.00"},
        {"samsung-s27a950d-dp.edid", 0, "1920x1080@119.98"},
    };
    for (const auto& [file, index, text] : cases) {
        const Edid edid = loadEdidFile(std::string(EDIDVM_SAMPLE_EDID_DIR "/") + file);
        ASSERT_LT(index, edid.timings.size()) << file;
        EXPECT_EQ(describe(edid.timings[index]), text) << file;
    }
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
        // The first timing's width: low byte 56 is already 0, high nibble in byte 58.
        {{{{58, 0x00}}, 0}, "block 0, byte 54: detailed timing has no active area (0x1440)"},
    };
    for (const auto& [change, error] : cases)
        EXPECT_EQ(errorOf([&change = change] { return parseEdid(viewsonic(change), "vp2768.edid"); }),
                  "vp2768.edid: " + error);

    // A file's errors name its path.
    const std::string data = EDIDVM_EDID_DATA_DIR;
    const std::pair<std::string, std::string> files[] = {
        {data + "/no-such.edid", ": cannot be opened: No such file or directory"},
        {data, ": cannot be read: Is a directory"},
        {data + "/truncated.edid", ": block 0, byte 100: file ends after 100 bytes, the base block needs 128"},
    };
    for (const auto& [path, error] : files)
        EXPECT_EQ(errorOf([&path = path] { return loadEdidFile(path); }), path + error);
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
        for (std::size_t i = 129; i < 255; ++i)
            change.writes.emplace_back(i, 0); // an empty block of that kind
        const Edid edid = parseEdid(viewsonic(change), "vp2768.edid");
        EXPECT_EQ(edid.timings.size(), 1u) << note; // the base block's only
        EXPECT_EQ(edid.notes, std::vector<std::string>{note});
    }
    const Edid three = loadEdidFile(EDIDVM_EDID_DATA_DIR "/displayid-extension.edid");
    EXPECT_EQ(three.notes, std::vector<std::string>{"block 2: DisplayID extension skipped"});
}

TEST(EdidLayouts, TimingsComeFromTheBaseAndCtaBlocksInOrder)
{
    // The blocks of the timings in order, and whether the first is preferred.
    const std::tuple<Change, std::vector<int>, bool> cases[] = {
        {{}, {0, 1, 1, 1, 1, 1}, true},
        {{{{130, 0}}, 1}, {0}, true},                      // CTA offset 0: no timings there
        {{{{54, 0}, {55, 0}}, 0}, {1, 1, 1, 1, 1}, false}, // none in the base block, nor a preferred one
    };
    for (const auto& [change, blocks, preferred] : cases) {
        const Edid edid = parseEdid(viewsonic(change), "vp2768.edid");
        std::vector<int> got;
        for (const DetailedTiming& timing : edid.timings) {
            EXPECT_EQ(timing.index, static_cast<int>(got.size()));
            EXPECT_EQ(timing.preferred, preferred && got.empty());
            got.push_back(timing.block);
        }
        EXPECT_EQ(got, blocks);
        EXPECT_TRUE(edid.notes.empty());
    }
}

} // namespace
