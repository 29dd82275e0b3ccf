// Decoding of an EDID (the binary blocks a monitor reports): every mode it
// offers (established, standard and detailed timings of the base block,
// CTA-861 short video descriptors and detailed timings, the HDMI block's
// VICs, DisplayID type I and type VII timings), its name, serial text and
// range limits. What is not decoded is named in a note.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace edidvm::edid {

enum class Kind {
    Established, // bitmap of the base block, or of an established timings III descriptor
    Standard,    // two-byte codes: DMT, or GTF/CVT computed
    Detailed,    // 18-byte descriptor of the base or a CTA-861 block
    Vic,         // CTA-861 short video descriptor (also the YCbCr 4:2:0 video block)
    HdmiVic,     // HDMI vendor-specific block
    DisplayId,   // DisplayID type I or type VII detailed timing
};

struct Mode
{
    Kind kind;
    std::string source; // "DMT 0x04", "IBM", "GTF", "CVT", "DTD 2", "VIC 16", "HDMI VIC 1", "DisplayID type VII"
    int block;          // EDID block it is in (0 = base)
    int index;          // 0-based position among all modes of the file, in file order
    bool preferred;     // the base block's first detailed timing (if byte 24 says so), or DisplayID's flag
    bool reducedBlanking;
    std::uint32_t pixelClockKHz;
    int hActive, hFrontPorch, hSync, hBackPorch, hBorder;
    int vActive, vFrontPorch, vSync, vBackPorch, vBorder; // per field for interlaced
    bool hSyncPositive, vSyncPositive;
    bool interlaced;
    int width;        // hActive
    int height;       // frame height (interlaced: both fields)
    double refreshHz; // frame rate, or field rate for interlaced
};

struct RangeLimits
{
    int minVHz, maxVHz, minHKHz, maxHKHz, maxPixelClockMHz;
    std::string formula; // "GTF", "bare limits", "secondary GTF", "CVT"
};

struct Edid
{
    int version = 0, revision = 0; // of the base block, e.g. 1 and 4
    int blocks = 0;                // in the file, the base block included
    std::vector<Mode> modes;       // in file order, as edid-decode lists them
    std::string name;              // the monitor name descriptor; empty if none
    std::string serialText;        // the serial number descriptor; empty if none
    std::optional<RangeLimits> range;
    std::vector<std::string> notes;    // what was skipped, e.g. "block 1: block map extension skipped"
    std::vector<std::string> warnings; // checksum and extension-count faults found when not strict
};

class EdidError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Strict refuses a bad checksum or extension count; Lenient lists them in
// Edid::warnings and decodes on, as edid-decode does.
enum class Checks { Strict, Lenient };

// The largest file read: 256 blocks.
constexpr std::size_t kMaxFileSize = 256 * 128;

// Throws EdidError naming the source, the block and the byte within the block,
// e.g. "foo.edid: block 1, byte 127: checksum is 0x12, must be 0x34 to make the block sum to 0".
Edid parseEdid(const std::vector<std::uint8_t>& bytes, const std::string& source, Checks checks = Checks::Strict);

// The bytes of a hex dump as edid-decode prints it (an optional
// "edid-decode (hex):" line, then bytes as pairs of hex digits, up to a line
// of dashes or the end). Throws EdidError naming the line and column.
std::vector<std::uint8_t> parseHexDump(const std::string& text, const std::string& source);

// Reads a regular file of at most kMaxFileSize bytes, binary or (when it is
// all printable text) a hex dump, then parseEdid with the path as source.
Edid loadEdidFile(const std::string& path, Checks checks = Checks::Strict);

// "1920x1080@60.00", or "1920x1080i@60.00" for interlaced.
std::string describe(const Mode& mode);

} // namespace edidvm::edid
