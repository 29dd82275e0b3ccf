#pragma once

// The fuzz input's primitives, shared by the harness (Reader) and the seed
// generator (Writer, which writes what Reader reads back).

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace edidvm {
namespace fuzz {

// Handled by the component, in its registration order; a message picks one
// by index.
constexpr std::uint32_t Handled[16] = {0xFC070606u, 0xFC000620u, 0xFC021009u, 0xFC00060Au, 0xFC00060Bu, 0xFC000605u,
                                       0xFC000606u, 0xFC00060Cu, 0xFC00060Du, 0xFC000617u, 0xFC031007u, 0xFC051016u,
                                       0xFC081005u, 0xFC081006u, 0xFC030204u, 0xFC08021Eu};

// Sequential little-endian reader; past the end every read yields 0.
struct Reader
{
    const std::uint8_t* p = nullptr;
    std::size_t n = 0;

    std::uint8_t u8()
    {
        if (n == 0)
            return 0;
        --n;
        return *p++;
    }
    std::uint32_t u32()
    {
        std::uint32_t v = 0;
        for (int i = 0; i < 4; ++i)
            v |= std::uint32_t(u8()) << (8 * i);
        return v;
    }
    std::uint16_t u16()
    {
        const std::uint16_t low = u8();
        return std::uint16_t(low | u8() << 8);
    }
    std::int32_t i32() { return static_cast<std::int32_t>(u32()); }
    // Ids and keys are one signed byte, so lists collide and duplicate.
    std::int32_t small() { return static_cast<std::int8_t>(u8()); }
    float real()
    {
        const std::uint32_t bits = u32();
        float f;
        std::memcpy(&f, &bits, sizeof f);
        return f;
    }
    // Up to 47 bytes: both inline and heap-held strings.
    std::string text()
    {
        std::string s(u8() % 48, '\0');
        for (char& c : s)
            c = static_cast<char>(u8());
        return s;
    }
    Reader take(std::size_t len)
    {
        len = std::min(len, n);
        const Reader part{p, len};
        p += len;
        n -= len;
        return part;
    }
};

struct Writer
{
    std::vector<std::uint8_t> out;

    void u8(std::uint32_t v) { out.push_back(std::uint8_t(v)); }
    void u32(std::uint32_t v)
    {
        for (int i = 0; i < 4; ++i)
            u8(v >> (8 * i));
    }
    void u16(std::uint32_t v)
    {
        u8(v);
        u8(v >> 8);
    }
    void small(std::int32_t v) { u8(std::uint32_t(v)); }
    void real(float f)
    {
        std::uint32_t bits;
        std::memcpy(&bits, &f, sizeof bits);
        u32(bits);
    }
    void text(const std::string& s)
    {
        u8(std::uint32_t(s.size()));
        out.insert(out.end(), s.begin(), s.end());
    }
    void bytes(const void* data, std::size_t size)
    {
        const auto* b = static_cast<const std::uint8_t*>(data);
        out.insert(out.end(), b, b + size);
    }
    void bytes(const std::vector<std::uint8_t>& b) { out.insert(out.end(), b.begin(), b.end()); }
};

// Writes the seed corpus into dir (EDIDVM_FUZZ_WRITE_SEEDS); exits on error.
void writeSeeds(const char* dir);

} // namespace fuzz
} // namespace edidvm
