// SPDX-License-Identifier: MIT
#include "sim/scenario.h"

#include "sim/jsonnode.h"
#include "sim/reader_p.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace edidvm {
namespace sim {

using nlohmann::json;

namespace {
std::string problemsText(const std::vector<Problem>& problems)
{
    std::string text;
    for (const Problem& problem : problems)
        text += (text.empty() ? "" : "\n") + problem.file + ": " + (problem.path.empty() ? "" : problem.path + ": ") +
                problem.message;
    return text;
}
} // namespace

ScenarioError::ScenarioError(std::vector<Problem> problems)
    : std::runtime_error(problemsText(problems)), m_problems(std::move(problems))
{}

Scenario loadScenario(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw ScenarioError({{file, "", "cannot be read"}});
    std::stringstream text;
    text << in.rdbuf();

    json root;
    try {
        root = json::parse(text.str());
    } catch (const json::exception& error) {
        // "[json.exception.parse_error.101] parse error at line 2, column 5: ...", or
        // out_of_range.406 for a number beyond a double (1e400), which names no line.
        const std::string what = error.what();
        const std::size_t start = what.find("] ");
        throw ScenarioError({{file, "", start == std::string::npos ? what : what.substr(start + 2)}});
    }

    Scenario scenario;
    scenario.file = file;
    std::vector<Problem> problems;
    tryReading([&] {
        Reader reader(std::filesystem::path(file).parent_path(), scenario.notes);
        const JsonNode top(root, "", problems);
        top.keys({"name", "description", "demonstration", "host", "device", "steps"});
        if (top.has("name"))
            tryReading([&] { scenario.name = top.at("name").text(); });
        if (top.has("description"))
            tryReading([&] { scenario.description = top.at("description").text(); });
        if (top.has("demonstration"))
            tryReading([&] { scenario.demonstration = top.at("demonstration").boolean(); });
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
        for (Problem& problem : problems)
            problem.file = file;
        throw ScenarioError(std::move(problems));
    }
    return scenario;
}

} // namespace sim
} // namespace edidvm
