// SPDX-License-Identifier: MIT
// EDID files, binary or hex dumps.
#include "edid/edid.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace edidvm::edid {

Edid loadEdidFile(const std::string& path, Checks checks)
{
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error) {
        throw EdidError(path + ": cannot be opened: " + error.message());
    }
    // A FIFO or device would hang or never end.
    if (status.type() == std::filesystem::file_type::directory) {
        throw EdidError(path + ": cannot be read: Is a directory");
    }
    if (status.type() != std::filesystem::file_type::regular) {
        throw EdidError(path + ": cannot be read: not a regular file");
    }
    // A hex dump takes three characters a byte, and some lines; a binary
    // file over 32 KiB is refused once read.
    constexpr std::uintmax_t kMaxText = kMaxHexDumpSize;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (!error && size > kMaxText) {
        throw EdidError(path + ": file holds " + std::to_string(size) +
                        " bytes, more than the 128 KiB of an EDID's hex dump (a binary EDID holds at most 32 KiB)");
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw EdidError(path + ": cannot be opened: " + std::strerror(errno));
    }
    // Never more than the limit, should the file grow meanwhile.
    std::vector<std::uint8_t> bytes(kMaxText);
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (in.bad()) {
        throw EdidError(path + ": cannot be read: " + std::strerror(errno));
    }
    bytes.resize(static_cast<std::size_t>(in.gcount()));
    // The binary header starts with a NUL, which a hex dump never holds.
    const bool text = !bytes.empty() && std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) {
        return (byte >= 0x20 && byte < 0x7F) || byte == '\n' || byte == '\r' || byte == '\t';
    });
    if (text)
        bytes = parseHexDump(std::string(bytes.begin(), bytes.end()), path);
    return parseEdid(bytes, path, checks);
}

// The lines of a dump hold the same number of bytes, but the last may hold
// fewer: when the bytes are no whole number of blocks, the line that differs
// from the others is where a byte was lost or added.
std::vector<std::uint8_t> parseHexDump(const std::string& text, const std::string& source)
{
    std::vector<std::uint8_t> bytes;
    struct Row
    {
        std::size_t line, count;
    };
    std::vector<Row> rows;
    std::size_t line = 0, start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string row = text.substr(start, end - start);
        ++line;
        start = end + 1;
        if (row.rfind("edid-decode (hex):", 0) == 0 && bytes.empty())
            continue;
        if (row.find("----") != std::string::npos)
            break;
        const std::size_t before = bytes.size();
        for (std::size_t i = 0; i < row.size();) {
            if (std::isspace(static_cast<unsigned char>(row[i]))) {
                ++i;
                continue;
            }
            const bool pair = i + 1 < row.size() && std::isxdigit(static_cast<unsigned char>(row[i])) &&
                              std::isxdigit(static_cast<unsigned char>(row[i + 1]));
            if (!pair) {
                throw EdidError(source + ": line " + std::to_string(line) + ", column " + std::to_string(i + 1) +
                                ": expected a byte as two hex digits, got '" + row.substr(i, 8) + "'");
            }
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(row.substr(i, 2), nullptr, 16)));
            i += 2;
        }
        if (bytes.size() > before)
            rows.push_back({line, bytes.size() - before});
    }
    constexpr std::size_t kBlock = 128;
    if (bytes.size() % kBlock == 0)
        return bytes;
    // The count most lines hold (the larger on a tie).
    std::size_t usual = 0, usualLines = 0;
    for (const Row& row : rows) {
        const auto same = static_cast<std::size_t>(
            std::count_if(rows.begin(), rows.end(), [&](const Row& other) { return other.count == row.count; }));
        if (same > usualLines || (same == usualLines && row.count > usual)) {
            usual = row.count;
            usualLines = same;
        }
    }
    const std::string whole = "the dump holds " + std::to_string(bytes.size()) + " bytes, no whole number of " +
                              std::to_string(kBlock) + "-byte blocks";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const bool last = i + 1 == rows.size();
        if (rows[i].count > usual || (!last && rows[i].count < usual)) {
            throw EdidError(source + ": line " + std::to_string(rows[i].line) + ": " + std::to_string(rows[i].count) +
                            " bytes where the other lines hold " + std::to_string(usual) + "; " + whole);
        }
    }
    throw EdidError(source + ": line " + std::to_string(rows.back().line) + ": " + whole +
                    (rows.back().count < usual ? " (this last line holds " + std::to_string(rows.back().count) +
                                                     " bytes, the others " + std::to_string(usual) + ")"
                                               : ""));
}

} // namespace edidvm::edid
