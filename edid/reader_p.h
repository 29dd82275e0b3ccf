// SPDX-License-Identifier: MIT
// The bytes of one EDID file and what is decoded from them. Every block's
// decoder reads the bytes and reports through the reader, so that a fault
// always names the file, the block and the byte within the block.
#pragma once

#include "edid/edid.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace edidvm::edid::detail {

constexpr std::size_t kBlockSize = 128;
constexpr std::size_t kChecksumByte = 127;

// "0x1f": how bytes are shown in faults and notes.
std::string hexByte(unsigned value);

// Holds references to the bytes and the source name: both must outlive it.
class Reader
{
public:
    Reader(const std::vector<std::uint8_t>& bytes, const std::string& source, Checks checks)
        : m_bytes(bytes), m_source(source), m_checks(checks)
    {}

    std::size_t size() const { return m_bytes.size(); }
    // The layout check has made sure every block is whole; a decoder asking
    // for a byte outside its block is refused like damage, never read.
    std::uint8_t at(std::size_t block, std::size_t byte) const
    {
        if (byte >= kBlockSize || (block + 1) * kBlockSize > m_bytes.size())
            fail(block, byte, "read outside the block");
        return m_bytes[block * kBlockSize + byte];
    }
    // Two bytes, the low one first.
    unsigned word(std::size_t block, std::size_t byte) const { return at(block, byte) | at(block, byte + 1) << 8; }
    // Three bytes, the low one first.
    unsigned triple(std::size_t block, std::size_t byte) const { return word(block, byte) | at(block, byte + 2) << 16; }

    // Throws EdidError: the file cannot be decoded.
    [[noreturn]] void fail(std::size_t block, std::size_t byte, const std::string& what) const;
    // Damage that edid-decode only reports, the one way every decoder reports
    // it: refused when strict, else a warning, and the caller decodes what is
    // intact.
    void fault(std::size_t block, std::size_t byte, const std::string& what);
    // Something read but not decoded.
    void note(std::size_t block, const std::string& what);

    void add(Mode mode, std::size_t block);
    // Detailed timing descriptors of the base and CTA-861 blocks are numbered
    // over the file, from 1, those that hold no timing included.
    int nextDetailedNumber() { return ++m_detailedCount; }

    Edid& edid() { return m_edid; }
    const Edid& edid() const { return m_edid; }
    Edid take() { return std::move(m_edid); }

private:
    const std::vector<std::uint8_t>& m_bytes;
    const std::string& m_source;
    Checks m_checks;
    Edid m_edid;
    int m_detailedCount = 0;
};

} // namespace edidvm::edid::detail
