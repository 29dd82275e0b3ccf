#include "sim/edid/edid.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

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

struct ExtensionName
{
    std::uint8_t tag;
    const char* name;
};
// Extensions we recognise but do not decode: named in the note.
constexpr ExtensionName kSkippedExtensions[] = {
    {0x10, "video timing"}, {0x40, "display information"}, {0x50, "localized string"},     {0x60, "packet video link"},
    {0x70, "DisplayID"},    {0xF0, "block map"},           {0xFF, "manufacturer-defined"},
};

std::string hexByte(unsigned value)
{
    char text[8];
    std::snprintf(text, sizeof text, "0x%02x", value & 0xFFu);
    return text;
}

class Parser
{
public:
    Parser(const std::vector<std::uint8_t>& bytes, const std::string& source) : bytes_(bytes), source_(source) {}

    Edid parse()
    {
        checkLayout();
        const std::size_t blocks = bytes_.size() / kBlockSize;
        for (std::size_t offset : kBaseDescriptors) {
            // Unused slots (pixel clock 0) hold display descriptors or nothing.
            if (pixelClock(0, offset) != 0) {
                addTiming(0, offset);
            }
        }
        for (std::size_t block = 1; block < blocks; ++block) {
            const std::uint8_t tag = at(block, 0);
            if (tag == kCtaTag) {
                decodeCta(block);
            } else {
                edid_.notes.push_back("block " + std::to_string(block) + ": " + extensionName(tag) + " skipped");
            }
        }
        return std::move(edid_);
    }

private:
    [[noreturn]] void fail(std::size_t block, std::size_t byte, const std::string& what) const
    {
        throw EdidError(source_ + ": block " + std::to_string(block) + ", byte " + std::to_string(byte) + ": " + what);
    }

    std::uint8_t at(std::size_t block, std::size_t byte) const { return bytes_[block * kBlockSize + byte]; }
    unsigned pixelClock(std::size_t block, std::size_t offset) const
    {
        return at(block, offset) | at(block, offset + 1) << 8;
    }

    // Everything that makes the file unusable is found before any timing is decoded.
    void checkLayout() const
    {
        const std::size_t size = bytes_.size();
        if (size < kBlockSize) {
            fail(0, size, "file ends after " + std::to_string(size) + " bytes, the base block needs 128");
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
            fail(0, kExtensionCountByte,
                 "extension count is " + std::to_string(at(0, kExtensionCountByte)) + ", but the file holds " +
                     std::to_string(extensions) + " extension blocks (" + std::to_string(size) + " bytes)");
        }
        for (std::size_t block = 1; block <= extensions; ++block) {
            checkSum(block);
        }
    }

    void checkSum(std::size_t block) const
    {
        unsigned sum = 0;
        for (std::size_t i = 0; i < kChecksumByte; ++i) {
            sum += at(block, i);
        }
        const unsigned wanted = (256 - sum % 256) % 256;
        if (at(block, kChecksumByte) != wanted) {
            fail(block, kChecksumByte,
                 "checksum is " + hexByte(at(block, kChecksumByte)) + ", must be " + hexByte(wanted) +
                     " to make the block sum to 0");
        }
    }

    // Byte 2 gives where the detailed timings start; 0 means the block has none.
    // They run up to the checksum byte and end early at the first all-zero
    // descriptor (padding); display descriptors among them are skipped.
    void decodeCta(std::size_t block)
    {
        const std::size_t start = at(block, 2);
        if (start == 0) {
            return;
        }
        if (start < 4 || start > kChecksumByte) {
            fail(block, 2, "detailed timings offset is " + std::to_string(start) + ", must be 0 (none) or 4 to 127");
        }
        for (std::size_t offset = start; offset + kDescriptorSize <= kChecksumByte; offset += kDescriptorSize) {
            const auto first = bytes_.begin() + static_cast<std::ptrdiff_t>(block * kBlockSize + offset);
            if (std::all_of(first, first + kDescriptorSize, [](std::uint8_t byte) { return byte == 0; })) {
                return;
            }
            if (pixelClock(block, offset) != 0) {
                addTiming(block, offset);
            }
        }
    }

    void addTiming(std::size_t block, std::size_t offset)
    {
        auto b = [&](std::size_t i) { return static_cast<int>(at(block, offset + i)); };
        DetailedTiming t{};
        t.block = static_cast<int>(block);
        t.index = static_cast<int>(edid_.timings.size());
        t.preferred = block == 0 && edid_.timings.empty();
        t.pixelClockKHz = pixelClock(block, offset) * 10u;
        // Each value's low 8 bits have a byte; the high bits share bytes 4, 7 and 11.
        t.hActive = b(2) | (b(4) >> 4) << 8;
        t.hBlank = b(3) | (b(4) & 0x0F) << 8;
        t.vActive = b(5) | (b(7) >> 4) << 8;
        t.vBlank = b(6) | (b(7) & 0x0F) << 8;
        t.hFrontPorch = b(8) | (b(11) >> 6) << 8;
        t.hSync = b(9) | (b(11) >> 4 & 0x03) << 8;
        t.vFrontPorch = (b(10) >> 4) | (b(11) >> 2 & 0x03) << 4;
        t.vSync = (b(10) & 0x0F) | (b(11) & 0x03) << 4;
        t.interlaced = (b(17) & 0x80) != 0;
        if (t.hActive == 0 || t.vActive == 0) {
            fail(block, offset,
                 "detailed timing has no active area (" + std::to_string(t.hActive) + "x" + std::to_string(t.vActive) +
                     ")");
        }
        t.width = t.hActive;
        const double hTotal = t.hActive + t.hBlank;
        const double vTotal = t.vActive + t.vBlank;
        const double pixelsPerSecond = t.pixelClockKHz * 1000.0;
        if (t.interlaced) {
            // The stored lines are one field's; a field also carries half a
            // line more, so two fields make an odd number of frame lines.
            t.height = 2 * t.vActive;
            t.refreshHz = pixelsPerSecond / (hTotal * (vTotal + 0.5));
        } else {
            t.height = t.vActive;
            t.refreshHz = pixelsPerSecond / (hTotal * vTotal);
        }
        edid_.timings.push_back(t);
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
    Edid edid_;
};

} // namespace

Edid parseEdid(const std::vector<std::uint8_t>& bytes, const std::string& source)
{
    return Parser(bytes, source).parse();
}

Edid loadEdidFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw EdidError(path + ": cannot be opened: " + std::strerror(errno));
    }
    std::vector<std::uint8_t> bytes;
    try {
        // A read error (a directory, say) throws from inside the stream.
        bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    } catch (const std::ios_base::failure&) {
        throw EdidError(path + ": cannot be read: " + std::strerror(errno));
    }
    return parseEdid(bytes, path);
}

std::string describe(const DetailedTiming& timing)
{
    char text[64];
    std::snprintf(text, sizeof text, "%dx%d%s@%.2f", timing.width, timing.height, timing.interlaced ? "i" : "",
                  timing.refreshHz);
    return text;
}

} // namespace edidvm::edid
