// Decoding of the detailed timings in an EDID (the binary block a monitor
// reports): the base block and CTA-861 extension blocks. Other extension
// blocks are skipped with a note.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace edidvm::edid {

struct DetailedTiming
{
    int block;      // EDID block the descriptor is in (0 = base)
    int index;      // 0-based position among all detailed timings of the file, in file order
    bool preferred; // the base block's first detailed timing
    std::uint32_t pixelClockKHz;
    int hActive, hBlank, hFrontPorch, hSync;
    int vActive, vBlank, vFrontPorch, vSync; // as stored (per field for interlaced)
    bool interlaced;
    int width;        // hActive
    int height;       // frame height (interlaced: both fields)
    double refreshHz; // frame rate, or field rate for interlaced
};

struct Edid
{
    std::vector<DetailedTiming> timings; // base block, then CTA-861 extension blocks, in order
    std::vector<std::string> notes;      // what was skipped, e.g. "block 1: DisplayID extension skipped"
};

class EdidError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Throws EdidError naming the source, the block and the byte within the block,
// e.g. "foo.edid: block 1, byte 127: checksum is 0x12, must be 0x34 to make the block sum to 0".
Edid parseEdid(const std::vector<std::uint8_t>& bytes, const std::string& source);

// Reads the file, then parseEdid with the path as source.
Edid loadEdidFile(const std::string& path);

// "1920x1080@60.00", or "1920x1080i@60.00" for interlaced.
std::string describe(const DetailedTiming& timing);

} // namespace edidvm::edid
