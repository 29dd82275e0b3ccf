// SPDX-License-Identifier: MIT
#include "sim/scenario.h"

#include "sim/jsonnode.h"
#include "sim/reader_p.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace edidvm {
namespace sim {

using nlohmann::json;

namespace {
// A file with thousands of faults (a generated one, say) still gives a page,
// not thousands of lines.
constexpr std::size_t ProblemsShown = 20;

std::string readFile(const std::string& file)
{
    std::error_code error;
    if (std::filesystem::is_directory(file, error))
        throw ScenarioError(file + ": is a directory, not a scenario file");
    errno = 0;
    std::FILE* in = std::fopen(file.c_str(), "rb");
    if (in == nullptr)
        throw ScenarioError(file + ": cannot be read: " + std::strerror(errno));
    std::string text;
    char buffer[65536];
    std::size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof buffer, in)) > 0)
        text.append(buffer, count);
    const int failed = std::ferror(in) ? errno : 0;
    std::fclose(in);
    if (failed != 0)
        throw ScenarioError(file + ": cannot be read: " + std::strerror(failed));
    return text;
}

// Each warning of a device step's state that its previous state did not
// have, named after the step.
void noteUnreachableScreens(Scenario& scenario)
{
    std::vector<std::string> before = unreachableScreens(scenario.device);
    scenario.notes.insert(scenario.notes.end(), before.begin(), before.end());
    for (std::size_t i = 0; i < scenario.steps.size(); ++i) {
        if (!scenario.steps[i].device)
            continue;
        std::vector<std::string> now = unreachableScreens(*scenario.steps[i].device);
        for (const std::string& warning : now) {
            if (std::find(before.begin(), before.end(), warning) == before.end())
                scenario.notes.push_back("from step " + std::to_string(i) + ": " + warning);
        }
        before = std::move(now);
    }
}
} // namespace

Scenario loadScenario(const std::string& file)
{
    const std::string text = readFile(file);

    json root;
    try {
        root = json::parse(text);
    } catch (const json::exception& error) {
        // "[json.exception.parse_error.101] parse error at line 2, column 5: ...", or
        // out_of_range.406 for a number beyond a double (1e400), which names no line.
        const std::string what = error.what();
        const std::size_t start = what.find("] ");
        throw ScenarioError(file + ": " + (start == std::string::npos ? what : what.substr(start + 2)));
    }

    Scenario scenario;
    scenario.file = file;
    std::vector<std::string> problems;
    tryReading([&] {
        Reader reader(std::filesystem::path(file).parent_path(), scenario.notes);
        const JsonNode top(root, "", problems);
        top.keys({"name", "description", "host", "device", "steps"});
        if (top.has("name"))
            tryReading([&] { scenario.name = top.at("name").text(); });
        if (top.has("description"))
            tryReading([&] { scenario.description = top.at("description").text(); });
        tryReading([&] {
            const JsonNode device = top.need("device", "the device's state");
            device.keys(deviceKeys());
            reader.device(device, scenario.device, false);
        });
        if (top.has("host"))
            tryReading([&] { reader.hostBehaviour(top.at("host"), scenario.host); });

        Device current = scenario.device;
        for (const JsonNode& item : top.need("steps", "a list of steps").items("a list of steps"))
            tryReading([&] { scenario.steps.push_back(reader.step(item, current)); });
    });
    if (!problems.empty()) {
        std::string lines;
        for (std::size_t i = 0; i < problems.size() && i < ProblemsShown; ++i)
            lines += (lines.empty() ? "" : "\n") + file + ": " + problems[i];
        if (problems.size() > ProblemsShown)
            lines += "\n" + file + ": " + std::to_string(problems.size() - ProblemsShown) + " more problems not shown";
        throw ScenarioError(lines);
    }
    noteUnreachableScreens(scenario);
    return scenario;
}

} // namespace sim
} // namespace edidvm
