// SPDX-License-Identifier: MIT
#pragma once

// The other components of the device, played from a scenario's device state:
// they answer the component's queries (filling the envelope in place during
// the command, honouring the "interfaceId" and "screenType" filters) and the
// two configuration services' calls, and trace each answer. A write the
// device takes (a thumb write answered 0, any reference write) changes the
// written interfaces' timings in what it answers from then on.

#include "host/host.h"
#include "sim/scenario.h"
#include "sim/trace.h"

#include <mutex>
#include <thread>

namespace edidvm {
namespace sim {

class SimulatedDevice
{
public:
    // Installs the responders; the host and the trace must outlive them.
    SimulatedDevice(host::Host& host, Trace& trace);
    SimulatedDevice(const SimulatedDevice&) = delete;
    SimulatedDevice& operator=(const SimulatedDevice&) = delete;

    // Replaces what the device answers from now on; assessments start over.
    // An interface timing that the new state leaves as the previous state
    // declared it keeps what was written since.
    void setState(const Device& state);
    const Device& state() const { return m_state; }

private:
    void reply(std::uint32_t number, int length, Fields fields);
    void installQueries();
    void installServices();
    // Applies a written list, or says why not; returns what the trace shows.
    template <typename Choice>
    void applyWrite(const std::vector<Choice>& written, bool taken, const std::string& refusal);

    // Only the playing thread's queries are traced; another plug-in's, on
    // threads of its own, are answered alike.
    bool traced() const;

    host::Host& m_host;
    Trace& m_trace;
    std::thread::id m_thread;
    // What is answered may be asked on several threads.
    mutable std::recursive_mutex m_mutex;
    Device m_state;
    Device m_declared; // as the scenario last set it, before any write
    std::size_t m_assessments = 0;
};

} // namespace sim
} // namespace edidvm
