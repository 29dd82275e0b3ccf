// SPDX-License-Identifier: MIT
#pragma once

// The table of every message number the component handles or sends. It names
// the messages in the trace, decodes their payloads, and is the source of the
// generated docs/messages.md.

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace edidvm {
namespace sim {

// Decoded payload fields, in the order they are shown.
using Fields = nlohmann::ordered_json;

enum class Kind { Command, Event, QueuedEvent };
enum class Direction { In, Out }; // as seen from the component

// data is valid only during the call; addresses it carries (envelopes,
// vector objects) point into the sender's memory and are read in place.
using Decoder = Fields (*)(const void* data);
// Every key the decoder can show, at every depth; a null value stands for
// anything (a filter's parameters), a list holds its elements' shape.
using Shape = Fields (*)();

struct MessageInfo
{
    std::uint32_t number;
    const char* name;
    Kind kind;
    Direction direction;
    int size;           // exact payload length; -1: any, or not read
    const char* length; // as documented, e.g. "8 (envelope address); reply 1"
    const char* record;
    const char* effect; // what the component does with it, or why it sends it
    Decoder decode;     // null: nothing to show; called only when size matches
    Shape shape;        // null: no fields
};

const std::vector<MessageInfo>& messageTable();
// Null when the number or name is not in the table.
const MessageInfo* findMessage(std::uint32_t number);
const MessageInfo* findMessage(const std::string& name);

// "0xFC00060A"
std::string hexNumber(std::uint32_t number);
// The payload's fields; an "error" field when the length is not the expected.
Fields decodePayload(const MessageInfo& info, const void* data, int size);

// The fields an expectation of the message may name: its shape, with the
// "error" a payload of an unexpected length shows.
Fields expectableFields(const MessageInfo& info);

// docs/messages.md, generated from the table.
std::string messagesMarkdown();

} // namespace sim
} // namespace edidvm
