// SPDX-License-Identifier: MIT
#pragma once

// Plays a scenario's steps as the page and the device's other components
// would send them, and compares what the component puts out with each step's
// expectations.

#include "host/host.h"
#include "sim/device.h"
#include "sim/scenario.h"
#include "sim/trace.h"
#include "viewmodel/viewmodelrecords.h"

#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace edidvm {
namespace sim {

// One difference between what a step expected and what came, each side as
// the trace's line shows it.
struct Difference
{
    enum class Change { Missing, Unexpected, Differing };
    Change change = Change::Differing;
    std::string expected; // empty for an unexpected one
    std::string came;     // empty for a missing one
};

// What a step put out and logged, as its expectations are compared with.
struct StepOutcome
{
    std::vector<Entry> came;
    std::vector<Warning> logged;
    bool checked = false; // the step has expect or warnings
    bool met = true;
    // What differs, first ones first.
    std::vector<Difference> differences;
};

// What a scenario's play compared with its expectations.
struct Tally
{
    int steps = 0;        // played
    int checkedSteps = 0; // with "expect" or "warnings"
    int messages = 0;     // expected messages (and service calls) compared
    int warnings = 0;     // expected warnings compared
    int failures = 0;     // steps that did not meet them, and the host's own check
};

class Player
{
public:
    // The host has loaded the plug-in; nothing is started yet.
    Player(host::Host& host, const Scenario& scenario, Trace& trace);
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Starts the component and plays every step. Returns how many steps
    // did not meet their expectations (tally().failures).
    int run();

    // run() in parts, for a page that plays steps one at a time.
    void start();
    // Plays the scenario's step; false when it did not meet its expectations.
    bool playStep(std::size_t index);
    // The last step playStep played.
    const StepOutcome& lastOutcome() const { return m_lastOutcome; }
    // Returns 1 when a host that kept envelopes found them changed.
    int finish();
    // Delivers a step made elsewhere (a user's action on the page), under
    // its own heading; nothing is expected of it.
    void act(const Step& step, const std::string& heading);

    // Called with every message the component sends, while its payload lives.
    using Observer = std::function<void(const host::SentMessage&, const void*)>;
    void addObserver(Observer observer) { m_observers.push_back(std::move(observer)); }
    const SimulatedDevice& device() const { return m_device; }
    const Tally& tally() const { return m_tally; }
    // The last confirmation the component raised; none before the first.
    const Model::s_MessageBoxRequest* lastBox() const { return m_boxShown ? &m_lastBox : nullptr; }

private:
    // The scenario's host variation, and what the host delivers on its own.
    void applyHostBehaviour();
    // The loaded plug-in's file and the description its pluginfo returns.
    void traceDescription();
    void play(const Step& step);
    void deliver(std::uint32_t number, const void* data, int size);
    void askInterfaceType(std::uint32_t number);
    void playRaw(const Step& step);
    bool check(std::size_t index, const Step& step);

    host::Host& m_host;
    const Scenario& m_scenario;
    Trace& m_trace;
    SimulatedDevice m_device;
    Model::s_MessageBoxRequest m_lastBox; // the last confirmation the component raised
    bool m_boxShown = false;
    StepOutcome m_lastOutcome;
    std::vector<Observer> m_observers;
    Tally m_tally;
    std::thread::id m_thread; // the playing thread
    std::set<std::string> m_otherSenders;
};

// What the simulator plays for a key of the device the file says is unknown.
std::string unknownDefault(const std::string& key);

// Whether every field of expected is in actual with the same value; lists
// must match element by element.
bool fieldsMatch(const Fields& actual, const Fields& expected);

} // namespace sim
} // namespace edidvm
