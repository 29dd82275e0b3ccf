// SPDX-License-Identifier: MIT
// DisplayID extension blocks: type I and type VII detailed timings.
#include "edid/edid_p.h"

#include <string>
#include <utility>

namespace edidvm::edid::detail {
namespace {

void displayIdTiming(Reader& reader, std::size_t block, std::size_t offset, unsigned clockUnitKHz, const char* source)
{
    auto word = [&](std::size_t i) { return reader.at(block, offset + i) | reader.at(block, offset + i + 1) << 8; };
    Mode m{};
    m.kind = Kind::DisplayId;
    m.source = source;
    const unsigned clock =
        (reader.at(block, offset) | reader.at(block, offset + 1) << 8 | reader.at(block, offset + 2) << 16) + 1u;
    m.pixelClockKHz = clock * clockUnitKHz;
    const unsigned options = reader.at(block, offset + 3);
    m.preferred = (options & 0x80) != 0;
    m.interlaced = (options & 0x10) != 0;
    m.hActive = word(4) + 1;
    const int hBlank = word(6) + 1;
    m.hFrontPorch = (word(8) & 0x7FFF) + 1;
    m.hSyncPositive = (word(8) & 0x8000) != 0;
    m.hSync = word(10) + 1;
    m.vActive = word(12) + 1;
    const int vBlank = word(14) + 1;
    m.vFrontPorch = (word(16) & 0x7FFF) + 1;
    m.vSyncPositive = (word(16) & 0x8000) != 0;
    m.vSync = word(18) + 1;
    m.hBackPorch = hBlank - m.hFrontPorch - m.hSync;
    m.vBackPorch = vBlank - m.vFrontPorch - m.vSync;
    finish(m);
    reader.add(std::move(m), block);
}

} // namespace

// A section: version, payload length, product type, extension count, then
// data blocks (tag, revision, length). Type I timings (tag 0x03, version
// 1.x) count the pixel clock in 10 kHz, type VII (tag 0x22, version 2.0)
// in 1 kHz; every stored value is one less than it means.
void decodeDisplayId(Reader& reader, std::size_t block)
{
    const unsigned version = reader.at(block, 1);
    const std::size_t end = 5 + static_cast<std::size_t>(reader.at(block, 2));
    if (end > kChecksumByte - 1) {
        reader.fail(block, 2,
                    "DisplayID section of " + std::to_string(reader.at(block, 2)) + " bytes does not fit the block");
    }
    std::size_t offset = 5;
    while (offset + 3 <= end) {
        const unsigned tag = reader.at(block, offset);
        const std::size_t length = reader.at(block, offset + 2);
        if (offset + 3 + length > end) {
            reader.fail(block, offset,
                        "DisplayID data block of " + std::to_string(length) + " bytes runs past its section");
        }
        const bool typeI = tag == 0x03 && version < 0x20;
        const bool typeVII = tag == 0x22 && version >= 0x20;
        if (typeI || typeVII) {
            for (std::size_t t = offset + 3; t + 20 <= offset + 3 + length; t += 20)
                displayIdTiming(reader, block, t, typeI ? 10 : 1, typeI ? "DisplayID type I" : "DisplayID type VII");
        } else if (tag != 0) {
            reader.note(block, "DisplayID data block with tag " + hexByte(tag) + " skipped");
        }
        offset += 3 + length;
    }
}

} // namespace edidvm::edid::detail
