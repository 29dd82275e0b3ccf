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

// A detailed timing or display descriptor, in the base and CTA-861 blocks.
constexpr std::size_t kDescriptorSize = 18;

// Fills in the size and refresh from the timing.
void finish(Mode& mode);
Mode fromTable(Kind kind, std::string source, const tables::Timing& timing);
Mode fromDmt(Kind kind, const tables::DmtTiming& dmt);

// Standard timings that no DMT names (formulas.cpp).
Mode gtf(int width, int height, double rate);
Mode cvt(int width, int height, double rate, int vSync);

// The base block, after the layout check (base.cpp).
void decodeBase(Reader& reader);
// An 18-byte detailed timing descriptor whose pixel clock is not zero.
void detailedTiming(Reader& reader, std::size_t block, std::size_t offset, bool preferred);

// Extension blocks, by their tag in byte 0.
void decodeCta(Reader& reader, std::size_t block);       // cta.cpp
void decodeDisplayId(Reader& reader, std::size_t block); // displayid.cpp

} // namespace edidvm::edid::detail
