// SPDX-License-Identifier: MIT
#include "sim/scenarioformat.h"

#include "sim/scenario.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace edidvm {
namespace sim {

using nlohmann::ordered_json;

namespace {
constexpr std::size_t Width = 120; // as the code's own lines

std::string scalarText(const ordered_json& value)
{
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string oneLine(const ordered_json& value)
{
    if (value.is_object()) {
        std::string text;
        for (const auto& item : value.items())
            text += (text.empty() ? "{" : ", ") + scalarText(item.key()) + ": " + oneLine(item.value());
        return text.empty() ? "{}" : text + "}";
    }
    if (value.is_array()) {
        std::string text;
        for (const ordered_json& item : value)
            text += (text.empty() ? "[" : ", ") + oneLine(item);
        return text.empty() ? "[]" : text + "]";
    }
    return scalarText(value);
}

// Characters as an editor counts them: UTF-8 continuation bytes are not.
std::size_t columns(const std::string& text)
{
    std::size_t count = 0;
    for (const char c : text)
        count += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    return count;
}

// value after `used` columns of its line; a comma follows unless it is last.
void write(std::string& out, const ordered_json& value, std::size_t indent, std::size_t used, bool last, bool expand)
{
    const std::string line = oneLine(value);
    if (!value.is_structured() || value.empty() || (!expand && used + columns(line) + (last ? 0 : 1) <= Width)) {
        out += line;
        return;
    }
    const std::string inner(indent + 2, ' ');
    out += value.is_object() ? "{\n" : "[\n";
    std::size_t left = value.size();
    if (value.is_object()) {
        for (const auto& item : value.items()) {
            const std::string key = scalarText(item.key()) + ": ";
            out += inner + key;
            // Each step on a line of its own, however short the list.
            write(out, item.value(), indent + 2, inner.size() + columns(key), --left == 0,
                  indent == 0 && item.key() == "steps");
            out += left == 0 ? "\n" : ",\n";
        }
    } else {
        for (const ordered_json& item : value) {
            out += inner;
            write(out, item, indent + 2, inner.size(), --left == 0, false);
            out += left == 0 ? "\n" : ",\n";
        }
    }
    out += std::string(indent, ' ') + (value.is_object() ? "}" : "]");
}
} // namespace

ordered_json readScenarioDocument(const std::string& file)
{
    const std::string text = readScenarioText(file);
    try {
        return ordered_json::parse(text);
    } catch (const ordered_json::exception& error) {
        // As loadScenario words it: without the exception's "[json.exception...] ".
        const std::string what = error.what();
        const std::size_t start = what.find("] ");
        throw ScenarioError(file, start == std::string::npos ? what : what.substr(start + 2));
    }
}

std::string canonicalScenarioText(const ordered_json& document)
{
    std::string out;
    write(out, document, 0, 0, true, true);
    return out + "\n";
}

void replaceScenarioFile(const std::string& file, const std::string& text,
                         const std::function<void(const std::string&)>& check)
{
    // A link stays a link: what it names is replaced.
    std::error_code resolved;
    const std::string target = std::filesystem::canonical(file, resolved).string();
    if (resolved)
        throw ScenarioError(file, "cannot be replaced: " + resolved.message());
    // A new name in the target's folder, so the rename stays on one file system.
    std::string temporary = target + ".XXXXXX";
    const int descriptor = mkstemp(temporary.data());
    if (descriptor < 0)
        throw ScenarioError(file, std::string("cannot create a file beside it: ") + std::strerror(errno));
    const auto fail = [&](const std::string& what) {
        ::unlink(temporary.c_str());
        throw ScenarioError(file, what);
    };
    bool written = true;
    for (std::size_t done = 0; written && done < text.size();) {
        const ssize_t count = ::write(descriptor, text.data() + done, text.size() - done);
        written = count > 0;
        done += written ? static_cast<std::size_t>(count) : 0;
    }
    if (::close(descriptor) != 0 || !written)
        fail("cannot write " + temporary);
    if (check) {
        try {
            check(temporary);
        } catch (...) {
            ::unlink(temporary.c_str());
            throw;
        }
    }
    // The file keeps its permissions, not those of a new private file.
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(target, error);
    if (!error)
        std::filesystem::permissions(temporary, status.permissions(), error);
    std::filesystem::rename(temporary, target, error);
    if (error)
        fail("cannot be replaced: " + error.message());
}

} // namespace sim
} // namespace edidvm
