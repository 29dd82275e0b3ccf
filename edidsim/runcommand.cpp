// SPDX-License-Identifier: MIT
// edidsim's default subcommand: loads the output EDID view model on our host,
// plays a simulated device and page from scenario files, and prints the trace
// of every message that crosses the component's boundary.

#include "edidsim/commands.h"
#include "host/host.h"
#include "host/variation.h"
#include "sim/exitstatus.h"
#include "sim/player.h"
#include "sim/scenario.h"
#include "sim/trace.h"
#include "sim/tracelog.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#ifndef EDIDVM_VERSION
#define EDIDVM_VERSION "unknown"
#endif

namespace edidvm {
namespace edidsim {

namespace {

using namespace sim;

// A refused file's problems, one a line.
void printProblems(const std::string& problems)
{
    std::size_t start = 0;
    while (start < problems.size()) {
        const std::size_t end = std::min(problems.find('\n', start), problems.size());
        std::fprintf(stderr, "edidsim: %s\n", problems.substr(start, end - start).c_str());
        start = end + 1;
    }
}

// "3 scenarios: 2 passed, 1 failed (bug.json)"
void traceSummary(Trace& trace, std::size_t count, const std::vector<std::string>& failed)
{
    std::string names;
    for (const std::string& file : failed)
        names += (names.empty() ? "" : ", ") + std::filesystem::path(file).filename().string();
    const std::size_t passed = count - failed.size();
    trace.heading(
        std::to_string(count) + " scenarios: " + std::to_string(passed) + " passed, " + std::to_string(failed.size()) +
            " failed" + (names.empty() ? "" : " (" + names + ")"),
        {{"summary", {{"scenarios", count}, {"passed", passed}, {"failed", failed.size()}, {"failedFiles", failed}}}});
}

} // namespace

int runCommand(int argc, char** argv, const Defaults& defaults)
{
    CLI::App app("Plays a scenario against the output EDID view model: the simulated device answers its queries, "
                 "the page sends the steps, and every message crossing the component's boundary is traced.",
                 "edidsim");
    std::string plugin = defaults.plugin;
    std::vector<std::string> files = {defaults.scenario};
    bool json = false;
    bool markdown = false;
    std::string variation;
    std::vector<std::string> variations;
    for (host::Variation known : host::allVariations())
        variations.push_back(host::variationName(known));
    app.add_option("scenario", files, "scenario files (JSON), played in order")->capture_default_str();
    app.add_option("--plugin", plugin, "the plug-in library to load")->capture_default_str();
    app.add_flag("--json", json, "print the trace as JSON Lines");
    app.add_option("--host-variation", variation,
                   "how the host behaves within the contract; overrides the scenario's \"host\" variation")
        ->check(CLI::IsMember(variations));
    app.add_flag("--messages-markdown", markdown, "print the message reference (docs/messages.md) and exit");
    bool bless = false;
    bool format = false;
    app.add_flag("--bless", bless,
                 "play each scenario and write what came into its steps that did not meet their expectations "
                 "(every step when none has any), in the canonical form")
        ->excludes("--json");
    app.add_flag("--format", format, "rewrite each scenario file in the canonical form, without playing it")
        ->excludes("--bless");
    app.set_version_flag("--version", std::string("edidsim ") + EDIDVM_VERSION);
    app.footer("Exit status, the worst of all scenarios: 0 every expectation met, 1 an expectation not met, 2 a bad "
               "scenario or command line (every file is checked before any runs), 3 a plug-in that does not load.\n\n" +
               commandsHelp());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Passed : BadInput;
    }

    if (markdown) {
        std::fputs(messagesMarkdown().c_str(), stdout);
        return Passed;
    }

    if ((bless || format) && app.count("scenario") == 0) {
        std::fprintf(stderr, "edidsim: %s needs the scenario files to rewrite\n", bless ? "--bless" : "--format");
        return BadInput;
    }
    if (format)
        return formatScenarios(files);

    // Every file is checked whole before anything runs.
    std::vector<Scenario> scenarios;
    bool refused = false;
    for (const std::string& file : files) {
        try {
            scenarios.push_back(loadScenario(file));
            if (!variation.empty())
                scenarios.back().host.variation = variation;
        } catch (const ScenarioError& error) {
            printProblems(error.what());
            refused = true;
        }
    }
    if (refused)
        return BadInput;
    if (bless)
        return blessScenarios(scenarios, plugin);

    Trace trace(stdout, json, colourWanted(json));
    std::optional<TraceLog> log(std::in_place, trace);

    // Each scenario on a freshly loaded plug-in, as the device starts it.
    std::vector<std::string> failedFiles;
    for (const Scenario& scenario : scenarios) {
        int failed = 0;
        {
            host::Host host;
            if (!host.load(plugin)) {
                log.reset();
                std::fprintf(stderr, "edidsim: %s\n", host.error().c_str());
                return PluginNotLoaded;
            }
            Player player(host, scenario, trace);
            failed = player.run();
        }
        if (failed != 0) {
            std::fprintf(stderr, "edidsim: %s: %d step(s) did not meet their expectations\n", scenario.file.c_str(),
                         failed);
            failedFiles.push_back(scenario.file);
        }
    }
    log.reset();

    if (scenarios.size() > 1)
        traceSummary(trace, scenarios.size(), failedFiles);
    return failedFiles.empty() ? Passed : ExpectationsNotMet;
}

} // namespace edidsim
} // namespace edidvm
