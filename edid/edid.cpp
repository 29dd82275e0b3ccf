#include "edid/edid.h"

#include "edid/tables.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace edidvm::edid {
namespace {

constexpr std::size_t kBlockSize = 128;
constexpr std::size_t kDescriptorSize = 18;
constexpr std::size_t kExtensionCountByte = 126;
constexpr std::size_t kChecksumByte = 127;
constexpr std::uint8_t kHeader[8] = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
// The base block's four descriptors: timings or display descriptors.
constexpr std::size_t kBaseDescriptors[4] = {54, 72, 90, 108};
constexpr std::uint8_t kCtaTag = 0x02;
constexpr std::uint8_t kDisplayIdTag = 0x70;

struct ExtensionName
{
    std::uint8_t tag;
    const char* name;
};
// Extensions we recognise but do not decode: named in the note.
constexpr ExtensionName kSkippedExtensions[] = {
    {0x10, "video timing"},      {0x40, "display information"}, {0x50, "localized string"},
    {0x60, "packet video link"}, {0xF0, "block map"},           {0xFF, "manufacturer-defined"},
};

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

std::string hexByte(unsigned value)
{
    char text[8];
    std::snprintf(text, sizeof text, "0x%02x", value & 0xFFu);
    return text;
}

// Totals include both borders; a frame of an interlaced timing has one line
// more than its two fields.
void finish(Mode& m)
{
    const double hTotal = m.hActive + m.hFrontPorch + m.hSync + m.hBackPorch + 2 * m.hBorder;
    const double vTotal = m.vActive + m.vFrontPorch + m.vSync + m.vBackPorch + 2 * m.vBorder;
    m.width = m.hActive;
    const double pixelsPerSecond = m.pixelClockKHz * 1000.0;
    if (m.interlaced) {
        m.height = 2 * m.vActive;
        m.refreshHz = pixelsPerSecond / (hTotal * (vTotal + 0.5));
    } else {
        m.height = m.vActive;
        m.refreshHz = pixelsPerSecond / (hTotal * vTotal);
    }
}

Mode fromTable(Kind kind, std::string source, const tables::Timing& t)
{
    Mode m{};
    m.kind = kind;
    m.source = std::move(source);
    m.pixelClockKHz = t.pixelClockKHz;
    m.interlaced = t.interlaced;
    m.hActive = t.width;
    m.vActive = t.interlaced ? t.height / 2 : t.height;
    m.hFrontPorch = t.h.front;
    m.hSync = t.h.sync;
    m.hBackPorch = t.h.back;
    m.hBorder = t.h.border;
    m.hSyncPositive = t.h.positive;
    m.vFrontPorch = t.v.front;
    m.vSync = t.v.sync;
    m.vBackPorch = t.v.back;
    m.vBorder = t.v.border;
    m.vSyncPositive = t.v.positive;
    finish(m);
    return m;
}

Mode fromDmt(Kind kind, const tables::DmtTiming& dmt)
{
    Mode m = fromTable(kind, "DMT " + hexByte(static_cast<unsigned>(dmt.timing.code)), dmt.timing);
    m.reducedBlanking = dmt.reducedBlanking;
    return m;
}

// What the GTF and CVT formulas share: blanking split evenly around the
// horizontal sync, negative horizontal and positive vertical sync.
Mode formulaMode(const char* source, double clockKHz, int hPixels, int hBlank, int hSync, int height, int vFront,
                 int vSync, int vsyncBp)
{
    Mode m{};
    m.kind = Kind::Standard;
    m.source = source;
    m.pixelClockKHz = static_cast<std::uint32_t>(std::lround(clockKHz));
    m.hActive = hPixels;
    m.hFrontPorch = hBlank / 2 - hSync;
    m.hSync = hSync;
    m.hBackPorch = hBlank / 2;
    m.vActive = height;
    m.vFrontPorch = vFront;
    m.vSync = vSync;
    m.vBackPorch = vsyncBp - vSync;
    m.vSyncPositive = true;
    finish(m);
    return m;
}

// The GTF with its default curve (C 40, M 600, K 128, J 20), no margins,
// progressive; the pixel clock is kept to the kHz.
Mode gtf(int width, int height, double rate)
{
    constexpr double kMinVsyncBp = 550.0, kCPrime = 30.0, kMPrime = 300.0;
    constexpr int kCell = 8, kMinPorch = 1, kVsync = 3;
    const int hPixels = static_cast<int>(std::lround(width / double(kCell))) * kCell;
    const double hPeriodEst = (1.0 / rate - kMinVsyncBp / 1e6) / (height + kMinPorch) * 1e6;
    const int vsyncBp = static_cast<int>(std::lround(kMinVsyncBp / hPeriodEst));
    const int vTotal = height + vsyncBp + kMinPorch;
    const double rateEst = 1e6 / hPeriodEst / vTotal;
    const double hPeriod = hPeriodEst / (rate / rateEst);
    const double duty = kCPrime - kMPrime * hPeriod / 1000.0;
    const int hBlank = static_cast<int>(std::lround(hPixels * duty / (100.0 - duty) / (2 * kCell))) * 2 * kCell;
    const int hTotal = hPixels + hBlank;
    const int hSync = static_cast<int>(std::lround(0.08 * hTotal / kCell)) * kCell;
    return formulaMode("GTF", hTotal / hPeriod * 1000.0, hPixels, hBlank, hSync, height, kMinPorch, kVsync, vsyncBp);
}

// CVT with normal blanking, progressive, no margins; the pixel clock is a
// multiple of 0.25 MHz. The vertical sync width encodes the aspect ratio.
Mode cvt(int width, int height, double rate, int vSync)
{
    constexpr double kMinVsyncBp = 550.0, kCPrime = 30.0, kMPrime = 300.0;
    constexpr int kCell = 8, kMinVPorch = 3, kMinVBackPorch = 6;
    const int hPixels = width / kCell * kCell;
    const double hPeriodEst = (1.0 / rate - kMinVsyncBp / 1e6) / (height + kMinVPorch) * 1e6;
    int vsyncBp = static_cast<int>(std::floor(kMinVsyncBp / hPeriodEst)) + 1;
    vsyncBp = std::max(vsyncBp, vSync + kMinVBackPorch);
    const double duty = std::max(20.0, kCPrime - kMPrime * hPeriodEst / 1000.0);
    const int hBlank = static_cast<int>(std::floor(hPixels * duty / (100.0 - duty) / (2 * kCell))) * 2 * kCell;
    const int hTotal = hPixels + hBlank;
    const int hSync = static_cast<int>(std::floor(0.08 * hTotal / kCell)) * kCell;
    const double clockMHz = 0.25 * std::floor(hTotal / hPeriodEst / 0.25);
    return formulaMode("CVT", clockMHz * 1000.0, hPixels, hBlank, hSync, height, kMinVPorch, vSync, vsyncBp);
}

std::string descriptorText(const std::uint8_t* text)
{
    std::string out;
    for (std::size_t i = 0; i < 13 && text[i] != 0x0A; ++i)
        out += static_cast<char>(text[i]);
    while (!out.empty() && out.back() == ' ')
        out.pop_back();
    return out;
}

class Parser
{
public:
    Parser(const std::vector<std::uint8_t>& bytes, const std::string& source, Checks checks)
        : bytes_(bytes), source_(source), checks_(checks)
    {}

    Edid parse()
    {
        const std::size_t blocks = checkLayout();
        edid_.version = at(0, 18);
        edid_.revision = at(0, 19);
        edid_.blocks = static_cast<int>(blocks);
        decodeBase();
        for (std::size_t block = 1; block < blocks; ++block) {
            const std::uint8_t tag = at(block, 0);
            if (tag == kCtaTag) {
                decodeCta(block);
            } else if (tag == kDisplayIdTag) {
                decodeDisplayId(block);
            } else {
                note(block, extensionName(tag) + " skipped");
            }
        }
        for (std::size_t i = 0; i < edid_.modes.size(); ++i)
            edid_.modes[i].index = static_cast<int>(i);
        return std::move(edid_);
    }

private:
    [[noreturn]] void fail(std::size_t block, std::size_t byte, const std::string& what) const
    {
        throw EdidError(source_ + ": block " + std::to_string(block) + ", byte " + std::to_string(byte) + ": " + what);
    }
    // A fault edid-decode only reports: refused when strict, else a warning.
    void fault(std::size_t block, std::size_t byte, const std::string& what)
    {
        if (checks_ == Checks::Strict)
            fail(block, byte, what);
        edid_.warnings.push_back("block " + std::to_string(block) + ", byte " + std::to_string(byte) + ": " + what);
    }
    void note(std::size_t block, const std::string& what)
    {
        edid_.notes.push_back("block " + std::to_string(block) + ": " + what);
    }

    std::uint8_t at(std::size_t block, std::size_t byte) const { return bytes_[block * kBlockSize + byte]; }
    const std::uint8_t* ptr(std::size_t block, std::size_t byte) const { return &bytes_[block * kBlockSize + byte]; }
    unsigned pixelClock(std::size_t block, std::size_t offset) const
    {
        return at(block, offset) | at(block, offset + 1) << 8;
    }

    void add(Mode mode, std::size_t block)
    {
        mode.block = static_cast<int>(block);
        edid_.modes.push_back(std::move(mode));
    }

    // Everything that makes the file unusable is found before any mode is
    // decoded; returns the number of blocks to decode.
    std::size_t checkLayout()
    {
        const std::size_t size = bytes_.size();
        if (size < kBlockSize) {
            fail(0, size, "file ends after " + std::to_string(size) + " bytes, the base block needs 128");
        }
        if (size > kMaxFileSize) {
            fail(kMaxFileSize / kBlockSize, 0, "file holds " + std::to_string(size) + " bytes, more than 256 blocks");
        }
        for (std::size_t i = 0; i < sizeof kHeader; ++i) {
            if (at(0, i) != kHeader[i]) {
                fail(0, i,
                     "header byte is " + hexByte(at(0, i)) + ", must be " + hexByte(kHeader[i]) +
                         " (an EDID starts with 00 FF FF FF FF FF FF 00)");
            }
        }
        checkSum(0);
        if (size % kBlockSize != 0) {
            fail(size / kBlockSize, size % kBlockSize,
                 "file ends after " + std::to_string(size) + " bytes, inside block " +
                     std::to_string(size / kBlockSize));
        }
        const std::size_t extensions = size / kBlockSize - 1;
        if (at(0, kExtensionCountByte) != extensions) {
            fault(0, kExtensionCountByte,
                  "extension count is " + std::to_string(at(0, kExtensionCountByte)) + ", but the file holds " +
                      std::to_string(extensions) + " extension blocks (" + std::to_string(size) + " bytes)");
        }
        for (std::size_t block = 1; block <= extensions; ++block) {
            checkSum(block);
        }
        return extensions + 1;
    }

    void checkSum(std::size_t block)
    {
        unsigned sum = 0;
        for (std::size_t i = 0; i < kChecksumByte; ++i) {
            sum += at(block, i);
        }
        const unsigned wanted = (256 - sum % 256) % 256;
        if (at(block, kChecksumByte) != wanted) {
            fault(block, kChecksumByte,
                  "checksum is " + hexByte(at(block, kChecksumByte)) + ", must be " + hexByte(wanted) +
                      " to make the block sum to 0");
        }
    }

    void decodeBase()
    {
        for (int bit = 0; bit < 17; ++bit) {
            if ((at(0, 35 + bit / 8) & (0x80 >> bit % 8)) == 0)
                continue;
            const Established& entry = kEstablished[bit];
            if (entry.source != nullptr)
                add(fromTable(Kind::Established, entry.source, entry.timing), 0);
            else
                add(fromDmt(Kind::Established, *tables::dmt(entry.dmt)), 0);
        }
        for (std::size_t offset = 38; offset < 54; offset += 2)
            standardTiming(0, offset);
        // EDID 1.3 says in byte 24 whether the first detailed timing is the
        // preferred one; from 1.4 on it always is.
        const bool firstPreferred = edid_.revision >= 4 || edid_.version > 1 || (at(0, 24) & 0x02) != 0;
        bool first = true;
        for (std::size_t offset : kBaseDescriptors) {
            if (pixelClock(0, offset) != 0) {
                detailed(0, offset, first && firstPreferred);
                first = false;
            } else {
                displayDescriptor(offset);
            }
        }
    }

    // Two bytes: width / 8 - 31; aspect ratio and refresh - 60. Not in the
    // DMT table, a timing is computed with GTF, and from EDID 1.4 with CVT
    // too when the range limits say the monitor takes CVT (edid-decode lists
    // both, as a 1.3 and a 1.4 source would compute it).
    void standardTiming(std::size_t block, std::size_t offset)
    {
        const std::uint8_t b1 = at(block, offset), b2 = at(block, offset + 1);
        if ((b1 == 0x01 && b2 == 0x01) || b1 == 0x00)
            return; // unused
        if (const tables::DmtTiming* dmt = tables::dmtByStandardCode(static_cast<std::uint16_t>(b1 << 8 | b2))) {
            add(fromDmt(Kind::Standard, *dmt), block);
            return;
        }
        const int width = (b1 + 31) * 8;
        const int rate = (b2 & 0x3F) + 60;
        int height = 0, vSync = 10;
        switch (b2 >> 6) {
        case 0:
            if (edid_.version == 1 && edid_.revision < 3) {
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
        if (edid_.revision >= 4 && cvtRange())
            add(cvt(width, height, rate, vSync), block);
        add(gtf(width, height, rate), block);
    }

    bool cvtRange() const
    {
        for (std::size_t offset : kBaseDescriptors) {
            if (pixelClock(0, offset) == 0 && at(0, offset + 3) == 0xFD && at(0, offset + 10) == 0x04)
                return true;
        }
        return false;
    }

    void displayDescriptor(std::size_t offset)
    {
        const std::uint8_t tag = at(0, offset + 3);
        if (tag == 0xFC) {
            edid_.name = descriptorText(ptr(0, offset + 5));
        } else if (tag == 0xFF) {
            edid_.serialText = descriptorText(ptr(0, offset + 5));
        } else if (tag == 0xFD) {
            rangeLimits(offset);
        } else if (tag == 0xFA) {
            for (std::size_t i = 5; i < 17; i += 2)
                standardTiming(0, offset + i);
        } else if (tag == 0xF7) {
            for (int bit = 0; bit < 44; ++bit) {
                if (at(0, offset + 6 + static_cast<std::size_t>(bit / 8)) & (0x80 >> bit % 8))
                    add(fromDmt(Kind::Established, *tables::dmt(kEstablishedIII[bit])), 0);
            }
        } else if (tag == 0xF8) {
            note(0, "CVT 3-byte timing codes at byte " + std::to_string(offset) + " not decoded");
        }
    }

    void rangeLimits(std::size_t offset)
    {
        const unsigned flags = edid_.revision >= 4 ? at(0, offset + 4) : 0;
        // From EDID 1.4, flags add 255 to a maximum, or to both ends.
        auto value = [&](std::size_t byte, unsigned shift, bool isMax) {
            const unsigned bits = flags >> shift & 3u;
            const bool plus = bits == 3 || (bits == 2 && isMax);
            return at(0, offset + byte) + (plus ? 255 : 0);
        };
        static const char* const kFormulas[] = {"GTF", "bare limits", "secondary GTF", "", "CVT"};
        const unsigned formula = at(0, offset + 10);
        edid_.range = RangeLimits{value(5, 0, false),     value(6, 0, true),
                                  value(7, 2, false),     value(8, 2, true),
                                  at(0, offset + 9) * 10, formula < 5 && formula != 3 ? kFormulas[formula] : "unknown"};
    }

    void detailed(std::size_t block, std::size_t offset, bool preferred)
    {
        auto b = [&](std::size_t i) { return static_cast<int>(at(block, offset + i)); };
        Mode m{};
        m.kind = Kind::Detailed;
        m.source = "DTD " + std::to_string(++detailedCount_);
        m.preferred = preferred;
        m.pixelClockKHz = pixelClock(block, offset) * 10u;
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
            fail(block, offset,
                 "detailed timing has no active area (" + std::to_string(m.hActive) + "x" + std::to_string(m.vActive) +
                     ")");
        }
        finish(m);
        add(std::move(m), block);
    }

    // Revision 0 has nothing to decode. Data blocks (from revision 3) run
    // from byte 4 to the offset in byte 2, where the detailed timings start;
    // those run up to the checksum byte and end early at the first all-zero
    // descriptor (padding). Display descriptors among them are skipped.
    void decodeCta(std::size_t block)
    {
        const unsigned revision = at(block, 1);
        if (revision == 0) {
            note(block, "CTA-861 extension of revision 0 skipped");
            return;
        }
        const std::size_t start = at(block, 2);
        if (start == 0) {
            return;
        }
        if (start < 4 || start > kChecksumByte) {
            fail(block, 2, "detailed timings offset is " + std::to_string(start) + ", must be 0 (none) or 4 to 127");
        }
        if (revision >= 3)
            dataBlocks(block, start);
        for (std::size_t offset = start; offset + kDescriptorSize <= kChecksumByte; offset += kDescriptorSize) {
            const std::uint8_t* first = ptr(block, offset);
            if (std::all_of(first, first + kDescriptorSize, [](std::uint8_t byte) { return byte == 0; })) {
                return;
            }
            if (pixelClock(block, offset) != 0) {
                detailed(block, offset, false);
            }
        }
    }

    void dataBlocks(std::size_t block, std::size_t end)
    {
        std::size_t offset = 4;
        while (offset < end) {
            const unsigned tag = at(block, offset) >> 5;
            const std::size_t length = at(block, offset) & 0x1F;
            if (offset + 1 + length > end) {
                fail(block, offset,
                     "data block of " + std::to_string(length) + " bytes runs past the detailed timings at byte " +
                         std::to_string(end));
            }
            const std::size_t payload = offset + 1;
            if (tag == 2) {
                shortVideo(block, payload, length);
            } else if (tag == 3 && length >= 3 && at(block, payload) == 0x03 && at(block, payload + 1) == 0x0C &&
                       at(block, payload + 2) == 0x00) {
                hdmiVendorBlock(block, payload, length);
            } else if (tag == 7 && length >= 1 && at(block, payload) == 14) {
                shortVideo(block, payload + 1, length - 1); // modes only in YCbCr 4:2:0
            }
            offset = payload + length;
        }
    }

    void shortVideo(std::size_t block, std::size_t offset, std::size_t length)
    {
        for (std::size_t i = 0; i < length; ++i) {
            const unsigned svd = at(block, offset + i);
            // 129 to 192 are VICs 1 to 64 marked native.
            const int vic = static_cast<int>(svd >= 129 && svd <= 192 ? svd & 0x7F : svd);
            if (const tables::Timing* timing = tables::vic(vic))
                add(fromTable(Kind::Vic, "VIC " + std::to_string(vic), *timing), block);
            else
                note(block, "unknown VIC " + std::to_string(vic) + " at byte " + std::to_string(offset + i));
        }
    }

    // After the OUI, the address, two optional bytes and the flags byte: the
    // latencies if present, then the video part with its VIC count.
    void hdmiVendorBlock(std::size_t block, std::size_t payload, std::size_t length)
    {
        if (length < 8 || (at(block, payload + 7) & 0x20) == 0)
            return;
        const unsigned flags = at(block, payload + 7);
        std::size_t i = 8 + ((flags & 0x80) ? 2 : 0) + ((flags & 0x40) ? 2 : 0);
        if (i + 2 > length)
            fail(block, payload + 7, "HDMI vendor block too short for the video part its flags announce");
        const std::size_t count = at(block, payload + i + 1) >> 5;
        i += 2;
        if (i + count > length)
            fail(block, payload + i - 1, "HDMI vendor block too short for its " + std::to_string(count) + " HDMI VICs");
        for (std::size_t k = 0; k < count; ++k) {
            const int code = at(block, payload + i + k);
            if (const tables::Timing* timing = tables::hdmiVic(code))
                add(fromTable(Kind::HdmiVic, "HDMI VIC " + std::to_string(code), *timing), block);
            else
                note(block, "unknown HDMI VIC " + std::to_string(code) + " at byte " + std::to_string(payload + i + k));
        }
    }

    // A section: version, payload length, product type, extension count, then
    // data blocks (tag, revision, length). Type I timings (tag 0x03, version
    // 1.x) count the pixel clock in 10 kHz, type VII (tag 0x22, version 2.0)
    // in 1 kHz; every stored value is one less than it means.
    void decodeDisplayId(std::size_t block)
    {
        const unsigned version = at(block, 1);
        const std::size_t end = 5 + static_cast<std::size_t>(at(block, 2));
        if (end > kChecksumByte - 1) {
            fail(block, 2, "DisplayID section of " + std::to_string(at(block, 2)) + " bytes does not fit the block");
        }
        std::size_t offset = 5;
        while (offset + 3 <= end) {
            const unsigned tag = at(block, offset);
            const std::size_t length = at(block, offset + 2);
            if (offset + 3 + length > end) {
                fail(block, offset,
                     "DisplayID data block of " + std::to_string(length) + " bytes runs past its section");
            }
            const bool typeI = tag == 0x03 && version < 0x20;
            const bool typeVII = tag == 0x22 && version >= 0x20;
            if (typeI || typeVII) {
                for (std::size_t t = offset + 3; t + 20 <= offset + 3 + length; t += 20)
                    displayIdTiming(block, t, typeI ? 10 : 1, typeI ? "DisplayID type I" : "DisplayID type VII");
            } else if (tag != 0) {
                note(block, "DisplayID data block with tag " + hexByte(tag) + " skipped");
            }
            offset += 3 + length;
        }
    }

    void displayIdTiming(std::size_t block, std::size_t offset, unsigned clockUnitKHz, const char* source)
    {
        auto word = [&](std::size_t i) { return at(block, offset + i) | at(block, offset + i + 1) << 8; };
        Mode m{};
        m.kind = Kind::DisplayId;
        m.source = source;
        const unsigned clock = (at(block, offset) | at(block, offset + 1) << 8 | at(block, offset + 2) << 16) + 1u;
        m.pixelClockKHz = clock * clockUnitKHz;
        const unsigned options = at(block, offset + 3);
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
        add(std::move(m), block);
    }

    static std::string extensionName(std::uint8_t tag)
    {
        for (const ExtensionName& known : kSkippedExtensions) {
            if (known.tag == tag) {
                return std::string(known.name) + " extension";
            }
        }
        return "extension with unknown tag " + hexByte(tag);
    }

    const std::vector<std::uint8_t>& bytes_;
    const std::string& source_;
    Checks checks_;
    Edid edid_;
    int detailedCount_ = 0;
};

} // namespace

Edid parseEdid(const std::vector<std::uint8_t>& bytes, const std::string& source, Checks checks)
{
    return Parser(bytes, source, checks).parse();
}

Edid loadEdidFile(const std::string& path, Checks checks)
{
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error) {
        throw EdidError(path + ": cannot be opened: " + error.message());
    }
    // A FIFO or device would hang or never end.
    if (status.type() == std::filesystem::file_type::directory) {
        throw EdidError(path + ": cannot be read: Is a directory");
    }
    if (status.type() != std::filesystem::file_type::regular) {
        throw EdidError(path + ": cannot be read: not a regular file");
    }
    // A hex dump takes three characters a byte, and some lines.
    constexpr std::uintmax_t kMaxText = 4 * kMaxFileSize;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (!error && size > kMaxText) {
        throw EdidError(path + ": file holds " + std::to_string(size) + " bytes; an EDID has at most " +
                        std::to_string(kMaxFileSize) + " (256 blocks), its hex dump " + std::to_string(kMaxText));
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw EdidError(path + ": cannot be opened: " + std::strerror(errno));
    }
    // Never more than the limit, should the file grow meanwhile.
    std::vector<std::uint8_t> bytes(kMaxText);
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (in.bad()) {
        throw EdidError(path + ": cannot be read: " + std::strerror(errno));
    }
    bytes.resize(static_cast<std::size_t>(in.gcount()));
    // The binary header starts with a NUL, which a hex dump never holds.
    const bool text = !bytes.empty() && std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) {
        return (byte >= 0x20 && byte < 0x7F) || byte == '\n' || byte == '\r' || byte == '\t';
    });
    if (text)
        bytes = parseHexDump(std::string(bytes.begin(), bytes.end()), path);
    return parseEdid(bytes, path, checks);
}

std::vector<std::uint8_t> parseHexDump(const std::string& text, const std::string& source)
{
    std::vector<std::uint8_t> bytes;
    std::size_t line = 0, start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string row = text.substr(start, end - start);
        ++line;
        start = end + 1;
        if (row.rfind("edid-decode (hex):", 0) == 0 && bytes.empty())
            continue;
        if (row.find("----") != std::string::npos)
            break;
        for (std::size_t i = 0; i < row.size();) {
            if (std::isspace(static_cast<unsigned char>(row[i]))) {
                ++i;
                continue;
            }
            const bool pair = i + 1 < row.size() && std::isxdigit(static_cast<unsigned char>(row[i])) &&
                              std::isxdigit(static_cast<unsigned char>(row[i + 1]));
            if (!pair) {
                throw EdidError(source + ": line " + std::to_string(line) + ", column " + std::to_string(i + 1) +
                                ": expected a byte as two hex digits, got '" + row.substr(i, 8) + "'");
            }
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(row.substr(i, 2), nullptr, 16)));
            i += 2;
        }
    }
    return bytes;
}

std::string describe(const Mode& mode)
{
    char text[64];
    std::snprintf(text, sizeof text, "%dx%d%s@%.2f", mode.width, mode.height, mode.interlaced ? "i" : "",
                  mode.refreshHz);
    return text;
}

} // namespace edidvm::edid
