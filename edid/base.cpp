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

// Up to the line feed that ends a short text; a byte that is no printable
// ASCII ends it too, as edid-decode shows such a text, so that every text
// taken from an EDID is plain ASCII.
std::string descriptorText(const Reader& reader, std::size_t offset)
{
    std::string out;
    for (std::size_t i = 0; i < 13; ++i) {
        const std::uint8_t byte = reader.at(0, offset + 5 + i);
        if (byte < 0x20 || byte > 0x7E)
            break;
        out += static_cast<char>(byte);
    }
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
    RangeLimits range{value(5, 0, false),
                      value(6, 0, true),
                      value(7, 2, false),
                      value(8, 2, true),
                      reader.at(0, offset + 9) * 10,
                      formula < 5 && formula != 3 ? kFormulas[formula] : "unknown",
                      {}};
    if (formula == 2) {
        GtfCurve curve;
        curve.startKHz = reader.at(0, offset + 12) * 2;
        curve.c = reader.at(0, offset + 13) / 2.0;
        curve.m = static_cast<int>(reader.word(0, offset + 14));
        curve.k = reader.at(0, offset + 16);
        curve.j = reader.at(0, offset + 17) / 2.0;
        range.secondaryCurve = curve;
    }
    reader.edid().range = std::move(range);
}

void displayDescriptor(Reader& reader, std::size_t offset)
{
    const std::uint8_t tag = reader.at(0, offset + 3);
    if (tag == 0xFC) {
        reader.edid().name = descriptorText(reader, offset);
    } else if (tag == 0xFF) {
        reader.edid().serialText = descriptorText(reader, offset);
    } else if (tag == 0xFE) {
        reader.edid().strings.push_back(descriptorText(reader, offset));
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
        for (std::size_t i = 6; i < 18; i += 3)
            cvtCode(reader, 0, offset + i);
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
            if (detailedTiming(reader, 0, offset, first && firstPreferred))
                first = false;
        } else {
            displayDescriptor(reader, offset);
        }
    }
}

// Two bytes: width / 8 - 31; aspect ratio and refresh - 60. The DMT table
// names some codes; others are computed with GTF, or from EDID 1.4 with CVT
// when the range limits say the monitor takes CVT (edid-decode also lists
// the GTF reading then, as a 1.3 source would compute it). EDID 1.0 and 1.1
// came before GTF and have no timing for them.
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
    int height = 0;
    switch (b2 >> 6) {
    case 0:
        height = edid.version == 1 && edid.revision < 3 ? width : width * 10 / 16;
        break;
    case 1:
        height = width * 3 / 4;
        break;
    case 2:
        height = width * 4 / 5;
        break;
    default:
        height = width * 9 / 16;
        break;
    }
    if (edid.version == 1 && edid.revision < 2) {
        reader.note(block, "standard timing " + std::to_string(width) + "x" + std::to_string(height) + "@" +
                               std::to_string(rate) + " at byte " + std::to_string(offset) +
                               " is no DMT mode, and EDID 1." + std::to_string(edid.revision) +
                               " has no formula for others: no timing");
        return;
    }
    const bool oneFour = edid.version > 1 || edid.revision >= 4;
    // A VTB-EXT block's standard timings are GTF's, as before EDID 1.4.
    const bool withCvt = block == 0 && oneFour && cvtRange(reader);
    reader.add(withCvt ? cvt(width, height, rate) : gtf(width, height, rate), block);
}

// Three bytes: lines / 2 - 1 in 12 bits and the aspect ratio; the preferred
// rate (not a mode of its own) and the rates supported, each a mode: 50, 60,
// 75 and 85 Hz with standard blanking, 60 Hz reduced.
void cvtCode(Reader& reader, std::size_t block, std::size_t offset)
{
    const unsigned b0 = reader.at(block, offset), b1 = reader.at(block, offset + 1), b2 = reader.at(block, offset + 2);
    if (b0 == 0 && b1 == 0 && b2 == 0)
        return; // unused
    const int height = static_cast<int>((b0 | (b1 >> 4) << 8) + 1) * 2;
    static const int kAspect[4][2] = {{4, 3}, {16, 9}, {16, 10}, {15, 9}};
    const int* aspect = kAspect[b1 >> 2 & 3];
    const int width = height * aspect[0] / aspect[1] / 8 * 8;
    static const struct
    {
        unsigned bit;
        int rate;
        Blanking blanking;
    } kRates[] = {{0x10, 50, Blanking::Standard},
                  {0x08, 60, Blanking::Standard},
                  {0x04, 75, Blanking::Standard},
                  {0x02, 85, Blanking::Standard},
                  {0x01, 60, Blanking::Reduced}};
    for (const auto& rate : kRates) {
        if ((b2 & rate.bit) == 0)
            continue;
        Mode m = cvt(width, height, rate.rate, rate.blanking);
        m.kind = Kind::Cvt;
        if (computed(m))
            reader.add(std::move(m), block);
        else
            reader.note(block, "CVT code at byte " + std::to_string(offset) + ", " + std::to_string(width) + "x" +
                                   std::to_string(height) + "@" + std::to_string(rate.rate) + ": no timing");
    }
}

// Below 10 MHz the descriptor holds no timing (edid-decode shows its bytes),
// though it takes a number.
bool detailedTiming(Reader& reader, std::size_t block, std::size_t offset, bool preferred, const std::string& vtbSource)
{
    auto b = [&](std::size_t i) { return static_cast<int>(reader.at(block, offset + i)); };
    const std::string source = vtbSource.empty() ? "DTD " + std::to_string(reader.nextDetailedNumber()) : vtbSource;
    Mode m{};
    m.kind = Kind::Detailed;
    m.source = source;
    m.preferred = preferred;
    m.pixelClockKHz = reader.word(block, offset) * 10u;
    if (m.pixelClockKHz < 10000) {
        reader.note(block, source + " at byte " + std::to_string(offset) + ": pixel clock " +
                               std::to_string(m.pixelClockKHz) + " kHz, below 10 MHz: no timing");
        return false;
    }
    bool erased = true;
    for (std::size_t i = 0; i < kDescriptorSize; ++i)
        erased = erased && b(i) == 0xFF;
    if (erased)
        reader.fault(block, offset, source + " is all 0xff bytes, as erased memory reads");
    // Each value's low 8 bits have a byte; the high bits share bytes 4, 7 and 11.
    m.hActive = b(2) | (b(4) >> 4) << 8;
    const int hBlank = b(3) | (b(4) & 0x0F) << 8;
    m.vActive = b(5) | (b(7) >> 4) << 8;
    const int vBlank = b(6) | (b(7) & 0x0F) << 8;
    m.hFrontPorch = b(8) | (b(11) >> 6) << 8;
    m.hSync = b(9) | (b(11) >> 4 & 0x03) << 8;
    m.vFrontPorch = (b(10) >> 4) | (b(11) >> 2 & 0x03) << 4;
    m.vSync = (b(10) & 0x0F) | (b(11) & 0x03) << 4;
    // The borders lie inside the blanking, for progressive and interlaced
    // timings alike.
    m.hBorder = b(15);
    m.vBorder = b(16);
    m.hBackPorch = hBlank - m.hFrontPorch - m.hSync - 2 * m.hBorder;
    m.vBackPorch = vBlank - m.vFrontPorch - m.vSync - 2 * m.vBorder;
    m.interlaced = (b(17) & 0x80) != 0;
    // Bits 4 and 3 say the kind of sync; bit 2 is the vertical polarity of
    // separate digital sync, bit 1 the horizontal one of either digital sync.
    const int flags = b(17);
    switch (flags >> 3 & 3) {
    case 0:
        m.sync = Sync::AnalogComposite;
        break;
    case 1:
        m.sync = Sync::BipolarAnalogComposite;
        break;
    case 2:
        m.sync = Sync::DigitalComposite;
        m.hSyncPositive = (flags & 0x02) != 0;
        break;
    default:
        m.sync = Sync::Separate;
        m.hSyncPositive = (flags & 0x02) != 0;
        m.vSyncPositive = (flags & 0x04) != 0;
        break;
    }
    const std::string size = std::to_string(m.hActive) + "x" + std::to_string(m.vActive);
    if (m.hActive + hBlank == 0 || m.vActive + vBlank == 0) {
        reader.fault(block, offset,
                     source + " has no lines or no pixels (" + size + ", blanking " + std::to_string(hBlank) + "x" +
                         std::to_string(vBlank) + "): no timing");
        return false;
    }
    if (m.hActive == 0 || m.vActive == 0)
        reader.fault(block, offset, "detailed timing has no active area (" + size + ")");
    if (m.hBackPorch < 0 || m.vBackPorch < 0) {
        reader.fault(block, offset,
                     source + " has porches, sync and borders longer than its blanking (back porch " +
                         std::to_string(m.hBackPorch) + " h, " + std::to_string(m.vBackPorch) + " v)");
    }
    finish(m);
    reader.add(std::move(m), block);
    return true;
}

} // namespace edidvm::edid::detail
