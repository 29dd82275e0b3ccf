// SPDX-License-Identifier: MIT
// What the block decoders share. Each block family has a file of its own
// with one entry point here; a new kind of extension block is a new file
// and a row in edid.cpp's table of extensions.
#pragma once

#include "edid/edid.h"
#include "edid/reader_p.h"
#include "edid/tables.h"

#include <cstddef>
#include <string>

namespace edidvm::edid::detail {

// A detailed timing or display descriptor, in the base, CTA-861 and VTB-EXT blocks.
constexpr std::size_t kDescriptorSize = 18;

// Fills in the size and refresh from the timing.
void finish(Mode& mode);
Mode fromTable(Kind kind, std::string source, const tables::Timing& timing);
Mode fromDmt(Kind kind, const tables::DmtTiming& dmt, const std::string& prefix = "");

// Timings computed from a size and a rate (formulas.cpp). The CVT vertical
// sync width follows from the aspect ratio of width and height.
Mode gtf(int width, int height, double rate);
enum class Blanking { Standard, Reduced, ReducedV2 };
Mode cvt(int width, int height, double rate, Blanking blanking = Blanking::Standard, bool interlaced = false);
// Too small a size or too high a rate leaves a formula no active area, no
// blanking time or no pixel clock: no timing, rather than one made of nothing.
bool computed(const Mode& mode);

// The base block, after the layout check (base.cpp).
void decodeBase(Reader& reader);
// Shared with the VTB-EXT block: an 18-byte detailed timing descriptor whose
// first two bytes are not zero (source "DTD n", or prefix and n when given),
// a standard timing's two bytes, a CVT 3-byte code.
bool detailedTiming(Reader& reader, std::size_t block, std::size_t offset, bool preferred,
                    const std::string& vtbSource = "");
void standardTiming(Reader& reader, std::size_t block, std::size_t offset);
void cvtCode(Reader& reader, std::size_t block, std::size_t offset);

// CTA-861 data blocks from begin to end, in a CTA-861 block or a DisplayID
// one (cta.cpp).
void ctaDataBlocks(Reader& reader, std::size_t block, std::size_t begin, std::size_t end);

// Extension blocks, by their tag in byte 0.
void decodeCta(Reader& reader, std::size_t block);       // cta.cpp
void decodeVtb(Reader& reader, std::size_t block);       // vtb.cpp
void decodeDisplayId(Reader& reader, std::size_t block); // displayid.cpp

} // namespace edidvm::edid::detail
