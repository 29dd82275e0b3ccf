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
    if (node.has("variation"))
        tryReading([&] {
            const JsonNode name = node.at("variation");
            behaviour.variation = name.text();
            if (!host::variationNamed(behaviour.variation)) {
                Keys names;
                for (host::Variation known : host::allVariations())
                    names.push_back(host::variationName(known));
                name.fail("unknown host variation \"" + behaviour.variation + "\"" +
                          didYouMean(behaviour.variation, names) + "; expected one of " + joined(names));
            }
        });
    const auto messageNumber = [this](const JsonNode& item) {
        const Expectation named = expectation(item);
        if (named.number == 0)
            item.fail("expected a message, not a service call");
        return named.number;
    };
    if (node.has("deliver")) {
        tryReading([&] {
            for (const JsonNode& item : node.at("deliver").items("a list of messages to deliver"))
                tryReading([&] {
                    HostDelivery delivery;
                    if (item.value().is_object()) {
                        item.keys({"number", "interface", "size"});
                        tryReading(
                            [&] { delivery.number = messageNumber(item.need("number", "a message name or number")); });
                        if (item.has("interface"))
                            tryReading([&] { delivery.interfaceId = interfaceRef(item.at("interface")); });
                        if (item.has("size"))
                            tryReading([&] { delivery.size = item.at("size").int32(); });
                    } else {
                        delivery.number = messageNumber(item);
                    }
                    behaviour.deliver.push_back(delivery);
                });
        });
    }
    if (node.has("during")) {
        tryReading([&] {
            for (const JsonNode& item : node.at("during").items("a list of messages the component sends"))
                tryReading([&] { behaviour.during.push_back(messageNumber(item)); });
        });
    }
    tryReading([&] { node.read("times", behaviour.times, -1, Int32Max); });
}

} // namespace sim
} // namespace edidvm
