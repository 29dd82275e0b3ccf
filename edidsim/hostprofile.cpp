// SPDX-License-Identifier: MIT
// edidsim --host-profile: the host variations a probe report lists, each
// one our host plays a scenario under.

#include "edidsim/commands.h"
#include "host/variation.h"
#include "sim/jsonnode.h"
#include "sim/scenario.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace edidvm {
namespace edidsim {

std::vector<std::string> readHostProfile(const std::string& file, std::string* refusal)
{
    const auto refuse = [&](const std::string& why) {
        *refusal = file + ": " + why;
        return std::vector<std::string>();
    };
    std::string text;
    try {
        text = sim::readScenarioText(file);
    } catch (const sim::ScenarioError& error) {
        return refuse(error.problems().front().message);
    }
    const nlohmann::json root = nlohmann::json::parse(text, nullptr, false);
    if (root.is_discarded())
        return refuse("not a probe report: not JSON");
    if (!root.is_object() || !root.contains("report") || !root["report"].is_object())
        return refuse("not a probe report: no \"report\" object, where the probe writes what it measured");
    const nlohmann::json& report = root["report"];
    if (!report.contains("probe") || !report["probe"].is_object())
        return refuse("not a probe report: no /report/probe object naming the probe and its run");
    if (!report.contains("variations") || !report["variations"].is_array())
        return refuse("not a probe report: no /report/variations list; the probe writes it when it has finished "
                      "(/report/probe/state is \"finished\")");
    std::vector<std::string> names;
    sim::Keys known;
    for (host::Variation variation : host::allVariations())
        known.push_back(host::variationName(variation));
    for (std::size_t i = 0; i < report["variations"].size(); ++i) {
        const nlohmann::json& item = report["variations"][i];
        const std::string where = "/report/variations/" + std::to_string(i) + "/name";
        if (!item.is_object() || !item.contains("name") || !item["name"].is_string())
            return refuse(where + ": missing; expected the name of a host variation");
        const std::string name = item["name"].get<std::string>();
        if (std::find(known.begin(), known.end(), name) == known.end())
            return refuse(where + ": unknown host variation \"" + name + "\"" + sim::didYouMean(name, known) +
                          "; expected one of " + sim::joined(known));
        if (std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
    }
    if (names.empty())
        return refuse("the probe report lists no host variation at /report/variations");
    return names;
}

} // namespace edidsim
} // namespace edidvm
