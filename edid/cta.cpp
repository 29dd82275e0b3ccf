// SPDX-License-Identifier: MIT
// CTA-861 extension blocks, and their data blocks wherever they are: short
// video descriptors, the HDMI vendor block's VICs and detailed timings.
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
// latencies if present, then the video part with its VIC count. Only the
// VICs inside the block are read.
void hdmiVendorBlock(Reader& reader, std::size_t block, std::size_t payload, std::size_t length)
{
    if (length < 8 || (reader.at(block, payload + 7) & 0x20) == 0)
        return;
    const unsigned flags = reader.at(block, payload + 7);
    std::size_t i = 8 + ((flags & 0x80) ? 2 : 0) + ((flags & 0x40) ? 2 : 0);
    if (i + 2 > length) {
        reader.fault(block, payload + 7, "HDMI vendor block too short for the video part its flags announce");
        return;
    }
    std::size_t count = reader.at(block, payload + i + 1) >> 5;
    i += 2;
    if (i + count > length) {
        reader.fault(block, payload + i - 1,
                     "HDMI vendor block too short for its " + std::to_string(count) + " HDMI VICs");
        count = length - i;
    }
    for (std::size_t k = 0; k < count; ++k) {
        const int code = reader.at(block, payload + i + k);
        if (const tables::Timing* timing = tables::hdmiVic(code))
            reader.add(fromTable(Kind::HdmiVic, "HDMI VIC " + std::to_string(code), *timing), block);
        else
            reader.note(block,
                        "unknown HDMI VIC " + std::to_string(code) + " at byte " + std::to_string(payload + i + k));
    }
}

// Data blocks from begin until end; one whose length runs past end is
// damaged, and is read as far as limit, where its bytes certainly end.
void dataBlocks(Reader& reader, std::size_t block, std::size_t begin, std::size_t end, std::size_t limit,
                const std::string& endName)
{
    std::size_t offset = begin;
    while (offset < end) {
        const unsigned tag = reader.at(block, offset) >> 5;
        const std::size_t length = reader.at(block, offset) & 0x1F;
        const std::size_t payload = offset + 1;
        std::size_t readable = length;
        if (payload + length > end) {
            reader.fault(block, offset,
                         "data block of " + std::to_string(length) + " bytes runs past " + endName + " at byte " +
                             std::to_string(end));
            readable = std::min(payload + length, limit) - std::min(payload, limit);
        }
        if (tag == 2) {
            shortVideo(reader, block, payload, readable);
        } else if (tag == 3 && readable >= 3 && reader.at(block, payload) == 0x03 &&
                   reader.at(block, payload + 1) == 0x0C && reader.at(block, payload + 2) == 0x00) {
            hdmiVendorBlock(reader, block, payload, readable);
        } else if (tag == 7 && readable >= 1 && reader.at(block, payload) == 14) {
            shortVideo(reader, block, payload + 1, readable - 1); // modes only in YCbCr 4:2:0
        }
        offset = payload + length;
    }
}

} // namespace

void ctaDataBlocks(Reader& reader, std::size_t block, std::size_t begin, std::size_t end)
{
    dataBlocks(reader, block, begin, end, end, "its DisplayID data block");
}

// Revision 0 has nothing to decode. Data blocks (from revision 3) run
// from byte 4 to the offset in byte 2, where the detailed timings start;
// those run up to the checksum byte and end early at the first all-zero
// descriptor (padding). Display descriptors among them are skipped. An
// offset beyond the block leaves data blocks only, as edid-decode reads it.
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
        reader.fault(block, 2,
                     "detailed timings offset is " + std::to_string(start) + ", must be 0 (none) or 4 to 127");
        if (start < 4)
            return;
    }
    const std::size_t end = std::min(start, kChecksumByte);
    if (revision >= 3)
        dataBlocks(reader, block, 4, end, kChecksumByte, "the detailed timings");
    for (std::size_t offset = start; offset + kDescriptorSize <= kChecksumByte; offset += kDescriptorSize) {
        bool zero = true;
        for (std::size_t i = 0; i < kDescriptorSize; ++i)
            zero = zero && reader.at(block, offset + i) == 0;
        if (zero) {
            return;
        }
        if (reader.word(block, offset) != 0) {
            detailedTiming(reader, block, offset, false);
        }
    }
}

} // namespace edidvm::edid::detail
