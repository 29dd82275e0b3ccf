// SPDX-License-Identifier: MIT
#pragma once

// Checking a JSON document while reading it: each value knows where it sits,
// and every problem found is recorded, so that one run reports them all.

#include "sim/problem.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace edidvm {
namespace sim {

constexpr std::int64_t Int32Min = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t Int32Max = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t Word32Max = std::numeric_limits<std::uint32_t>::max();

using Keys = std::vector<std::string>;

// A key as a token of a JSON pointer: "~" and "/" escaped.
std::string pointerToken(const std::string& key);

// "a, b, c"
std::string joined(const Keys& keys);

// " (did you mean \"height\"?)" when one of candidates is a likely
// misspelling of word: a few edits away (an insertion, deletion, change or
// swap of neighbours each, case ignored). Empty when none is that close.
std::string didYouMean(const std::string& word, const Keys& candidates);

// Thrown after a problem is recorded: reading goes on at the next part that
// does not depend on the one abandoned. Never leaves loadScenario.
struct Abandoned
{
};

// Runs read; a part it abandons has already been recorded.
template <typename Read>
void tryReading(Read read)
{
    try {
        read();
    } catch (const Abandoned&) {
    }
}

// A JSON value and where it sits, as a JSON pointer; its problems are
// recorded with the file's others. The value and the problem list must
// outlive the node.
class JsonNode
{
public:
    JsonNode(const nlohmann::json& value, std::string path, std::vector<Problem>& problems)
        : m_value(value), m_path(std::move(path)), m_problems(problems)
    {}

    const nlohmann::json& value() const { return m_value; }
    const std::string& path() const { return m_path; }

    void report(const std::string& text) const;
    [[noreturn]] void fail(const std::string& text) const;
    [[noreturn]] void expected(const std::string& what) const;

    // An object with no other keys than these; each other key is reported.
    void keys(const Keys& allowed, const std::string& whose = "") const;
    bool has(const char* key) const { return m_value.contains(key); }
    JsonNode at(const std::string& key) const;
    JsonNode need(const char* key, const std::string& what) const;
    std::vector<JsonNode> items(const std::string& what) const;
    std::int64_t integer(std::int64_t min = Int32Min, std::int64_t max = Int32Max) const;
    std::int32_t int32() const { return static_cast<std::int32_t>(integer()); }
    // The value of key, when present, into target.
    template <typename T>
    void read(const char* key, T& target, std::int64_t min = Int32Min, std::int64_t max = Int32Max) const
    {
        if (has(key))
            target = static_cast<T>(at(key).integer(min, max));
    }
    // The same, where null stands for no value.
    template <typename T>
    void readNullable(const char* key, std::optional<T>& target, std::int64_t min, std::int64_t max) const
    {
        if (has(key))
            target =
                at(key).value().is_null() ? std::nullopt : std::optional<T>(static_cast<T>(at(key).integer(min, max)));
    }
    std::vector<std::int32_t> integers(const std::string& what, std::int64_t min = Int32Min) const;
    // A number a float holds: larger ones would convert undefined.
    float floatNumber(bool positive) const;
    std::string text() const;
    // true or false, or 1 or 0 as the trace prints flags.
    bool boolean() const;

private:
    std::string childPath(const std::string& key) const;
    // Where a key is or would be; its value is not read.
    JsonNode child(const std::string& key) const;
    std::string shown() const;

    const nlohmann::json& m_value;
    std::string m_path;
    std::vector<Problem>& m_problems; // their file is left empty
};

} // namespace sim
} // namespace edidvm
