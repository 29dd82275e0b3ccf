// SPDX-License-Identifier: MIT
#include "probe/components.h"

#include "framework/wire.h"
#include "probe/probenumbers.h"
#include "probe/session.h"

namespace Probe {

Receiver::Receiver(int component) : m_session(Session::attach()), m_component(component)
{
    // Names of their own, so a host that keys subscriptions by name still
    // sees two subscribers.
    m_name = component == 0 ? "outputedidviewmodelprobe" : "outputedidviewmodelprobewitness";
}

Receiver::~Receiver()
{
    // Whichever goes first ends the measurements while both objects are
    // still whole: the thread may be delivering into either.
    m_session->stop();
}

const kpf::IMessage* Receiver::processMsg(int number, const kpf::IMessage* message)
{
    if (message != nullptr && !isOwnNumber(kpf::wireWord(number))) {
        m_session->received(message, m_component, false, false);
        if (m_component == 0 && isCaptured(kpf::wireWord(number)))
            m_session->capture(*message);
    }
    return MessageHandler::processMsg(number, message);
}

void Receiver::subscribe()
{
    for (std::size_t i = 0; i < std::size(subscriptions); ++i) {
        const Subscription& entry = subscriptions[i];
        if (entry.component != m_component)
            continue;
        // The witness reads no payload, so a host whose data() works once
        // leaves it whole for the probe.
        const bool read = m_component == 0 && entry.number != MessageId::FanOut;
        const bool own = isOwnNumber(entry.number);
        Session* session = m_session.get();
        const int component = m_component;
        LCD::Message::MessageHandlerFunc handler = [session, component, own, read](const kpf::IMessage* message) {
            return own ? session->received(message, component, true, read) : nullptr;
        };
        const int number = kpf::wireInt(entry.number);
        m_session->subscribed(i, entry.command ? registerCommand(number, handler) : registerEvent(number, handler));
    }
}

int ProbeComponent::onInit()
{
    subscribe();
    m_session->start();
    return 0;
}

int ProbeWitness::onInit()
{
    subscribe();
    m_session->witnessStarted();
    return 0;
}

} // namespace Probe
