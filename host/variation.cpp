// SPDX-License-Identifier: MIT
#include "host/variation.h"

namespace edidvm {
namespace host {

namespace {
struct Named
{
    Variation variation;
    const char* name;
};

const Named names[] = {
    {Variation::Default, "default"},
    {Variation::LentPayloads, "lent-payloads"},
    {Variation::AnswerElsewhere, "answer-elsewhere"},
    {Variation::UnstableData, "unstable-data"},
    {Variation::NestedDeliveries, "nested-deliveries"},
    {Variation::MovingCurrent, "moving-current"},
};
} // namespace

const char* variationName(Variation variation)
{
    for (const Named& entry : names)
        if (entry.variation == variation)
            return entry.name;
    return "?";
}

std::optional<Variation> variationNamed(const std::string& name)
{
    for (const Named& entry : names)
        if (name == entry.name)
            return entry.variation;
    return std::nullopt;
}

const std::vector<Variation>& allVariations()
{
    static const std::vector<Variation> all = [] {
        std::vector<Variation> list;
        for (const Named& entry : names)
            list.push_back(entry.variation);
        return list;
    }();
    return all;
}

} // namespace host
} // namespace edidvm
