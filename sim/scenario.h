// SPDX-License-Identifier: MIT
#pragma once

// A scenario: the state of a simulated device and a script of steps, read
// from JSON and checked whole before anything runs.

#include "protomodel/configrecords.h"
#include "protomodel/interfacerecords.h"
#include "protomodel/screenrecords.h"
#include "sim/messages.h"
#include "sim/problem.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace edidvm {
namespace sim {

// A refused file: what() is "FILE: /json/path: what was expected" (or the
// parser's line and column), one line for each problem, which problems()
// holds apart, then "FILE: 9980 more problems not shown" when notShown()
// is not zero. The problems of one error are all of one file.
class ScenarioError : public std::runtime_error
{
public:
    explicit ScenarioError(std::vector<Problem> problems, std::size_t notShown = 0);
    // One problem of the whole file.
    ScenarioError(const std::string& file, const std::string& message) : ScenarioError({{file, std::nullopt, message}})
    {}
    const std::vector<Problem>& problems() const { return m_problems; }
    // The file's problems beyond those held: counted, not kept.
    std::size_t notShown() const { return m_notShown; }

private:
    std::vector<Problem> m_problems;
    std::size_t m_notShown = 0;
};

// One mode of an interface's EDID, as a step may choose it.
struct EdidTiming
{
    std::int32_t width = 0;
    std::int32_t height = 0; // frame height, also when interlaced
    double refresh = 0.0;    // Hz; the field rate when interlaced
    bool preferred = false;
    std::string text;    // as the decoder describes it, with its source
    std::string refused; // why the records cannot carry it; empty when they can
};

struct Screen
{
    LCD::ProtoModel::Screen::s_ScreenDetailInfo info;
    std::int32_t type = 2; // matched against the "screenType" filter
};

struct Subcard
{
    LCD::ProtoModel::Subcard::s_SubcardInfo info;
    std::int32_t value = 0;                        // the device configuration's answer for the slot
    std::map<std::int32_t, std::vector<int>> tied; // by connector key
};

struct Assessment
{
    std::optional<std::uint8_t> answer = 1; // the reply byte; none when empty
    std::vector<LCD::ProtoModel::Screen::s_AssessResult> results;
};

// What the simulated components answer.
struct Device
{
    std::vector<LCD::ProtoModel::Interface::s_InterfaceList> interfaces;
    std::map<std::int32_t, std::vector<EdidTiming>> edid; // by interface id
    std::vector<Screen> screens;
    std::vector<Subcard> subcards;
    std::optional<std::int32_t> selectedInterface; // reply to 0xFC08100A; none when empty
    std::optional<std::int32_t> deviceParam;       // reply to 0xFC000004; none when empty
    LCD::ProtoModel::Interface::s_TimigCheckResultArry verdicts;
    std::vector<Assessment> assessments;               // one per 0xFC05021F; the last repeats
    std::optional<std::uint8_t> thumbCommitAnswer = 0; // 0: written
    bool writesApply = true;                           // false: writes leave the timings as they are
    // Keys of this state that whoever wrote the file could not know (a
    // capture cannot see verdicts or the answers to writes): their defaults
    // are played, and the trace says so.
    std::vector<std::string> unknown;
};

// One message the component must put out: a number from the table, or a
// configuration service call by name, and fields it must carry.
struct Expectation
{
    std::uint32_t number = 0; // 0 for a service call
    std::string call;
    Fields fields = Fields::object();
};

enum class Action {
    Current,
    Refresh,
    AskSelected,
    ThumbCheck,
    DetailCheck,
    ChooseThumb,
    ChooseReference,
    PublishReference,
    Answer,
    ChangedThumb,
    ChangedReference,
    Sdi,
    InUse,
    InterfaceType,
    Pump,
    ChangeDevice,
    Raw,
};

struct Step
{
    Action action = Action::Refresh;
    std::string name; // the "do" value
    std::string note;
    std::uint32_t number = 0; // the message delivered; 0 for pump and device
    std::int32_t interfaceId = 0;
    std::vector<LCD::ProtoModel::Interface::s_ThumbTimigCheck> thumbChecks;
    std::vector<LCD::ProtoModel::Interface::s_DetailTimigCheck> detailChecks;
    LCD::ProtoModel::Interface::s_InterfaceThumbTiming thumbChoice;
    LCD::ProtoModel::Interface::s_InterfacePresetTiming referenceChoice;
    std::vector<LCD::ProtoModel::Interface::s_InterfaceThumbTiming> thumbTimings;
    std::vector<LCD::ProtoModel::Interface::s_InterfacePresetTiming> referenceTimings;
    bool accept = false;
    std::optional<std::int32_t> box; // empty: the last confirmation's id
    std::shared_ptr<const Device> device;
    // A raw step's message: its kind and payload, delivered as given.
    bool rawCommand = false;
    std::vector<unsigned char> bytes;
    std::optional<std::vector<Expectation>> expect;
    std::optional<std::vector<std::string>> warnings;
};

// A message our host delivers into the component on its own.
struct HostDelivery
{
    std::uint32_t number = 0;
    std::optional<std::int32_t> interfaceId; // the payload: that interface's record
    std::optional<int> size;                 // the size reported, when not the payload's
};

// How our host behaves while the scenario plays.
struct HostBehaviour
{
    std::string variation = "default"; // as edidsim --host-variation takes it
    // Under nested-deliveries and moving-current; empty: the variation's own.
    std::vector<HostDelivery> deliver;
    std::vector<std::uint32_t> during; // the sends that trigger them; empty: any
    int times = -1;                    // how many sends trigger them; -1: all
};

struct Scenario
{
    std::string file;
    std::string name;
    std::string description;
    bool demonstration = false; // shows behaviour without checking it: expecting nothing is no fault
    HostBehaviour host;
    Device device;
    std::vector<std::string> notes; // from reading EDID files
    std::vector<Step> steps;
};

// Throws ScenarioError.
Scenario loadScenario(const std::string& file);
// A scenario file's bytes; a directory, or a file that cannot be read, is
// refused saying why. Throws ScenarioError.
std::string readScenarioText(const std::string& file);

} // namespace sim
} // namespace edidvm
