// SPDX-License-Identifier: MIT
#pragma once

// What the message center and both dispatchers share: not part of the
// host's interface.

#include "framework/imessage.h"
#include "framework/imessagehandler.h"
#include "host/hostobjects.h"

#include <cstdio>
#include <string>

namespace edidvm {
namespace host {

inline std::string senderText(const char* sender)
{
    return sender != nullptr ? std::string(sender) : std::string();
}

// Frees a reply that nobody will read (an event handler's, or a second
// subscriber's to the same command).
inline void dropReply(ObjectStore& store, const kpf::IMessage* reply)
{
    if (reply != nullptr && store.release(reply) == ObjectStore::Released::Nothing)
        std::fprintf(stderr, "host: a handler returned a reply the host did not create\n");
}

// Hands a message to a subscribed component. With unstable deliveries each
// component gets a message of its own whose data() works once, as the
// host's own deliveries do under UnstableData; otherwise the message itself.
inline const kpf::IMessage* deliverTo(kpf::IMessageHandler* receiver, const HostMessage& message, bool unstable)
{
    if (!unstable)
        return receiver->handleMessage(&message);
    const HostMessage own(message.kind(), message.number(), message.size(), message.peekData(), message.sender(),
                          PayloadMode::Unstable);
    return receiver->handleMessage(&own);
}

} // namespace host
} // namespace edidvm
