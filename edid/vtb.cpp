// SPDX-License-Identifier: MIT
// VTB-EXT extension blocks (tag 0x10): detailed timings, CVT 3-byte codes
// and standard timings, as many of each as bytes 2 to 4 say, one after the
// other from byte 5.
#include "edid/edid_p.h"

#include <string>

namespace edidvm::edid::detail {

void decodeVtb(Reader& reader, std::size_t block)
{
    const std::size_t detailed = reader.at(block, 2), codes = reader.at(block, 3), standard = reader.at(block, 4);
    constexpr std::size_t kFirst = 5;
    const std::size_t needed = kFirst + detailed * kDescriptorSize + codes * 3 + standard * 2;
    if (needed > kChecksumByte) {
        reader.fault(block, 2,
                     "VTB-EXT block announces " + std::to_string(detailed) + " detailed timings, " +
                         std::to_string(codes) + " CVT codes and " + std::to_string(standard) + " standard timings, " +
                         std::to_string(needed - kFirst) + " bytes where it holds " +
                         std::to_string(kChecksumByte - kFirst));
    }
    // Only whole entries inside the block are read.
    std::size_t offset = kFirst;
    for (std::size_t i = 0; i < detailed && offset + kDescriptorSize <= kChecksumByte; ++i, offset += kDescriptorSize) {
        if (reader.word(block, offset) != 0)
            detailedTiming(reader, block, offset, false, "VTB-EXT DTD " + std::to_string(i + 1));
    }
    for (std::size_t i = 0; i < codes && offset + 3 <= kChecksumByte; ++i, offset += 3)
        cvtCode(reader, block, offset);
    for (std::size_t i = 0; i < standard && offset + 2 <= kChecksumByte; ++i, offset += 2)
        standardTiming(reader, block, offset);
}

} // namespace edidvm::edid::detail
