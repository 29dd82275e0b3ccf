// SPDX-License-Identifier: MIT
// DisplayID extension blocks: every kind of timing data block of versions
// 1.x and 2.0 (detailed timings, DMT and VIC codes and bitmaps, CVT short
// timings), and the CTA-861 data blocks DisplayID carries.
#include "edid/edid_p.h"

#include <string>
#include <utility>

namespace edidvm::edid::detail {
namespace {

struct Section
{
    Reader& reader;
    std::size_t block;
    unsigned version;
};

// Interlaced, the vertical values are the frame's; a field has half of
// each, as edid-decode reads them.
void halveVertical(Mode& m)
{
    if (!m.interlaced)
        return;
    m.vActive /= 2;
    m.vFrontPorch /= 2;
    m.vSync /= 2;
    m.vBackPorch /= 2;
}

// Listed as the bytes give it, with a warning when its porches, sync and
// borders are longer than its blanking.
void addTiming(const Section& s, std::size_t at, Mode m)
{
    if (m.hActive <= 0 || m.vActive <= 0) {
        s.reader.note(s.block, m.source + " timing at byte " + std::to_string(at) + " has no active lines: no timing");
        return;
    }
    if (m.hBackPorch < 0 || m.vBackPorch < 0) {
        s.reader.fault(s.block, at,
                       m.source + " timing has porches and sync longer than its blanking (back porch " +
                           std::to_string(m.hBackPorch) + " h, " + std::to_string(m.vBackPorch) + " v)");
    }
    finish(m);
    s.reader.add(std::move(m), s.block);
}

// Type I (clock in 10 kHz) and type VII (in kHz): 20 bytes; every stored
// value is one less than it means. Options: bit 7 preferred, bit 4
// interlaced; the top bit of each front porch is its sync's polarity.
void detailed20(const Section& s, std::size_t offset, unsigned clockUnitKHz, const char* source)
{
    auto word = [&](std::size_t i) { return static_cast<int>(s.reader.word(s.block, offset + i)); };
    Mode m{};
    m.kind = Kind::DisplayId;
    m.source = source;
    m.pixelClockKHz = (s.reader.triple(s.block, offset) + 1u) * clockUnitKHz;
    const unsigned options = s.reader.at(s.block, offset + 3);
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
    halveVertical(m);
    addTiming(s, offset, std::move(m));
}

// Type II: 11 bytes, horizontal values in 8-pixel cells; options as type
// I's, bit 3 the horizontal and bit 2 the vertical sync polarity.
void detailed11(const Section& s, std::size_t offset)
{
    auto b = [&](std::size_t i) { return static_cast<int>(s.reader.at(s.block, offset + i)); };
    Mode m{};
    m.kind = Kind::DisplayId;
    m.source = "DisplayID type II";
    m.pixelClockKHz = (s.reader.triple(s.block, offset) + 1u) * 10u;
    const int options = b(3);
    m.preferred = (options & 0x80) != 0;
    m.interlaced = (options & 0x10) != 0;
    m.hSyncPositive = (options & 0x08) != 0;
    m.vSyncPositive = (options & 0x04) != 0;
    m.hActive = ((b(4) | (b(5) & 1) << 8) + 1) * 8;
    const int hBlank = ((b(5) >> 1) + 1) * 8;
    m.hFrontPorch = ((b(6) >> 4) + 1) * 8;
    m.hSync = ((b(6) & 0x0F) + 1) * 8;
    m.vActive = (b(7) | (b(8) & 0x0F) << 8) + 1;
    const int vBlank = b(9) + 1;
    m.vFrontPorch = (b(10) >> 4) + 1;
    m.vSync = (b(10) & 0x0F) + 1;
    m.hBackPorch = hBlank - m.hFrontPorch - m.hSync;
    m.vBackPorch = vBlank - m.vFrontPorch - m.vSync;
    halveVertical(m);
    addTiming(s, offset, std::move(m));
}

void formula(const Section& s, std::size_t at, const char* source, int width, int height, int rate, Blanking blanking,
             bool preferred)
{
    Mode m = cvt(width, height, rate, blanking);
    if (!computed(m)) {
        s.reader.note(s.block, std::string(source) + " timing at byte " + std::to_string(at) + ", " +
                                   std::to_string(width) + "x" + std::to_string(height) + "@" + std::to_string(rate) +
                                   ": the formula gives no timing");
        return;
    }
    m.kind = Kind::DisplayId;
    m.source = source;
    m.preferred = preferred;
    s.reader.add(std::move(m), s.block);
}

// Type III: 3 bytes: preferred, the formula and the aspect ratio the height
// follows from; the width in 8-pixel cells; the refresh.
void shortTiming(const Section& s, std::size_t offset)
{
    static const int kAspect[8][2] = {{1, 1}, {5, 4}, {4, 3}, {15, 9}, {16, 9}, {16, 10}, {64, 27}, {256, 135}};
    const unsigned b0 = s.reader.at(s.block, offset);
    const unsigned formulaCode = b0 >> 4 & 7, aspect = b0 & 0x0F;
    if (formulaCode > 1 || aspect > 7) {
        s.reader.note(s.block, "DisplayID type III timing at byte " + std::to_string(offset) +
                                   " with a reserved formula or aspect ratio skipped");
        return;
    }
    const int width = (s.reader.at(s.block, offset + 1) + 1) * 8;
    const int height = width * kAspect[aspect][1] / kAspect[aspect][0];
    const int rate = (s.reader.at(s.block, offset + 2) & 0x7F) + 1;
    formula(s, offset, "DisplayID type III", width, height, rate,
            formulaCode == 1 ? Blanking::Reduced : Blanking::Standard, (b0 & 0x80) != 0);
}

// Type V (7 bytes, reduced blanking version 2) and type IX (6 bytes, the
// formula in the options): the size and refresh, each one less than it means.
void formulaTiming(const Section& s, std::size_t offset, bool typeV)
{
    const unsigned options = s.reader.at(s.block, offset);
    const std::size_t size = offset + (typeV ? 2 : 1);
    Blanking blanking = Blanking::ReducedV2;
    if (!typeV) {
        static const Blanking kFormulas[] = {Blanking::Standard, Blanking::Reduced, Blanking::ReducedV2};
        if ((options & 7) > 2) {
            s.reader.note(s.block, "DisplayID type IX timing at byte " + std::to_string(offset) +
                                       " with a reserved formula skipped");
            return;
        }
        blanking = kFormulas[options & 7];
    }
    const int width = static_cast<int>(s.reader.word(s.block, size)) + 1;
    const int height = static_cast<int>(s.reader.word(s.block, size + 2)) + 1;
    const int rate = s.reader.at(s.block, size + 4) + 1;
    formula(s, offset, typeV ? "DisplayID type V" : "DisplayID type IX", width, height, rate, blanking,
            typeV && (options & 0x80) != 0);
}

// A timing named by a table's code: DMT, VIC or HDMI VIC.
enum class Code { Dmt, Vic, HdmiVic };

void codedTiming(const Section& s, std::size_t at, Code table, unsigned code)
{
    if (table == Code::Dmt) {
        if (const tables::DmtTiming* dmt = tables::dmt(static_cast<int>(code))) {
            s.reader.add(fromDmt(Kind::DisplayId, *dmt, "DisplayID "), s.block);
            return;
        }
    } else {
        const std::string name = table == Code::Vic ? "VIC " : "HDMI VIC ";
        const tables::Timing* timing =
            table == Code::Vic ? tables::vic(static_cast<int>(code)) : tables::hdmiVic(static_cast<int>(code));
        if (timing != nullptr) {
            s.reader.add(fromTable(Kind::DisplayId, "DisplayID " + name + std::to_string(code), *timing), s.block);
            return;
        }
    }
    s.reader.note(s.block, "unknown code " + std::to_string(code) + " at byte " + std::to_string(at));
}

// Bit n (from the low bit of the first byte up) names code n + 1.
void bitmap(const Section& s, std::size_t payload, std::size_t length, Code table)
{
    for (std::size_t i = 0; i < length * 8; ++i) {
        if (s.reader.at(s.block, payload + i / 8) & (1u << i % 8))
            codedTiming(s, payload + i / 8, table, static_cast<unsigned>(i + 1));
    }
}

// Entries of a fixed size, as many as the block holds whole.
template <typename Decode>
void entries(std::size_t payload, std::size_t length, std::size_t size, Decode decode)
{
    for (std::size_t offset = payload; offset + size <= payload + length; offset += size)
        decode(offset);
}

void dataBlock(const Section& s, unsigned tag, unsigned revision, std::size_t payload, std::size_t length)
{
    // Tags below 0x20 are version 1's, from 0x20 version 2's; 0x81 is both's.
    const bool two = s.version >= 0x20;
    if (tag == 0x81) {
        ctaDataBlocks(s.reader, s.block, payload, payload + length);
        return;
    }
    if (two != (tag >= 0x20) || tag >= 0x80) {
        s.reader.note(s.block, "DisplayID data block with tag " + hexByte(tag) + " skipped");
        return;
    }
    switch (tag) {
    case 0x03:
        entries(payload, length, 20, [&](std::size_t at) { detailed20(s, at, 10, "DisplayID type I"); });
        break;
    case 0x04:
        entries(payload, length, 11, [&](std::size_t at) { detailed11(s, at); });
        break;
    case 0x05:
        entries(payload, length, 3, [&](std::size_t at) { shortTiming(s, at); });
        break;
    case 0x06:
        entries(payload, length, 1, [&](std::size_t at) { codedTiming(s, at, Code::Dmt, s.reader.at(s.block, at)); });
        break;
    case 0x07:
        bitmap(s, payload, length, Code::Dmt);
        break;
    case 0x08:
        bitmap(s, payload, length, Code::Vic);
        break;
    case 0x11:
        entries(payload, length, 7, [&](std::size_t at) { formulaTiming(s, at, true); });
        break;
    case 0x22:
        entries(payload, length, 20, [&](std::size_t at) { detailed20(s, at, 1, "DisplayID type VII"); });
        break;
    case 0x23: {
        // The revision's top bits say the table, bit 3 two-byte codes.
        const unsigned kind = revision >> 6;
        const std::size_t size = (revision & 0x08) ? 2 : 1;
        if (kind == 3) {
            s.reader.note(s.block, "DisplayID type VIII block with reserved codes skipped");
            break;
        }
        entries(payload, length, size, [&](std::size_t at) {
            codedTiming(s, at, static_cast<Code>(kind),
                        size == 2 ? s.reader.word(s.block, at) : s.reader.at(s.block, at));
        });
        break;
    }
    case 0x24:
        entries(payload, length, 6, [&](std::size_t at) { formulaTiming(s, at, false); });
        break;
    default:
        s.reader.note(s.block, "DisplayID data block with tag " + hexByte(tag) + " skipped");
        break;
    }
}

} // namespace

// A section: version, payload length, product type, extension count, then
// data blocks (tag, revision, length) and the section's checksum. A header
// of tag 0 and length 0 starts the padding to the section's end.
void decodeDisplayId(Reader& reader, std::size_t block)
{
    const Section s{reader, block, reader.at(block, 1)};
    std::size_t end = 5 + static_cast<std::size_t>(reader.at(block, 2));
    if (end > kChecksumByte - 1) {
        reader.fault(block, 2,
                     "DisplayID section of " + std::to_string(reader.at(block, 2)) + " bytes does not fit the block");
        end = kChecksumByte - 1;
    }
    std::size_t offset = 5;
    while (offset + 3 <= end) {
        const unsigned tag = reader.at(block, offset);
        const std::size_t length = reader.at(block, offset + 2);
        if (tag == 0 && length == 0)
            break;
        if (offset + 3 + length > end) {
            reader.fault(block, offset,
                         "DisplayID data block of " + std::to_string(length) + " bytes runs past its section");
            break;
        }
        dataBlock(s, tag, reader.at(block, offset + 1), offset + 3, length);
        offset += 3 + length;
    }
}

} // namespace edidvm::edid::detail
