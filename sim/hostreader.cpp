// SPDX-License-Identifier: MIT
// How our host behaves while a scenario plays: its variation, named as the
// host names it, and what it delivers on its own.

#include "sim/reader_p.h"

#include "host/variation.h"

namespace edidvm {
namespace sim {

void Reader::hostBehaviour(const JsonNode& node, HostBehaviour& behaviour) const
{
    node.keys({"variation", "deliver", "during", "times"});
    if (node.has("variation")) {
        const JsonNode name = node.at("variation");
        behaviour.variation = name.text();
        if (!host::variationNamed(behaviour.variation)) {
            Keys names;
            for (host::Variation known : host::allVariations())
                names.push_back(host::variationName(known));
            name.fail("unknown host variation \"" + behaviour.variation + "\"; expected one of " + joined(names));
        }
    }
    const auto messageNumber = [this](const JsonNode& item) {
        const Expectation named = expectation(item);
        if (named.number == 0)
            item.fail("expected a message, not a service call");
        return named.number;
    };
    if (node.has("deliver")) {
        for (const JsonNode& item : node.at("deliver").items("a list of messages to deliver")) {
            HostDelivery delivery;
            if (item.value().is_object()) {
                item.keys({"number", "interface", "size"});
                delivery.number = messageNumber(item.need("number", "a message name or number"));
                if (item.has("interface"))
                    delivery.interfaceId = interfaceRef(item.at("interface"));
                if (item.has("size"))
                    delivery.size = item.at("size").int32();
            } else {
                delivery.number = messageNumber(item);
            }
            behaviour.deliver.push_back(delivery);
        }
    }
    if (node.has("during")) {
        for (const JsonNode& item : node.at("during").items("a list of messages the component sends"))
            behaviour.during.push_back(messageNumber(item));
    }
    node.read("times", behaviour.times, -1, Int32Max);
}

} // namespace sim
} // namespace edidvm
