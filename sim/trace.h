// SPDX-License-Identifier: MIT
#pragma once

// The trace: one line per message crossing the component's boundary, with
// the component's warnings where they happen. Text for people (coloured on a
// terminal) or JSON Lines for programs, each record with its "type" (the
// format is docs/trace.md's); no addresses and no times, so two runs of the
// same build diff clean.

#include "sim/messages.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace edidvm {
namespace sim {

struct Entry
{
    Direction direction = Direction::In;
    std::string kind;         // command, event, queued, reply or call
    std::uint32_t number = 0; // 0 for a configuration service call
    std::string name;
    int length = -1; // payload bytes; -1 where nothing travels as bytes
    Fields fields = Fields::object();
};

struct Warning
{
    std::string function; // the full signature, as logged
    std::string text;
};

class Trace
{
public:
    // The JSON format's version: raised when a record loses or renames a
    // field, changes a field's meaning or type, or a type of record goes;
    // new types of record and new fields keep it.
    static constexpr int Version = 1;

    // In JSON the first record, {"type":"trace","version":1}, says which
    // format follows.
    Trace(std::FILE* out, bool json, bool colour);
    bool json() const { return m_json; }

    // The records passed in carry their "type".
    void heading(const std::string& text, const Fields& record);
    void entry(const Entry& entry);
    void warning(const Warning& warning);
    void note(const std::string& text);
    // "!! text" unless marked otherwise.
    void failure(const std::string& text, const Fields& record, const char* mark = "!! ");
    // A line of a failure's comparison, marked as diff marks it; a null
    // record is shown as text only (context).
    void difference(char mark, const std::string& text, const Fields& record);
    // A record only programs read: nothing in text.
    void record(const Fields& record);

    // What the component put out and logged since the last call.
    std::vector<Entry> takeOutputs();
    std::vector<Warning> takeWarnings();
    // The failures and their comparisons since the last call, as the text
    // trace shows them without colour, whichever form is printed.
    std::string takeFailureText();

private:
    void line(const char* colour, const std::string& text, const Fields& record);

    std::FILE* m_out;
    bool m_json;
    bool m_colour;
    std::vector<Entry> m_outputs;
    std::vector<Warning> m_warnings;
    std::string m_failureText;
};

// "timing=1920x1080@60.00 box={id=35 type=2}"
std::string fieldsText(const Fields& fields);
// "0xFC030605 Confirmation box={id=35}", or "relatedConnectors subcard=1 ..."
std::string entryText(std::uint32_t number, const std::string& name, const Fields& fields);

} // namespace sim
} // namespace edidvm
