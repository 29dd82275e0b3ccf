// SPDX-License-Identifier: MIT
// edidsim's default subcommand: loads the output EDID view model on our host,
// plays a simulated device and page from scenario files, and prints the trace
// of every message that crosses the component's boundary.

#include "edidsim/commands.h"
#include "edidsim/junitreport.h"
#include "framework/componentinfo.h"
#include "host/host.h"
#include "host/variation.h"
#include "sim/exitstatus.h"
#include "sim/jsonnode.h"
#include "sim/player.h"
#include "sim/runreport.h"
#include "sim/scenario.h"
#include "sim/trace.h"
#include "sim/tracelog.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
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

// The report is written however the run ends.
class JunitFile
{
public:
    explicit JunitFile(const std::vector<std::string>& files)
    {
        for (const std::string& file : files)
            cases.push_back({file, JunitCase::Outcome::Skipped, "not played: the run stopped before it", ""});
    }
    ~JunitFile()
    {
        if (m_file == nullptr)
            return;
        std::fputs(junitXml(cases).c_str(), m_file);
        std::fclose(m_file);
    }
    JunitFile(const JunitFile&) = delete;
    JunitFile& operator=(const JunitFile&) = delete;

    // Opened before anything runs, so a path that cannot be written is a bad command line.
    bool open(const std::string& path)
    {
        m_file = std::fopen(path.c_str(), "w");
        return m_file != nullptr;
    }

    std::vector<JunitCase> cases;

private:
    std::FILE* m_file = nullptr;
};

// "--jsn" names the option it is close to.
std::string optionHint(const CLI::App& app, int argc, char** argv)
{
    Keys names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    }
    for (int i = 1; i < argc; ++i) {
        const std::string word = std::string(argv[i]).substr(0, std::string(argv[i]).find('='));
        if (word == "--")
            break;
        if (word.rfind("--", 0) == 0 && std::find(names.begin(), names.end(), word) == names.end()) {
            const std::string hint = didYouMean(word, names);
            if (!hint.empty())
                return hint;
        }
    }
    return {};
}

} // namespace

int refuseCommandLine(int argc, char** argv, const std::string& message)
{
    if (jsonAsked(argc, argv)) {
        Trace trace(stdout, true, false);
        traceError(trace, BadInput, message);
        traceSummary(trace, Totals(), BadInput);
    } else {
        std::fprintf(stderr, "edidsim: %s\n", message.c_str());
    }
    return BadInput;
}

int runCommand(int argc, char** argv, const Defaults& defaults)
{
    CLI::App app("Plays a scenario against the output EDID view model: the simulated device answers its queries, "
                 "the page sends the steps, and every message crossing the component's boundary is traced.",
                 "edidsim");
    std::string plugin = defaults.plugin;
    std::vector<std::string> files = {defaults.scenario};
    bool json = false;
    bool markdown = false;
    bool requireChecks = false;
    std::string junit;
    std::string variation;
    std::vector<std::string> variations;
    for (host::Variation known : host::allVariations())
        variations.push_back(host::variationName(known));
    app.add_option("scenario", files, "scenario files (JSON), played in order")->capture_default_str();
    app.add_option("--plugin", plugin, "the plug-in library to load")->capture_default_str();
    app.add_flag("--json", json, "print the trace as JSON Lines (docs/trace.md), everything on standard output");
    app.add_option("--junit", junit, "also write a JUnit XML report to this file, a test case per scenario file");
    app.add_flag("--require-checks", requireChecks,
                 "a scenario that expects nothing (and is no demonstration) fails instead of being unchecked");
    app.add_option("--host-variation", variation,
                   "how the host behaves within the contract; overrides the scenario's \"host\" variation")
        ->check(CLI::Validator(
            [&variations](std::string& name) {
                if (std::find(variations.begin(), variations.end(), name) != variations.end())
                    return std::string();
                return "unknown host variation \"" + name + "\"" + didYouMean(name, variations) + "; expected one of " +
                       joined(variations);
            },
            "NAME", "a host variation"));
    std::vector<std::string> also;
    app.add_option("--also", also,
                   "load this plug-in too, beside --plugin, as a device's host loads several (repeatable); its "
                   "components are started and answered but not traced")
        ->allow_extra_args(false);
    std::string profile;
    app.add_option("--host-profile", profile,
                   "a probe's report: play each scenario once under every host variation it lists")
        ->excludes("--host-variation");
    app.add_flag("--messages-markdown", markdown, "print the message reference (docs/messages.md) and exit");
    bool bless = false;
    bool format = false;
    // Both write the scenario files and nothing else: no trace, no report.
    app.add_flag("--bless", bless,
                 "play each scenario and write what came into its steps that did not meet their expectations "
                 "(every step when none has any), in the canonical form; not with --json, --junit, --require-checks")
        ->excludes("--json")
        ->excludes("--junit")
        ->excludes("--require-checks");
    app.add_flag("--format", format,
                 "rewrite each scenario file in the canonical form, without playing it; with no other option")
        ->excludes("--bless")
        ->excludes("--json")
        ->excludes("--junit")
        ->excludes("--require-checks")
        ->excludes("--plugin")
        ->excludes("--host-variation")
        ->excludes("--host-profile")
        ->excludes("--also");
    app.set_version_flag("--version", std::string("edidsim ") + EDIDVM_VERSION);
    app.footer("Exit status, the worst of all scenarios: 0 every expectation met (or nothing expected), 1 an "
               "expectation not met (or, with --require-checks, nothing expected), 2 a bad scenario or command line "
               "(every file is checked before any runs), 3 a plug-in that does not load.\n\n" +
               commandsHelp());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error) == 0 ? Passed : BadInput;
        const std::string hint = dynamic_cast<const CLI::ExtrasError*>(&error) ? optionHint(app, argc, argv) : "";
        const int status = refuseCommandLine(argc, argv, error.what() + hint);
        if (!jsonAsked(argc, argv))
            std::fprintf(stderr, "Run with --help for more information.\n");
        return status;
    }

    if (markdown) {
        std::fputs(messagesMarkdown().c_str(), stdout);
        return Passed;
    }

    if ((bless || format) && app.count("scenario") == 0)
        return refuseCommandLine(argc, argv,
                                 std::string(bless ? "--bless" : "--format") + " needs the scenario files to rewrite");
    // "edidsim --json pgae": a misspelt command, not a scenario file.
    std::error_code missing;
    if (app.count("scenario") != 0 && !std::filesystem::exists(files.front(), missing)) {
        const std::string hint = commandHint(files.front());
        if (!hint.empty())
            return refuseCommandLine(argc, argv, files.front() + ": no such command or scenario file" + hint);
    }
    if (format)
        return formatScenarios(files);
    // dlopen searches the library path for a name without a slash: a file
    // named so in the current directory is that file.
    if (plugin.find('/') == std::string::npos && std::filesystem::is_regular_file(plugin, missing))
        plugin = "./" + plugin;

    Trace trace(stdout, json, colourWanted(json));
    Totals totals;
    totals.scenarios = files.size();
    JunitFile report(files);
    if (!junit.empty() && !report.open(junit)) {
        traceError(trace, BadInput, junit + ": cannot be written: " + std::strerror(errno));
        traceSummary(trace, totals, BadInput);
        return BadInput;
    }

    // Every file is checked whole before anything runs.
    std::vector<Scenario> scenarios;
    for (std::size_t i = 0; i < files.size(); ++i) {
        try {
            scenarios.push_back(loadScenario(files[i]));
            if (!variation.empty())
                scenarios.back().host.variation = variation;
        } catch (const ScenarioError& error) {
            traceProblems(trace, error);
            totals.refusedFiles.push_back(files[i]);
            const std::size_t shown = error.problems().size();
            report.cases[i] = {files[i], JunitCase::Outcome::Error,
                               "refused: " + plural(shown + error.notShown(), "problem", "problems") +
                                   (error.notShown() != 0 ? ", " + std::to_string(shown) + " shown" : ""),
                               std::string(error.what()) + "\n"};
        }
    }
    if (!totals.refusedFiles.empty()) {
        for (JunitCase& item : report.cases) {
            if (item.outcome == JunitCase::Outcome::Skipped)
                item.message = "not played: a file was refused";
        }
        traceSummary(trace, totals, BadInput);
        return BadInput;
    }
    if (bless)
        return blessScenarios(scenarios, plugin);

    // Under a host profile, each scenario once on every variation it lists.
    std::vector<std::string> labels = files;
    if (!profile.empty()) {
        std::string refusal;
        const std::vector<std::string> names = readHostProfile(profile, &refusal);
        if (names.empty()) {
            traceError(trace, BadInput, refusal);
            traceSummary(trace, totals, BadInput);
            return BadInput;
        }
        std::vector<Scenario> runs;
        labels.clear();
        for (const Scenario& scenario : scenarios) {
            for (const std::string& name : names) {
                runs.push_back(scenario);
                runs.back().host.variation = name;
                labels.push_back(scenario.file + " [" + name + "]");
            }
        }
        scenarios = std::move(runs);
        totals.scenarios = scenarios.size();
        report.cases.clear();
        for (const std::string& label : labels)
            report.cases.push_back({label, JunitCase::Outcome::Skipped, "not played: the run stopped before it", ""});
    }

    std::optional<TraceLog> log(std::in_place, trace);

    // Each scenario on a freshly loaded plug-in, as the device starts it.
    int status = Passed;
    for (std::size_t i = 0; i < scenarios.size(); ++i) {
        const Scenario& scenario = scenarios[i];
        Tally tally;
        {
            host::Host host;
            if (!profile.empty())
                trace.heading("host variation " + scenario.host.variation + " from " + profile,
                              {{"type", "hostProfile"},
                               {"report", profile},
                               {"variation", scenario.host.variation},
                               {"file", scenario.file}});
            bool loaded = host.load(plugin);
            for (std::size_t extra = 0; loaded && extra < also.size(); ++extra)
                loaded = host.loadAlso(also[extra]);
            if (!loaded) {
                log.reset();
                traceError(trace, PluginNotLoaded, host.error());
                report.cases[i] = {labels[i], JunitCase::Outcome::Error, "the plug-in does not load",
                                   host.error() + "\n"};
                traceSummary(trace, totals, PluginNotLoaded);
                return PluginNotLoaded;
            }
            for (std::size_t library = 1; library < host.libraries(); ++library) {
                const kpf::PluginInfo* info = host.pluginInfo(library);
                trace.note("also loaded " + host.path(library) + ": " +
                           (info != nullptr && info->name != nullptr ? info->name : "(no name)"));
            }
            Player player(host, scenario, trace);
            player.run();
            tally = player.tally();
        }
        const std::string failures = trace.takeFailureText();
        Outcome outcome = outcomeOf(tally, scenario.demonstration);
        std::string why;
        if (outcome == Outcome::Failed)
            why = std::to_string(tally.failures) + " step(s) did not meet their expectations";
        // Checks required: one that checks nothing has failed, in every report alike.
        if (outcome == Outcome::Unchecked && requireChecks) {
            outcome = Outcome::Failed;
            why = "nothing is checked: no step has \"expect\" or \"warnings\"";
        }
        const std::string& label = labels[i];
        traceResult(trace, scenario.file, outcome, tally, profile.empty() ? "" : scenario.host.variation);
        if (!json && !why.empty())
            std::fprintf(stderr, "edidsim: %s: %s\n", label.c_str(), why.c_str());

        JunitCase& item = report.cases[i];
        item = {label, JunitCase::Outcome::Passed, why, failures};
        if (outcome == Outcome::Failed) {
            item.outcome = JunitCase::Outcome::Failed;
            status = ExpectationsNotMet;
        } else if (outcome == Outcome::Unchecked || outcome == Outcome::Demonstration) {
            item.outcome = JunitCase::Outcome::Skipped;
            item.message = outcome == Outcome::Unchecked ? "unchecked: no step has an expectation"
                                                         : "a demonstration: nothing is expected";
        }
        totals.add(label, outcome, tally);
    }
    log.reset();

    traceSummary(trace, totals, status);
    return status;
}

} // namespace edidsim
} // namespace edidvm
