// SPDX-License-Identifier: MIT
// Decoding of an EDID (the binary blocks a monitor reports): every mode it
// offers (established, standard and detailed timings and CVT codes of the
// base block and of VTB-EXT blocks, CTA-861 short video descriptors and
// detailed timings, the HDMI block's VICs, DisplayID timings of every kind),
// its name, serial and data strings and range limits. What is not decoded is
// named in a note; what is damaged, in a warning naming the block and byte.
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
    Detailed,    // 18-byte descriptor of the base, a CTA-861 or a VTB-EXT block
    Cvt,         // CVT 3-byte code, in a descriptor or a VTB-EXT block
    Vic,         // CTA-861 short video descriptor (also the YCbCr 4:2:0 video block)
    HdmiVic,     // HDMI vendor-specific block
    DisplayId,   // any DisplayID timing block (detailed, DMT, CVT formula)
};

// The sync signal of a detailed timing: only separate digital sync has a
// vertical polarity; composite digital sync has a horizontal one only.
enum class Sync {
    Separate,               // both polarities apply (also every table and formula timing)
    DigitalComposite,       // hSyncPositive applies; vSyncPositive is false
    AnalogComposite,        // neither applies; both false
    BipolarAnalogComposite, // neither applies; both false
};

struct Mode
{
    Kind kind;
    // "DMT 0x04", "IBM", "GTF", "CVT", "CVT RB", "DTD 2", "VTB-EXT DTD 1", "VIC 16", "HDMI VIC 1",
    // "DisplayID type VII", "DisplayID DMT 0x04", "DisplayID VIC 16"
    std::string source;
    int block;      // EDID block it is in (0 = base)
    int index;      // 0-based position among all modes of the file, in file order
    bool preferred; // the base block's first detailed timing (if byte 24 says so), or DisplayID's flag
    bool reducedBlanking;
    std::uint32_t pixelClockKHz;
    int hActive, hFrontPorch, hSync, hBackPorch, hBorder;
    int vActive, vFrontPorch, vSync, vBackPorch, vBorder; // per field for interlaced
    bool hSyncPositive, vSyncPositive;
    Sync sync;
    bool interlaced;
    int width;        // hActive
    int height;       // frame height (interlaced: both fields)
    double refreshHz; // frame rate, or field rate for interlaced
};

// The curve a display asks of GTF above a horizontal frequency.
struct GtfCurve
{
    int startKHz = 0;
    double c = 0, j = 0; // percent
    int m = 0;           // percent per kHz
    int k = 0;
};

struct RangeLimits
{
    int minVHz, maxVHz, minHKHz, maxHKHz, maxPixelClockMHz;
    std::string formula;                    // "GTF", "bare limits", "secondary GTF", "CVT"
    std::optional<GtfCurve> secondaryCurve; // with "secondary GTF"
};

struct Edid
{
    int version = 0, revision = 0;    // of the base block, e.g. 1 and 4
    int blocks = 0;                   // in the file, the base block included
    std::vector<Mode> modes;          // in file order, as edid-decode lists them
    std::string name;                 // the monitor name descriptor; empty if none
    std::string serialText;           // the serial number descriptor; empty if none
    std::vector<std::string> strings; // alphanumeric data string descriptors, in order
    std::optional<RangeLimits> range;
    std::vector<std::string> notes;    // what was skipped, e.g. "block 1: block map extension skipped"
    std::vector<std::string> warnings; // "block 1, byte 34: ...": what is damaged, found when not strict
};

class EdidError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Strict refuses a damaged block, a bad checksum or extension count; Lenient
// lists them in Edid::warnings and decodes what is intact, as edid-decode does.
enum class Checks { Strict, Lenient };

// The largest file read: 256 blocks (32 KiB), or their hex dump (128 KiB).
constexpr std::size_t kMaxFileSize = 256 * 128;
constexpr std::size_t kMaxHexDumpSize = 4 * kMaxFileSize;

// Throws EdidError naming the source, the block and the byte within the block,
// e.g. "foo.edid: block 1, byte 127: checksum is 0x12, must be 0x34 to make the block sum to 0".
Edid parseEdid(const std::vector<std::uint8_t>& bytes, const std::string& source, Checks checks = Checks::Strict);

// The bytes of a hex dump as edid-decode prints it (an optional
// "edid-decode (hex):" line, then bytes as pairs of hex digits, up to a line
// of dashes or the end). Throws EdidError naming the line and column, or the
// line that is short or long when the bytes are no whole number of blocks.
std::vector<std::uint8_t> parseHexDump(const std::string& text, const std::string& source);

// Reads a regular file of at most kMaxFileSize bytes, binary, or (when it is
// all printable text) a hex dump of at most kMaxHexDumpSize, then parseEdid
// with the path as source.
Edid loadEdidFile(const std::string& path, Checks checks = Checks::Strict);

// "1920x1080@60.00", or "1920x1080i@60.00" for interlaced.
std::string describe(const Mode& mode);

} // namespace edidvm::edid
