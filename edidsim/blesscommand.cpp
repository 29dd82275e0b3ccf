// SPDX-License-Identifier: MIT
// edidsim --bless and --format: scenario files rewritten in their canonical
// form, blessed ones with what the component put out as their expectations.

#include "edidsim/commands.h"
#include "host/host.h"
#include "sim/exitstatus.h"
#include "sim/player.h"
#include "sim/runreport.h"
#include "sim/scenario.h"
#include "sim/scenarioformat.h"
#include "sim/trace.h"
#include "sim/tracelog.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace edidvm {
namespace edidsim {

namespace {

using namespace sim;
using nlohmann::ordered_json;

// An item of "expect" as a user writes it: the table's name, bare when the
// trace shows no fields.
ordered_json expectation(const Entry& entry)
{
    const std::string name = entry.number != 0 ? findMessage(entry.number)->name : entry.name;
    if (entry.fields.empty())
        return name;
    ordered_json item = {{"name", name}};
    for (const auto& field : entry.fields.items())
        item[field.key()] = field.value();
    return item;
}

// Writes what came into the step; true when the step changed.
bool blessStep(ordered_json& step, const StepOutcome& outcome)
{
    const ordered_json before = step;
    ordered_json expect = ordered_json::array();
    for (const Entry& entry : outcome.came)
        expect.push_back(expectation(entry));
    step["expect"] = expect;
    if (outcome.logged.empty()) {
        step.erase("warnings");
    } else {
        ordered_json warnings = ordered_json::array();
        for (const Warning& warning : outcome.logged)
            warnings.push_back(warning.text);
        step["warnings"] = warnings;
    }
    return step != before;
}

// Only messages the table names can be expected.
std::string unnamed(const std::vector<Entry>& came)
{
    for (const Entry& entry : came) {
        if (entry.number != 0 && findMessage(entry.number) == nullptr)
            return hexNumber(entry.number);
    }
    return {};
}

// Plays the scenario and rewrites its file. Steps whose expectations were
// met keep them as written; a scenario that checks nothing has every step
// blessed.
int blessFile(const Scenario& scenario, host::Host& host, Trace& trace)
{
    const std::string& file = scenario.file;
    ordered_json document = readScenarioDocument(file);
    ordered_json& steps = document.at("steps");
    const bool checksAny = std::any_of(scenario.steps.begin(), scenario.steps.end(),
                                       [](const Step& step) { return step.expect || step.warnings; });

    Player player(host, scenario, trace);
    player.start();
    int changed = 0;
    std::string message; // one the table lacks
    for (std::size_t index = 0; index < scenario.steps.size() && message.empty(); ++index) {
        const bool met = player.playStep(index);
        const StepOutcome& outcome = player.lastOutcome();
        if (checksAny && (!outcome.checked || met))
            continue;
        message = unnamed(outcome.came);
        if (!message.empty())
            std::fprintf(stderr, "edidsim: %s: not blessed: step %zu puts out %s, which the message table lacks\n",
                         file.c_str(), index, message.c_str());
        else
            changed += blessStep(steps.at(index), outcome) ? 1 : 0;
    }
    // Also when stopping early: the host must no longer call into the player.
    const bool hostFailed = player.finish() != 0;
    if (!message.empty())
        return ExpectationsNotMet;

    const std::string text = canonicalScenarioText(document);
    const std::string counted = std::to_string(changed) + " of " + std::to_string(scenario.steps.size()) + " steps";
    if (text == readScenarioText(file)) {
        std::printf("unchanged %s: %s changed\n", file.c_str(), counted.c_str());
    } else {
        // Whatever a bless writes, the reader must take.
        replaceScenarioFile(file, text, [&file](const std::string& written) {
            try {
                loadScenario(written);
            } catch (const ScenarioError& error) {
                throw ScenarioError(file, std::string("not blessed, the reader refuses the result:\n") + error.what());
            }
        });
        std::printf("blessed %s: %s changed%s\n", file.c_str(), counted.c_str(), changed == 0 ? ", reformatted" : "");
    }
    if (hostFailed) {
        std::fprintf(stderr, "edidsim: %s: still fails: the host found its kept envelopes changed\n", file.c_str());
        return ExpectationsNotMet;
    }
    return Passed;
}

} // namespace

int blessScenarios(const std::vector<Scenario>& scenarios, const std::string& plugin)
{
    // The trace is not shown: the files are what a bless puts out.
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> sink(std::fopen("/dev/null", "w"), &std::fclose);
    if (!sink) {
        std::fprintf(stderr, "edidsim: /dev/null cannot be opened\n");
        return BadInput;
    }
    Trace trace(sink.get(), false, false);
    std::optional<TraceLog> log(std::in_place, trace);
    int status = Passed;
    for (const Scenario& scenario : scenarios) {
        host::Host host;
        if (!host.load(plugin)) {
            log.reset();
            std::fprintf(stderr, "edidsim: %s\n", host.error().c_str());
            return PluginNotLoaded;
        }
        try {
            status = std::max(status, blessFile(scenario, host, trace));
        } catch (const ScenarioError& error) {
            printProblems(error);
            status = std::max<int>(status, BadInput);
        }
    }
    return status;
}

int formatScenarios(const std::vector<std::string>& files)
{
    int status = Passed;
    for (const std::string& file : files) {
        try {
            // Only what the reader takes is a scenario to rewrite.
            loadScenario(file);
            const std::string text = canonicalScenarioText(readScenarioDocument(file));
            if (text != readScenarioText(file)) {
                replaceScenarioFile(file, text);
                std::printf("reformatted %s\n", file.c_str());
            }
        } catch (const ScenarioError& error) {
            printProblems(error);
            status = BadInput;
        }
    }
    return status;
}

} // namespace edidsim
} // namespace edidvm
