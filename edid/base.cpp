// SPDX-License-Identifier: MIT
// The base block: established and standard timings, and its four
// descriptors (detailed timings, name, serial text, range limits, more
// standard and established timings).
#include "edid/edid_p.h"

#include <cstdint>
#include <string>
#include <utility>

namespace edidvm::edid::detail {
namespace {

// The base block's four descriptors: timings or display descriptors.
constexpr std::size_t kBaseDescriptors[4] = {54, 72, 90, 108};

// Established timings I & II, bytes 35 to 37 from the high bit down: a DMT
// ID, or a timing of its own (IBM, Apple) that the DMT table lacks.
struct Established
{
    int dmt;
    const char* source;
    tables::Timing timing;
};
constexpr Established kEstablished[17] = {
    {0, "IBM", {0, 720, 400, false, 28320, {18, 108, 54, 0, false}, {21, 2, 26, 0, true}}},
    {0, "IBM", {0, 720, 400, false, 35500, {18, 108, 54, 0, false}, {12, 2, 35, 0, true}}},
    {0x04, nullptr, {}},
    {0, "Apple", {0, 640, 480, false, 30240, {64, 64, 96, 0, false}, {3, 3, 39, 0, false}}},
    {0x05, nullptr, {}},
    {0x06, nullptr, {}},
    {0x08, nullptr, {}},
    {0x09, nullptr, {}},
    {0x0a, nullptr, {}},
    {0x0b, nullptr, {}},
    {0, "Apple", {0, 832, 624, false, 57284, {32, 64, 224, 0, false}, {1, 3, 39, 0, false}}},
    {0x0f, nullptr, {}},
    {0x10, nullptr, {}},
    {0x11, nullptr, {}},
    {0x12, nullptr, {}},
    {0x24, nullptr, {}},
    {0, "Apple", {0, 1152, 870, false, 100000, {48, 128, 128, 0, true}, {3, 3, 39, 0, true}}},
};
// Established timings III descriptor, bytes 6 to 11 from the high bit down.
constexpr int kEstablishedIII[44] = {
    0x01, 0x02, 0x03, 0x07, 0x0e, 0x0c, 0x13, 0x15, 0x16, 0x17, 0x18, 0x19, 0x20, 0x21, 0x23,
    0x25, 0x27, 0x2e, 0x2f, 0x30, 0x31, 0x29, 0x2a, 0x2b, 0x2c, 0x39, 0x3a, 0x3b, 0x3c, 0x33,
    0x34, 0x35, 0x36, 0x37, 0x3e, 0x3f, 0x41, 0x42, 0x44, 0x45, 0x46, 0x47, 0x49, 0x4a,
};

std::string descriptorText(const std::uint8_t* text)
{
    std::string out;
    for (std::size_t i = 0; i < 13 && text[i] != 0x0A; ++i)
        out += static_cast<char>(text[i]);
    while (!out.empty() && out.back() == ' ')
        out.pop_back();
    return out;
}

bool cvtRange(const Reader& reader)
{
    for (std::size_t offset : kBaseDescriptors) {
        if (reader.word(0, offset) == 0 && reader.at(0, offset + 3) == 0xFD && reader.at(0, offset + 10) == 0x04)
            return true;
    }
    return false;
}

// Two bytes: width / 8 - 31; aspect ratio and refresh - 60. Not in the
// DMT table, a timing is computed with GTF, and from EDID 1.4 with CVT
// too when the range limits say the monitor takes CVT (edid-decode lists
// both, as a 1.3 and a 1.4 source would compute it).
void standardTiming(Reader& reader, std::size_t block, std::size_t offset)
{
    const std::uint8_t b1 = reader.at(block, offset), b2 = reader.at(block, offset + 1);
    if ((b1 == 0x01 && b2 == 0x01) || b1 == 0x00)
        return; // unused
    if (const tables::DmtTiming* dmt = tables::dmtByStandardCode(static_cast<std::uint16_t>(b1 << 8 | b2))) {
        reader.add(fromDmt(Kind::Standard, *dmt), block);
        return;
    }
    const Edid& edid = reader.edid();
    const int width = (b1 + 31) * 8;
    const int rate = (b2 & 0x3F) + 60;
    int height = 0, vSync = 10;
    switch (b2 >> 6) {
    case 0:
        if (edid.version == 1 && edid.revision < 3) {
            height = width;
        } else {
            height = width * 10 / 16;
            vSync = 6;
        }
        break;
    case 1:
        height = width * 3 / 4;
        vSync = 4;
        break;
    case 2:
        height = width * 4 / 5;
        vSync = 7;
        break;
    default:
        height = width * 9 / 16;
        vSync = 5;
        break;
    }
    if (edid.revision >= 4 && cvtRange(reader))
        reader.add(cvt(width, height, rate, vSync), block);
    reader.add(gtf(width, height, rate), block);
}

void rangeLimits(Reader& reader, std::size_t offset)
{
    const unsigned flags = reader.edid().revision >= 4 ? reader.at(0, offset + 4) : 0;
    // From EDID 1.4, flags add 255 to a maximum, or to both ends.
    auto value = [&](std::size_t byte, unsigned shift, bool isMax) {
        const unsigned bits = flags >> shift & 3u;
        const bool plus = bits == 3 || (bits == 2 && isMax);
        return reader.at(0, offset + byte) + (plus ? 255 : 0);
    };
    static const char* const kFormulas[] = {"GTF", "bare limits", "secondary GTF", "", "CVT"};
    const unsigned formula = reader.at(0, offset + 10);
    reader.edid().range = RangeLimits{value(5, 0, false),
                                      value(6, 0, true),
                                      value(7, 2, false),
                                      value(8, 2, true),
                                      reader.at(0, offset + 9) * 10,
                                      formula < 5 && formula != 3 ? kFormulas[formula] : "unknown"};
}

void displayDescriptor(Reader& reader, std::size_t offset)
{
    const std::uint8_t tag = reader.at(0, offset + 3);
    if (tag == 0xFC) {
        reader.edid().name = descriptorText(reader.ptr(0, offset + 5));
    } else if (tag == 0xFF) {
        reader.edid().serialText = descriptorText(reader.ptr(0, offset + 5));
    } else if (tag == 0xFD) {
        rangeLimits(reader, offset);
    } else if (tag == 0xFA) {
        for (std::size_t i = 5; i < 17; i += 2)
            standardTiming(reader, 0, offset + i);
    } else if (tag == 0xF7) {
        for (int bit = 0; bit < 44; ++bit) {
            if (reader.at(0, offset + 6 + static_cast<std::size_t>(bit / 8)) & (0x80 >> bit % 8))
                reader.add(fromDmt(Kind::Established, *tables::dmt(kEstablishedIII[bit])), 0);
        }
    } else if (tag == 0xF8) {
        reader.note(0, "CVT 3-byte timing codes at byte " + std::to_string(offset) + " not decoded");
    }
}

} // namespace

void decodeBase(Reader& reader)
{
    for (int bit = 0; bit < 17; ++bit) {
        if ((reader.at(0, 35 + bit / 8) & (0x80 >> bit % 8)) == 0)
            continue;
        const Established& entry = kEstablished[bit];
        if (entry.source != nullptr)
            reader.add(fromTable(Kind::Established, entry.source, entry.timing), 0);
        else
            reader.add(fromDmt(Kind::Established, *tables::dmt(entry.dmt)), 0);
    }
    for (std::size_t offset = 38; offset < 54; offset += 2)
        standardTiming(reader, 0, offset);
    // EDID 1.3 says in byte 24 whether the first detailed timing is the
    // preferred one; from 1.4 on it always is.
    const Edid& edid = reader.edid();
    const bool firstPreferred = edid.revision >= 4 || edid.version > 1 || (reader.at(0, 24) & 0x02) != 0;
    bool first = true;
    for (std::size_t offset : kBaseDescriptors) {
        if (reader.word(0, offset) != 0) {
            detailedTiming(reader, 0, offset, first && firstPreferred);
            first = false;
        } else {
            displayDescriptor(reader, offset);
        }
    }
}

void detailedTiming(Reader& reader, std::size_t block, std::size_t offset, bool preferred)
{
    auto b = [&](std::size_t i) { return static_cast<int>(reader.at(block, offset + i)); };
    Mode m{};
    m.kind = Kind::Detailed;
    m.source = "DTD " + std::to_string(reader.nextDetailedNumber());
    m.preferred = preferred;
    m.pixelClockKHz = reader.word(block, offset) * 10u;
    // Each value's low 8 bits have a byte; the high bits share bytes 4, 7 and 11.
    m.hActive = b(2) | (b(4) >> 4) << 8;
    const int hBlank = b(3) | (b(4) & 0x0F) << 8;
    m.vActive = b(5) | (b(7) >> 4) << 8;
    const int vBlank = b(6) | (b(7) & 0x0F) << 8;
    m.hFrontPorch = b(8) | (b(11) >> 6) << 8;
    m.hSync = b(9) | (b(11) >> 4 & 0x03) << 8;
    m.vFrontPorch = (b(10) >> 4) | (b(11) >> 2 & 0x03) << 4;
    m.vSync = (b(10) & 0x0F) | (b(11) & 0x03) << 4;
    // The borders lie inside the blanking.
    m.hBorder = b(15);
    m.vBorder = b(16);
    m.hBackPorch = hBlank - m.hFrontPorch - m.hSync - 2 * m.hBorder;
    m.vBackPorch = vBlank - m.vFrontPorch - m.vSync - 2 * m.vBorder;
    m.interlaced = (b(17) & 0x80) != 0;
    // Digital separate sync carries both polarities; other kinds none.
    m.hSyncPositive = (b(17) & 0x18) == 0x18 && (b(17) & 0x02) != 0;
    m.vSyncPositive = (b(17) & 0x18) == 0x18 && (b(17) & 0x04) != 0;
    if (m.hActive == 0 || m.vActive == 0) {
        reader.fail(block, offset,
                    "detailed timing has no active area (" + std::to_string(m.hActive) + "x" +
                        std::to_string(m.vActive) + ")");
    }
    finish(m);
    reader.add(std::move(m), block);
}

} // namespace edidvm::edid::detail
