// SPDX-License-Identifier: MIT
// What a step expects the component to put out: a message of the table or a
// configuration service call, with fields the trace can show.

#include "sim/reader_p.h"

#include <cstdlib>
#include <string>

namespace edidvm {
namespace sim {

namespace {
// The fields the simulator traces for a configuration service's call.
Fields callShape(const std::string& call)
{
    if (call == "subcardOfSlot")
        return {{"slot", 0}, {"answer", 0}};
    return {{"subcard", 0}, {"key", 0}, {"deviceParam", 0}, {"answer", Fields::array()}};
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
    } else if (!shape.is_null() && (node.value().is_object() || node.value().is_array())) {
        node.expected("a single value (as the trace shows " + name + ")");
    }
}
} // namespace

Expectation Reader::expectation(const JsonNode& node) const
{
    Expectation expectation;
    const bool object = node.value().is_object();
    if (object) {
        if (node.has("number") == node.has("name"))
            node.fail("expected either \"number\" or \"name\"");
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
