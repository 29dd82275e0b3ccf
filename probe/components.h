// SPDX-License-Identifier: MIT
#pragma once

// The probe's two components. The probe subscribes its own numbers and the
// current interface's event, and on its start sets the measurements going;
// the witness subscribes one of the probe's numbers, to see whether one
// event reaches two subscribers. Both only record what reaches them.

#include "message/messagehandler.h"

#include <memory>

namespace Probe {

class Session;

class Receiver : public LCD::Message::MessageHandler
{
public:
    explicit Receiver(int component);
    ~Receiver() override;
    // Records a delivery of another component's number, then routes.
    const kpf::IMessage* processMsg(int number, const kpf::IMessage* message) override;

protected:
    void subscribe();

    std::shared_ptr<Session> m_session;
    int m_component;
};

class ProbeComponent : public Receiver
{
public:
    ProbeComponent() : Receiver(0) {}
    int onInit() override;
};

class ProbeWitness : public Receiver
{
public:
    ProbeWitness() : Receiver(1) {}
    int onInit() override;
};

} // namespace Probe
