// SPDX-License-Identifier: MIT
// CTA-861 extension blocks: short video descriptors, the HDMI vendor block's
// VICs and detailed timings.
#include "edid/edid_p.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace edidvm::edid::detail {
namespace {

void shortVideo(Reader& reader, std::size_t block, std::size_t offset, std::size_t length)
{
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned svd = reader.at(block, offset + i);
        // 129 to 192 are VICs 1 to 64 marked native.
        const int vic = static_cast<int>(svd >= 129 && svd <= 192 ? svd & 0x7F : svd);
        if (const tables::Timing* timing = tables::vic(vic))
            reader.add(fromTable(Kind::Vic, "VIC " + std::to_string(vic), *timing), block);
        else
            reader.note(block, "unknown VIC " + std::to_string(vic) + " at byte " + std::to_string(offset + i));
    }
}

// After the OUI, the address, two optional bytes and the flags byte: the
// latencies if present, then the video part with its VIC count.
void hdmiVendorBlock(Reader& reader, std::size_t block, std::size_t payload, std::size_t length)
{
    if (length < 8 || (reader.at(block, payload + 7) & 0x20) == 0)
        return;
    const unsigned flags = reader.at(block, payload + 7);
    std::size_t i = 8 + ((flags & 0x80) ? 2 : 0) + ((flags & 0x40) ? 2 : 0);
    if (i + 2 > length)
        reader.fail(block, payload + 7, "HDMI vendor block too short for the video part its flags announce");
    const std::size_t count = reader.at(block, payload + i + 1) >> 5;
    i += 2;
    if (i + count > length)
        reader.fail(block, payload + i - 1,
                    "HDMI vendor block too short for its " + std::to_string(count) + " HDMI VICs");
    for (std::size_t k = 0; k < count; ++k) {
        const int code = reader.at(block, payload + i + k);
        if (const tables::Timing* timing = tables::hdmiVic(code))
            reader.add(fromTable(Kind::HdmiVic, "HDMI VIC " + std::to_string(code), *timing), block);
        else
            reader.note(block,
                        "unknown HDMI VIC " + std::to_string(code) + " at byte " + std::to_string(payload + i + k));
    }
}

void dataBlocks(Reader& reader, std::size_t block, std::size_t end)
{
    std::size_t offset = 4;
    while (offset < end) {
        const unsigned tag = reader.at(block, offset) >> 5;
        const std::size_t length = reader.at(block, offset) & 0x1F;
        if (offset + 1 + length > end) {
            reader.fail(block, offset,
                        "data block of " + std::to_string(length) + " bytes runs past the detailed timings at byte " +
                            std::to_string(end));
        }
        const std::size_t payload = offset + 1;
        if (tag == 2) {
            shortVideo(reader, block, payload, length);
        } else if (tag == 3 && length >= 3 && reader.at(block, payload) == 0x03 &&
                   reader.at(block, payload + 1) == 0x0C && reader.at(block, payload + 2) == 0x00) {
            hdmiVendorBlock(reader, block, payload, length);
        } else if (tag == 7 && length >= 1 && reader.at(block, payload) == 14) {
            shortVideo(reader, block, payload + 1, length - 1); // modes only in YCbCr 4:2:0
        }
        offset = payload + length;
    }
}

} // namespace

// Revision 0 has nothing to decode. Data blocks (from revision 3) run
// from byte 4 to the offset in byte 2, where the detailed timings start;
// those run up to the checksum byte and end early at the first all-zero
// descriptor (padding). Display descriptors among them are skipped.
void decodeCta(Reader& reader, std::size_t block)
{
    const unsigned revision = reader.at(block, 1);
    if (revision == 0) {
        reader.note(block, "CTA-861 extension of revision 0 skipped");
        return;
    }
    const std::size_t start = reader.at(block, 2);
    if (start == 0) {
        return;
    }
    if (start < 4 || start > kChecksumByte) {
        reader.fail(block, 2, "detailed timings offset is " + std::to_string(start) + ", must be 0 (none) or 4 to 127");
    }
    if (revision >= 3)
        dataBlocks(reader, block, start);
    for (std::size_t offset = start; offset + kDescriptorSize <= kChecksumByte; offset += kDescriptorSize) {
        const std::uint8_t* first = reader.ptr(block, offset);
        if (std::all_of(first, first + kDescriptorSize, [](std::uint8_t byte) { return byte == 0; })) {
            return;
        }
        if (reader.word(block, offset) != 0) {
            detailedTiming(reader, block, offset, false);
        }
    }
}

} // namespace edidvm::edid::detail
