// SPDX-License-Identifier: MIT
#include "sim/scenario.h"

#include "sim/jsonnode.h"
#include "sim/reader_p.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>

namespace edidvm {
namespace sim {

using nlohmann::json;

namespace {
// A file with thousands of faults (a generated one, say) still gives a page,
// not thousands of lines.
constexpr std::size_t ProblemsShown = 20;

// Where each key is, so that one given twice in an object is refused: the
// parser would keep one of them without a word.
class DuplicateKeys
{
public:
    explicit DuplicateKeys(std::vector<Problem>& problems) : m_problems(problems) {}

    bool operator()(int, json::parse_event_t event, const json& parsed)
    {
        switch (event) {
        case json::parse_event_t::object_start:
        case json::parse_event_t::array_start:
            element();
            m_frames.push_back({event == json::parse_event_t::array_start, 0, {}, {}});
            break;
        case json::parse_event_t::object_end:
        case json::parse_event_t::array_end:
            m_frames.pop_back();
            break;
        case json::parse_event_t::key:
            m_frames.back().key = parsed.get<std::string>();
            if (!m_frames.back().keys.insert(m_frames.back().key).second)
                JsonNode(parsed, path(), m_problems).report("duplicate key; each key may be given once in an object");
            break;
        case json::parse_event_t::value:
            element();
            break;
        }
        return true;
    }

private:
    struct Frame
    {
        bool array;
        std::size_t next; // of an array: the index of its next element
        std::string key;  // of an object: the last key read
        std::set<std::string> keys;
    };

    void element()
    {
        if (!m_frames.empty() && m_frames.back().array)
            ++m_frames.back().next;
    }
    std::string path() const
    {
        std::string text;
        for (const Frame& frame : m_frames)
            text += "/" + (frame.array ? std::to_string(frame.next - 1) : pointerToken(frame.key));
        return text;
    }

    std::vector<Frame> m_frames;
    std::vector<Problem>& m_problems;
};

// Each warning of a device step's state that its previous state did not
// have, named after the step. "note" tells the simulator's own from the
// component's warnings in the trace.
void noteUnreachableScreens(Scenario& scenario)
{
    std::vector<std::string> before = unreachableScreens(scenario.device);
    for (const std::string& warning : before)
        scenario.notes.push_back("note: " + warning);
    for (std::size_t i = 0; i < scenario.steps.size(); ++i) {
        if (!scenario.steps[i].device)
            continue;
        std::vector<std::string> now = unreachableScreens(*scenario.steps[i].device);
        for (const std::string& warning : now) {
            if (std::find(before.begin(), before.end(), warning) == before.end())
                scenario.notes.push_back("note from step " + std::to_string(i) + ": " + warning);
        }
        before = std::move(now);
    }
}

std::string problemsText(const std::vector<Problem>& problems, std::size_t notShown)
{
    std::string text;
    for (const Problem& problem : problems) {
        const std::string where = !problem.path ? "" : problem.path->empty() ? "/: " : *problem.path + ": ";
        text += (text.empty() ? "" : "\n") + problem.file + ": " + where + problem.message;
    }
    if (notShown != 0 && !problems.empty())
        text += "\n" + problems.front().file + ": " + std::to_string(notShown) +
                (notShown == 1 ? " more problem not shown" : " more problems not shown");
    return text;
}
} // namespace

ScenarioError::ScenarioError(std::vector<Problem> problems, std::size_t notShown)
    : std::runtime_error(problemsText(problems, notShown)), m_problems(std::move(problems)), m_notShown(notShown)
{}

std::string readScenarioText(const std::string& file)
{
    std::error_code error;
    if (std::filesystem::is_directory(file, error))
        throw ScenarioError({{file, std::nullopt, "is a directory, not a scenario file"}});
    errno = 0;
    std::FILE* in = std::fopen(file.c_str(), "rb");
    if (in == nullptr)
        throw ScenarioError({{file, std::nullopt, std::string("cannot be read: ") + std::strerror(errno)}});
    std::string text;
    char buffer[65536];
    std::size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof buffer, in)) > 0)
        text.append(buffer, count);
    const int failed = std::ferror(in) ? errno : 0;
    std::fclose(in);
    if (failed != 0)
        throw ScenarioError({{file, std::nullopt, std::string("cannot be read: ") + std::strerror(failed)}});
    return text;
}

Scenario loadScenario(const std::string& file)
{
    const std::string text = readScenarioText(file);

    std::vector<Problem> problems;
    json root;
    try {
        root = json::parse(text, DuplicateKeys(problems));
    } catch (const json::exception& error) {
        // "[json.exception.parse_error.101] parse error at line 2, column 5: ...", or
        // out_of_range.406 for a number beyond a double (1e400), which names no line.
        const std::string what = error.what();
        const std::size_t start = what.find("] ");
        throw ScenarioError({{file, std::nullopt, start == std::string::npos ? what : what.substr(start + 2)}});
    }

    Scenario scenario;
    scenario.file = file;
    tryReading([&] {
        Reader reader(std::filesystem::path(file).parent_path(), scenario.notes);
        const JsonNode top(root, "", problems);
        // "report": what the probe measured on the device's host, kept in the
        // file it captured; not played.
        top.keys({"name", "description", "demonstration", "host", "device", "steps", "report"});
        if (top.has("report") && !top.at("report").value().is_object())
            tryReading([&] { top.at("report").expected("an object (the probe's report)"); });
        if (top.has("name"))
            tryReading([&] { scenario.name = top.at("name").text(); });
        if (top.has("description"))
            tryReading([&] { scenario.description = top.at("description").text(); });
        if (top.has("demonstration"))
            tryReading([&] { scenario.demonstration = top.at("demonstration").boolean(); });
        tryReading([&] {
            const JsonNode device = top.need("device", "the device's state");
            Keys keys = deviceKeys();
            keys.push_back("unknown");
            device.keys(keys);
            reader.device(device, scenario.device, false);
            if (device.has("unknown"))
                tryReading([&] { reader.unknownKeys(device, scenario.device); });
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
        const std::size_t more = problems.size() > ProblemsShown ? problems.size() - ProblemsShown : 0;
        problems.resize(problems.size() - more);
        throw ScenarioError(std::move(problems), more);
    }
    noteUnreachableScreens(scenario);
    return scenario;
}

} // namespace sim
} // namespace edidvm
