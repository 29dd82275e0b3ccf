// SPDX-License-Identifier: MIT
#include "edid/edid.h"

#include "edid/edid_p.h"

#include <cstdint>
#include <string>

namespace edidvm::edid {
namespace {

using detail::kBlockSize;
using detail::kChecksumByte;
using detail::Reader;

constexpr std::size_t kExtensionCountByte = 126;
constexpr std::uint8_t kHeader[8] = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};

// The extension blocks by their tag in byte 0. Those without a decoder are
// recognised but skipped, and named in the note.
struct Extension
{
    std::uint8_t tag;
    const char* name;
    void (*decode)(Reader& reader, std::size_t block);
};
constexpr Extension kExtensions[] = {
    {0x02, "CTA-861", detail::decodeCta},   {0x10, "VTB-EXT", detail::decodeVtb},
    {0x40, "display information", nullptr}, {0x50, "localized string", nullptr},
    {0x60, "packet video link", nullptr},   {0x70, "DisplayID", detail::decodeDisplayId},
    {0xF0, "block map", nullptr},           {0xFF, "manufacturer-defined", nullptr},
};

void checkSum(Reader& reader, std::size_t block)
{
    unsigned sum = 0;
    for (std::size_t i = 0; i < kChecksumByte; ++i) {
        sum += reader.at(block, i);
    }
    const unsigned wanted = (256 - sum % 256) % 256;
    if (reader.at(block, kChecksumByte) != wanted) {
        reader.fault(block, kChecksumByte,
                     "checksum is " + detail::hexByte(reader.at(block, kChecksumByte)) + ", must be " +
                         detail::hexByte(wanted) + " to make the block sum to 0");
    }
}

// Everything that makes the file unusable is found before any mode is
// decoded; returns the number of blocks to decode.
std::size_t checkLayout(Reader& reader)
{
    const std::size_t size = reader.size();
    if (size < kBlockSize) {
        reader.fail(0, size, "file ends after " + std::to_string(size) + " bytes, the base block needs 128");
    }
    if (size > kMaxFileSize) {
        reader.fail(kMaxFileSize / kBlockSize, 0,
                    "file holds " + std::to_string(size) + " bytes, more than the 32 KiB (256 blocks) of an EDID");
    }
    for (std::size_t i = 0; i < sizeof kHeader; ++i) {
        if (reader.at(0, i) != kHeader[i]) {
            reader.fail(0, i,
                        "header byte is " + detail::hexByte(reader.at(0, i)) + ", must be " +
                            detail::hexByte(kHeader[i]) + " (an EDID starts with 00 FF FF FF FF FF FF 00)");
        }
    }
    checkSum(reader, 0);
    if (size % kBlockSize != 0) {
        reader.fail(size / kBlockSize, size % kBlockSize,
                    "file ends after " + std::to_string(size) + " bytes, inside block " +
                        std::to_string(size / kBlockSize));
    }
    const std::size_t extensions = size / kBlockSize - 1;
    if (reader.at(0, kExtensionCountByte) != extensions) {
        reader.fault(0, kExtensionCountByte,
                     "extension count is " + std::to_string(reader.at(0, kExtensionCountByte)) +
                         ", but the file holds " + std::to_string(extensions) + " extension blocks (" +
                         std::to_string(size) + " bytes)");
    }
    for (std::size_t block = 1; block <= extensions; ++block) {
        checkSum(reader, block);
    }
    return extensions + 1;
}

void decodeExtension(Reader& reader, std::size_t block)
{
    const std::uint8_t tag = reader.at(block, 0);
    for (const Extension& known : kExtensions) {
        if (known.tag != tag)
            continue;
        if (known.decode != nullptr)
            known.decode(reader, block);
        else
            reader.note(block, std::string(known.name) + " extension skipped");
        return;
    }
    reader.note(block, "extension with unknown tag " + detail::hexByte(tag) + " skipped");
}

} // namespace

Edid parseEdid(const std::vector<std::uint8_t>& bytes, const std::string& source, Checks checks)
{
    Reader reader(bytes, source, checks);
    const std::size_t blocks = checkLayout(reader);
    Edid& edid = reader.edid();
    edid.version = reader.at(0, 18);
    edid.revision = reader.at(0, 19);
    edid.blocks = static_cast<int>(blocks);
    detail::decodeBase(reader);
    for (std::size_t block = 1; block < blocks; ++block)
        decodeExtension(reader, block);
    for (std::size_t i = 0; i < edid.modes.size(); ++i)
        edid.modes[i].index = static_cast<int>(i);
    return reader.take();
}

} // namespace edidvm::edid
