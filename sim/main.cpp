// edidsim: loads the output EDID view model on our host, plays a simulated
// device and page from a scenario file, and prints the trace of every message
// that crosses the component's boundary.

#include "host/host.h"
#include "host/variation.h"
#include "sim/edid_command.h"
#include "sim/player.h"
#include "sim/scenario.h"
#include "sim/trace.h"
#ifdef EDIDVM_HAVE_PAGE
#include "page/pagesession.h"
#endif

#include <CLI/CLI.hpp>
#include <QString>
#include <QtGlobal>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

#ifndef EDIDVM_DEFAULT_PLUGIN
#define EDIDVM_DEFAULT_PLUGIN "liboutputedidviewmodel.so"
#endif
#ifndef EDIDVM_DEFAULT_SCENARIO
#define EDIDVM_DEFAULT_SCENARIO "scenarios/default.json"
#endif
#ifndef EDIDVM_VERSION
#define EDIDVM_VERSION "unknown"
#endif
#ifndef EDIDVM_BUILD_DIR
#define EDIDVM_BUILD_DIR "."
#endif
// Relative to the installed program's directory.
#ifndef EDIDVM_INSTALLED_PLUGIN
#define EDIDVM_INSTALLED_PLUGIN "../lib/liboutputedidviewmodel.so"
#endif
#ifndef EDIDVM_BUILD_TRANSLATIONS
#define EDIDVM_BUILD_TRANSLATIONS "."
#endif
#ifndef EDIDVM_INSTALLED_TRANSLATIONS
#define EDIDVM_INSTALLED_TRANSLATIONS "../share/outputedidviewmodel/translations"
#endif
#ifndef EDIDVM_INSTALLED_SCENARIO
#define EDIDVM_INSTALLED_SCENARIO "../share/edidsim/scenarios/default.json"
#endif

namespace {

enum ExitCode { Passed = 0, ExpectationsNotMet = 1, BadInput = 2, PluginNotLoaded = 3 };

edidvm::sim::Trace* g_trace = nullptr;

// The build tree's file when this is the program that build tree made;
// otherwise the installed one, found from where the program runs, so build
// trees elsewhere on the machine are never used.
std::string ownFile(const char* built, const char* installedFromBin)
{
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return built;
    const std::filesystem::path dir = program.parent_path();
    if (std::filesystem::equivalent(dir, EDIDVM_BUILD_DIR, error))
        return built;
    return (dir / installedFromBin).lexically_normal().string();
}

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
void traceSummary(edidvm::sim::Trace& trace, std::size_t count, const std::vector<std::string>& failed)
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

// The library logs through Qt: its warnings go in line into the trace.
void logToTrace(QtMsgType, const QMessageLogContext& context, const QString& text)
{
    if (g_trace != nullptr)
        g_trace->warning({context.function != nullptr ? context.function : "", text.toStdString()});
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && std::string(argv[1]) == "decode")
        return edidvm::sim::decodeCommand(argc - 1, argv + 1);
    if (argc > 1 && std::string(argv[1]) == "page") {
#ifdef EDIDVM_HAVE_PAGE
        return edidvm::page::pageCommand(argc - 1, argv + 1,
                                         {ownFile(EDIDVM_DEFAULT_PLUGIN, EDIDVM_INSTALLED_PLUGIN),
                                          ownFile(EDIDVM_DEFAULT_SCENARIO, EDIDVM_INSTALLED_SCENARIO),
                                          ownFile(EDIDVM_BUILD_TRANSLATIONS, EDIDVM_INSTALLED_TRANSLATIONS)});
#else
        std::fprintf(stderr, "edidsim: this build has no page (Qt Quick was not found when it was built)\n");
        return BadInput;
#endif
    }
    CLI::App app("Plays a scenario against the output EDID view model: the simulated device answers its queries, "
                 "the page sends the steps, and every message crossing the component's boundary is traced.",
                 "edidsim");
    std::string plugin = ownFile(EDIDVM_DEFAULT_PLUGIN, EDIDVM_INSTALLED_PLUGIN);
    std::vector<std::string> files = {ownFile(EDIDVM_DEFAULT_SCENARIO, EDIDVM_INSTALLED_SCENARIO)};
    bool json = false;
    bool markdown = false;
    std::string variation;
    std::vector<std::string> variations;
    for (edidvm::host::Variation known : edidvm::host::allVariations())
        variations.push_back(edidvm::host::variationName(known));
    app.add_option("scenario", files, "scenario files (JSON), played in order")->capture_default_str();
    app.add_option("--plugin", plugin, "the plug-in library to load")->capture_default_str();
    app.add_flag("--json", json, "print the trace as JSON Lines");
    app.add_option("--host-variation", variation,
                   "how the host behaves within the contract; overrides the scenario's \"host\" variation")
        ->check(CLI::IsMember(variations));
    app.add_flag("--messages-markdown", markdown, "print the message reference (docs/messages.md) and exit");
    app.set_version_flag("--version", std::string("edidsim ") + EDIDVM_VERSION);
    app.footer("Exit status, the worst of all scenarios: 0 every expectation met, 1 an expectation not met, 2 a bad "
               "scenario or command line (every file is checked before any runs), 3 a plug-in that does not load.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Passed : BadInput;
    }

    if (markdown) {
        std::fputs(edidvm::sim::messagesMarkdown().c_str(), stdout);
        return Passed;
    }

    // Every file is checked whole before anything runs.
    std::vector<edidvm::sim::Scenario> scenarios;
    bool refused = false;
    for (const std::string& file : files) {
        try {
            scenarios.push_back(edidvm::sim::loadScenario(file));
            if (!variation.empty())
                scenarios.back().host.variation = variation;
        } catch (const edidvm::sim::ScenarioError& error) {
            printProblems(error.what());
            refused = true;
        }
    }
    if (refused)
        return BadInput;

    const bool colour = !json && isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
    edidvm::sim::Trace trace(stdout, json, colour);
    g_trace = &trace;
    const QtMessageHandler previous = qInstallMessageHandler(logToTrace);

    // Each scenario on a freshly loaded plug-in, as the device starts it.
    std::vector<std::string> failedFiles;
    for (const edidvm::sim::Scenario& scenario : scenarios) {
        int failed = 0;
        {
            edidvm::host::Host host;
            if (!host.load(plugin)) {
                qInstallMessageHandler(previous);
                std::fprintf(stderr, "edidsim: %s\n", host.error().c_str());
                return PluginNotLoaded;
            }
            edidvm::sim::Player player(host, scenario, trace);
            failed = player.run();
        }
        if (failed != 0) {
            std::fprintf(stderr, "edidsim: %s: %d step(s) did not meet their expectations\n", scenario.file.c_str(),
                         failed);
            failedFiles.push_back(scenario.file);
        }
    }
    qInstallMessageHandler(previous);
    g_trace = nullptr;

    if (scenarios.size() > 1)
        traceSummary(trace, scenarios.size(), failedFiles);
    return failedFiles.empty() ? Passed : ExpectationsNotMet;
}
