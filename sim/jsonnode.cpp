// SPDX-License-Identifier: MIT
#include "sim/jsonnode.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace edidvm {
namespace sim {

using nlohmann::json;

namespace {
// Keys and names quoted in a problem come from the file: their control
// characters are written as JSON writes them, so each problem stays a line.
std::string oneLine(const std::string& text)
{
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20) {
            line += c;
        } else if (c == '\n' || c == '\r' || c == '\t') {
            line += c == '\n' ? "\\n" : c == '\r' ? "\\r" : "\\t";
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            line += escaped;
        }
    }
    return line;
}
// Edits between a and b, a swap of neighbours counting as one.
std::size_t editDistance(const std::string& a, const std::string& b)
{
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        d[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j)
        d[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

std::string lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string withoutDigits(std::string text)
{
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }), text.end());
    return text;
}
} // namespace

std::string didYouMean(const std::string& word, const Keys& candidates)
{
    // Long texts are no misspelling of a short name, and would cost.
    if (word.empty() || word.size() > 64)
        return {};
    // About one edit in four letters: "colour" suggests nothing of "id, slot, connector".
    const std::size_t limit = std::clamp<std::size_t>((word.size() + 1) / 4, 1, 3);
    const std::string wanted = lower(word);
    const std::string* best = nullptr;
    std::size_t bestDistance = limit + 1;
    for (const std::string& candidate : candidates) {
        const std::size_t distance = editDistance(wanted, lower(candidate));
        // param3 is no misspelling of param0: names that differ in their numbers only are different names.
        const bool numbered = distance > 0 && withoutDigits(wanted) == withoutDigits(lower(candidate));
        if (distance < bestDistance && distance < candidate.size() && candidate != word && !numbered) {
            best = &candidate;
            bestDistance = distance;
        }
    }
    return best == nullptr ? std::string() : " (did you mean \"" + *best + "\"?)";
}

std::string joined(const Keys& keys)
{
    std::string text;
    for (const std::string& key : keys)
        text += (text.empty() ? "" : ", ") + key;
    return text;
}

void JsonNode::report(const std::string& text) const
{
    m_problems.push_back({"", oneLine(m_path), oneLine(text)});
}

void JsonNode::fail(const std::string& text) const
{
    report(text);
    throw Abandoned();
}

void JsonNode::expected(const std::string& what) const
{
    fail("expected " + what + ", got " + shown());
}

void JsonNode::keys(const Keys& allowed, const std::string& whose) const
{
    if (!m_value.is_object())
        expected("an object");
    for (const auto& item : m_value.items()) {
        if (std::find(allowed.begin(), allowed.end(), item.key()) == allowed.end())
            child(item.key())
                .report("unknown key" + whose + didYouMean(item.key(), allowed) + "; expected " +
                        (allowed.empty() ? std::string("none") : "one of " + joined(allowed)));
    }
}

JsonNode JsonNode::at(const std::string& key) const
{
    return JsonNode(m_value.at(key), childPath(key), m_problems);
}

JsonNode JsonNode::need(const char* key, const std::string& what) const
{
    if (!has(key))
        child(key).fail("missing; expected " + what);
    return at(key);
}

std::vector<JsonNode> JsonNode::items(const std::string& what) const
{
    if (!m_value.is_array())
        expected(what);
    std::vector<JsonNode> nodes;
    for (std::size_t i = 0; i < m_value.size(); ++i)
        nodes.emplace_back(m_value[i], m_path + "/" + std::to_string(i), m_problems);
    return nodes;
}

std::int64_t JsonNode::integer(std::int64_t min, std::int64_t max) const
{
    const bool whole = m_value.is_number_integer();
    std::int64_t value = 0;
    if (m_value.is_number_unsigned()) // beyond every range we accept when it does not fit
        value = static_cast<std::int64_t>(std::min<std::uint64_t>(m_value.get<std::uint64_t>(), Word32Max + 1));
    else if (whole)
        value = m_value.get<std::int64_t>();
    if (!whole || value < min || value > max) {
        // Too large a number gets the bound it passed.
        const std::string upTo = whole && value > max ? " up to " + std::to_string(max) : "";
        if (min == 0 && (max == Int32Max || max == Word32Max))
            expected("a non-negative integer" + upTo);
        if (min == 1 && max == Int32Max)
            expected("a positive integer" + upTo);
        expected(!whole && min == Int32Min && max == Int32Max
                     ? std::string("an integer")
                     : "an integer from " + std::to_string(min) + " to " + std::to_string(max));
    }
    return value;
}

std::vector<std::int32_t> JsonNode::integers(const std::string& what, std::int64_t min) const
{
    std::vector<std::int32_t> values;
    for (const JsonNode& item : items(what))
        values.push_back(static_cast<std::int32_t>(item.integer(min, Int32Max)));
    return values;
}

float JsonNode::floatNumber(bool positive) const
{
    const double max = std::numeric_limits<float>::max();
    if (!m_value.is_number() || !(m_value.get<double>() >= 0.0 && m_value.get<double>() <= max) ||
        (positive && m_value.get<double>() == 0.0))
        expected(positive ? "a positive number up to 3.4e38" : "a non-negative number up to 3.4e38");
    return static_cast<float>(m_value.get<double>());
}

std::string JsonNode::text() const
{
    if (!m_value.is_string())
        expected("a string");
    return m_value.get<std::string>();
}

bool JsonNode::boolean() const
{
    if (m_value.is_number_integer() && (m_value == 0 || m_value == 1))
        return m_value == 1;
    if (!m_value.is_boolean())
        expected("true or false (or 1 or 0)");
    return m_value.get<bool>();
}

std::string pointerToken(const std::string& key)
{
    std::string escaped;
    for (char c : key)
        escaped += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
    return escaped;
}

std::string JsonNode::childPath(const std::string& key) const
{
    return m_path + "/" + pointerToken(key);
}

JsonNode JsonNode::child(const std::string& key) const
{
    static const json absent;
    return JsonNode(absent, childPath(key), m_problems);
}

std::string JsonNode::shown() const
{
    switch (m_value.type()) {
    case json::value_t::string:
        return "a string";
    case json::value_t::array:
        return "an array";
    case json::value_t::object:
        return "an object";
    default:
        return m_value.dump();
    }
}

} // namespace sim
} // namespace edidvm
