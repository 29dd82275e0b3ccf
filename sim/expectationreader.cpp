// SPDX-License-Identifier: MIT
// What a step expects the component to put out: a message of the table or a
// configuration service call, with fields the trace can show.

#include "sim/reader_p.h"

#include <cstdlib>
#include <regex>
#include <string>

namespace edidvm {
namespace sim {

namespace {
// The fields the simulator traces for a configuration service's call.
Fields callShape(const std::string& call)
{
    if (call == "subcardOfSlot")
        return {{"slot", 0}, {"answer", 0}};
    return {{"subcard", 0}, {"key", 0}, {"deviceParam", 0}, {"answer", Fields::array({0})}};
}

// "1920x1080@60.00", as timingText prints a timing.
bool isTimingText(const std::string& text)
{
    static const std::regex form(R"(-?[0-9]+x-?[0-9]+@-?[0-9]+\.[0-9]{2})");
    return std::regex_match(text, form);
}

// Keys the message's trace never shows can never match: refused, at every
// depth. A null shape takes anything; a list's shape is its elements'.
void fitShape(const JsonNode& node, const Fields& shape, const std::string& name)
{
    if (shape.is_object()) {
        if (!node.value().is_object())
            node.expected("an object (as the trace shows " + name + ")");
        Keys allowed;
        for (const auto& item : shape.items())
            allowed.push_back(item.key());
        node.keys(allowed, " of " + name);
        for (const auto& item : shape.items()) {
            if (node.has(item.key().c_str()))
                tryReading([&] { fitShape(node.at(item.key()), item.value(), name); });
        }
    } else if (shape.is_array()) {
        if (!node.value().is_array())
            node.expected("a list (as the trace shows " + name + ")");
        if (!shape.empty()) {
            for (const JsonNode& item : node.items("a list"))
                tryReading([&] { fitShape(item, shape.front(), name); });
        }
    } else if (!shape.is_null()) {
        const std::string as = " (as the trace shows " + name + ")";
        const nlohmann::json& value = node.value();
        if (value.is_object() || value.is_array())
            node.expected("a single value" + as);
        // A value of another type, or a timing in another form, never equals what the trace shows.
        if (shape.is_number() && !value.is_number())
            node.expected("a number" + as);
        if (shape.is_boolean() && !value.is_boolean())
            node.expected("true or false" + as);
        if (shape.is_string() && isTimingText(shape.get<std::string>()) &&
            !(value.is_string() && isTimingText(value.get<std::string>()))) {
            const std::string timing = "a timing as the trace prints it, WxH@R.RR such as \"1920x1080@60.00\"" + as;
            if (value.is_string())
                node.fail("expected " + timing + ", got \"" + value.get<std::string>() + "\"");
            node.expected(timing);
        }
        if (shape.is_string() && !value.is_string())
            node.expected("a string" + as);
    }
}
} // namespace

Expectation Reader::expectation(const JsonNode& node) const
{
    Expectation expectation;
    const bool object = node.value().is_object();
    if (object) {
        if (node.has("number") == node.has("name")) {
            // {"nmae": "X"}: the misspelt key is named where it is.
            for (const auto& item : node.value().items()) {
                const std::string hint = didYouMean(item.key(), {"number", "name"});
                if (!node.has("number") && !hint.empty())
                    node.at(item.key()).fail("unknown key" + hint + "; expected \"number\" or \"name\"");
            }
            node.fail("expected either \"number\" or \"name\"");
        }
        for (const auto& item : node.value().items()) {
            if (item.key() != "number" && item.key() != "name")
                expectation.fields[item.key()] = item.value();
        }
    } else if (!node.value().is_string()) {
        node.expected("a message name or number, or an object with \"number\" or \"name\" and fields");
    }
    const JsonNode ident = object ? node.at(node.has("number") ? "number" : "name") : node;
    const std::string text = ident.text();
    // The message's own keys, and "number" or "name", which named it.
    const auto checkFields = [&](Fields shape, const std::string& name) {
        if (!object)
            return;
        shape[node.has("number") ? "number" : "name"] = nullptr;
        fitShape(node, shape, name);
    };
    if (text == "subcardOfSlot" || text == "relatedConnectors") {
        expectation.call = text;
        checkFields(callShape(text), text);
        return expectation;
    }
    const MessageInfo* info = nullptr;
    if (text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0) {
        char* end = nullptr;
        const unsigned long number = std::strtoul(text.c_str() + 2, &end, 16);
        if (end != nullptr && *end == '\0' && text.size() > 2 && number <= Word32Max)
            info = findMessage(static_cast<std::uint32_t>(number));
    } else {
        info = findMessage(text);
    }
    if (info == nullptr) {
        Keys names = {"subcardOfSlot", "relatedConnectors"};
        for (const MessageInfo& known : messageTable())
            names.push_back(known.name);
        ident.fail("unknown message \"" + text + "\"" + didYouMean(text, names) +
                   "; expected a name or number of the message table (edidsim --messages-markdown), "
                   "subcardOfSlot or relatedConnectors");
    }
    expectation.number = info->number;
    checkFields(expectableFields(*info), info->name);
    return expectation;
}

} // namespace sim
} // namespace edidvm
