// SPDX-License-Identifier: MIT
#include "sim/trace.h"

#include <cstdio>

namespace edidvm {
namespace sim {

namespace {
const char* const Bold = "\033[1m";
const char* const Cyan = "\033[36m";
const char* const Green = "\033[32m";
const char* const Yellow = "\033[33m";
const char* const Red = "\033[31m";
const char* const Plain = "\033[0m";

// Bare when it reads unambiguously, quoted otherwise.
std::string valueText(const Fields& value)
{
    if (value.is_string()) {
        const std::string text = value.get<std::string>();
        const bool bare = !text.empty() && text.find_first_of(" =\"{}[],\\") == std::string::npos;
        return bare ? text : value.dump(-1, ' ', false, Fields::error_handler_t::replace);
    }
    if (value.is_array()) {
        std::string text = "[";
        for (const Fields& item : value)
            text += (text.size() > 1 ? ", " : "") + valueText(item);
        return text + "]";
    }
    if (value.is_object())
        return "{" + fieldsText(value) + "}";
    return value.dump();
}

// A line of the text trace never moves the terminal's cursor or sets its
// modes: control characters from a scenario or the component are shown as
// JSON writes them. JSON records carry them as they are.
std::string printable(const std::string& text)
{
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            shown += c;
        } else if (c == '\n' || c == '\r' || c == '\t') {
            shown += c == '\n' ? "\\n" : c == '\r' ? "\\r" : "\\t";
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            shown += escaped;
        }
    }
    return shown;
}

// The function's own name, from the full signature the library logs.
std::string shortName(const std::string& signature)
{
    const std::string head = signature.substr(0, signature.find('('));
    const std::size_t colon = head.rfind("::");
    const std::size_t space = head.rfind(' ');
    const std::size_t start = colon != std::string::npos ? colon + 2 : space != std::string::npos ? space + 1 : 0;
    return head.substr(start);
}
} // namespace

std::string fieldsText(const Fields& fields)
{
    std::string text;
    for (const auto& item : fields.items())
        text += (text.empty() ? "" : " ") + item.key() + "=" + valueText(item.value());
    return text;
}

std::string entryText(std::uint32_t number, const std::string& name, const Fields& fields)
{
    std::string text = number != 0 ? hexNumber(number) + " " + name : name;
    if (!fields.empty())
        text += " " + fieldsText(fields);
    return text;
}

Trace::Trace(std::FILE* out, bool json, bool colour) : m_out(out), m_json(json), m_colour(colour)
{
    record({{"type", "trace"}, {"version", Version}});
}

void Trace::line(const char* colour, const std::string& text, const Fields& record)
{
    if (m_json)
        std::fprintf(m_out, "%s\n", record.dump(-1, ' ', false, Fields::error_handler_t::replace).c_str());
    else if (m_colour && colour != nullptr)
        std::fprintf(m_out, "%s%s%s\n", colour, printable(text).c_str(), Plain);
    else
        std::fprintf(m_out, "%s\n", printable(text).c_str());
    std::fflush(m_out);
}

void Trace::heading(const std::string& text, const Fields& record)
{
    line(Bold, "== " + text, record);
}

void Trace::entry(const Entry& entry)
{
    const bool in = entry.direction == Direction::In;
    if (!in)
        m_outputs.push_back(entry);

    char head[96];
    std::snprintf(head, sizeof head, "%-3s %-7s %-10s %-24s %4s", in ? "in" : "out", entry.kind.c_str(),
                  entry.number != 0 ? hexNumber(entry.number).c_str() : "-", entry.name.c_str(),
                  entry.length >= 0 ? std::to_string(entry.length).c_str() : "");
    std::string text = head;
    if (!entry.fields.empty())
        text += "  " + fieldsText(entry.fields);
    while (!text.empty() && text.back() == ' ')
        text.pop_back();

    Fields record = {{"type", "message"}, {"dir", in ? "in" : "out"}, {"kind", entry.kind}};
    record["number"] = entry.number != 0 ? Fields(hexNumber(entry.number)) : Fields();
    record["name"] = entry.name;
    record["length"] = entry.length >= 0 ? Fields(entry.length) : Fields();
    record["fields"] = entry.fields;
    line(in ? Cyan : Green, text, record);
}

void Trace::warning(const Warning& warning)
{
    m_warnings.push_back(warning);
    line(Yellow, "    warning " + shortName(warning.function) + ": " + warning.text,
         {{"type", "warning"}, {"text", warning.text}, {"function", warning.function}});
}

void Trace::note(const std::string& text)
{
    line(nullptr, "    " + text, {{"type", "note"}, {"text", text}});
}

void Trace::failure(const std::string& text, const Fields& record, const char* mark)
{
    m_failureText += mark + text + "\n";
    line(Red, mark + text, record);
}

void Trace::record(const Fields& record)
{
    if (m_json)
        line(nullptr, "", record);
}

void Trace::difference(char mark, const std::string& text, const Fields& record)
{
    const std::string shown = std::string("   ") + mark + " " + text;
    m_failureText += shown + "\n";
    if (m_json && record.is_null())
        return;
    const char* colour = mark == '-' ? Red : mark == '+' ? Green : mark == '!' ? Yellow : nullptr;
    line(colour, shown, record);
}

std::vector<Entry> Trace::takeOutputs()
{
    std::vector<Entry> taken;
    taken.swap(m_outputs);
    return taken;
}

std::string Trace::takeFailureText()
{
    std::string taken;
    taken.swap(m_failureText);
    return taken;
}

std::vector<Warning> Trace::takeWarnings()
{
    std::vector<Warning> taken;
    taken.swap(m_warnings);
    return taken;
}

} // namespace sim
} // namespace edidvm
