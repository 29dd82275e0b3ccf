// SPDX-License-Identifier: MIT
#include "edid/reader_p.h"

#include <cstdio>
#include <utility>

namespace edidvm::edid::detail {

std::string hexByte(unsigned value)
{
    char text[8];
    std::snprintf(text, sizeof text, "0x%02x", value & 0xFFu);
    return text;
}

void Reader::fail(std::size_t block, std::size_t byte, const std::string& what) const
{
    throw EdidError(m_source + ": block " + std::to_string(block) + ", byte " + std::to_string(byte) + ": " + what);
}

void Reader::fault(std::size_t block, std::size_t byte, const std::string& what)
{
    if (m_checks == Checks::Strict)
        fail(block, byte, what);
    m_edid.warnings.push_back("block " + std::to_string(block) + ", byte " + std::to_string(byte) + ": " + what);
}

void Reader::note(std::size_t block, const std::string& what)
{
    m_edid.notes.push_back("block " + std::to_string(block) + ": " + what);
}

void Reader::add(Mode mode, std::size_t block)
{
    mode.block = static_cast<int>(block);
    m_edid.modes.push_back(std::move(mode));
}

} // namespace edidvm::edid::detail
