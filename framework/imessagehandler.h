// SPDX-License-Identifier: MIT
#pragma once

namespace kpf {

class IMessage;

// What the host talks to. The only interface with a virtual destructor: the
// host destroys components through it (slots 0 and 1), and handleMessage is
// slot 2.
class IMessageHandler
{
public:
    virtual ~IMessageHandler() = default;
    // Returns a reply built by the message center, or null. The message is
    // the host's and valid only during the call.
    virtual const IMessage* handleMessage(const IMessage* message) = 0;
};

} // namespace kpf
