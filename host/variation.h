// SPDX-License-Identifier: MIT
#pragma once

// The ways our host can behave within the contract, beyond its default.

#include <optional>
#include <string>
#include <vector>

namespace edidvm {
namespace host {

enum class Variation {
    Default,          // payloads copied, queries answered in the asker's envelope
    LentPayloads,     // data() is the sender's own buffer
    AnswerElsewhere,  // lent payloads, and a responder that asks for it points
                      // the asker's pointer variable at an envelope it keeps
    UnstableData,     // a delivered message's data() is null after the first call
    NestedDeliveries, // the interjection is delivered during every own send
    MovingCurrent,    // the interjection is delivered once a command is answered
};

const char* variationName(Variation variation);
std::optional<Variation> variationNamed(const std::string& name);
const std::vector<Variation>& allVariations();

} // namespace host
} // namespace edidvm
