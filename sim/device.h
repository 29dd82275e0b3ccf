#pragma once

// The other components of the device, played from a scenario's device state:
// they answer the component's queries (filling the envelope in place during
// the command, honouring the "interfaceId" and "screenType" filters) and the
// two configuration services' calls, and trace each answer.

#include "host/host.h"
#include "sim/scenario.h"
#include "sim/trace.h"

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
    void setState(const Device& state);
    const Device& state() const { return m_state; }

private:
    void reply(std::uint32_t number, int length, Fields fields);
    void installQueries();
    void installServices();

    host::Host& m_host;
    Trace& m_trace;
    Device m_state;
    std::size_t m_assessments = 0;
};

} // namespace sim
} // namespace edidvm
