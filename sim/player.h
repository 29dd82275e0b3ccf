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
#include <string>
#include <vector>

namespace edidvm {
namespace sim {

class Player
{
public:
    // The host has loaded the plug-in; nothing is started yet.
    Player(host::Host& host, const Scenario& scenario, Trace& trace);
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Starts the component and plays every step. Returns how many steps
    // did not meet their expectations.
    int run();

    // run() in parts, for a page that plays steps one at a time.
    void start();
    // Plays the scenario's step; false when it did not meet its expectations.
    bool playStep(std::size_t index);
    // Returns 1 when a host that kept envelopes found them changed.
    int finish();
    // Delivers a step made elsewhere (a user's action on the page), under
    // its own heading; nothing is expected of it.
    void act(const Step& step, const std::string& heading);

    // Called with every message the component sends, while its payload lives.
    using Observer = std::function<void(const host::SentMessage&, const void*)>;
    void addObserver(Observer observer) { m_observers.push_back(std::move(observer)); }
    const SimulatedDevice& device() const { return m_device; }
    // The last played step's comparison with its expectations: the
    // differences, first ones first, as the trace's lines name them.
    struct StepResult
    {
        bool expected = false; // the step had expectations
        bool met = true;
        std::vector<std::string> differences;
    };
    const StepResult& lastResult() const { return m_result; }
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
    bool check(std::size_t index, const Step& step);

    host::Host& m_host;
    const Scenario& m_scenario;
    Trace& m_trace;
    SimulatedDevice m_device;
    Model::s_MessageBoxRequest m_lastBox; // the last confirmation the component raised
    bool m_boxShown = false;
    std::vector<Observer> m_observers;
    StepResult m_result;
};

// Whether every field of expected is in actual with the same value; lists
// must match element by element.
bool fieldsMatch(const Fields& actual, const Fields& expected);

} // namespace sim
} // namespace edidvm
