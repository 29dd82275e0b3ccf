// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kpf {

class IMessage;
class IResponse;

// Service "commanddispatcher".
class ICommandDispatcher
{
public:
    // The host copies the payload, so data may live on the caller's stack.
    virtual IMessage* createMessage(int number, int size, const void* data, const char* sender) = 0;
    // object is the address of an IMessage* or IResponse*; a null pointer
    // there is accepted. The pointer is cleared.
    virtual void release(void** object) = 0;
    // Delivers synchronously. *response receives the reply or null; the
    // caller releases both the response and the message.
    virtual int send(IMessage** message, IResponse** response, int mode) = 0;
    virtual void reservedSlot3() = 0;
    virtual int subscribe(int number, const std::string& sender) = 0;

protected:
    ~ICommandDispatcher() = default;
};

// Service "eventdispatcher". Every message handed to post or send becomes
// the dispatcher's; the caller must not touch or release it afterwards.
class IEventDispatcher
{
public:
    virtual IMessage* createMessage(int number, int size, const void* data, const char* sender) = 0;
    virtual void reservedSlot1() = 0;
    // Queues the event; it is delivered later, on the host's schedule.
    virtual void post(IMessage** message) = 0;
    virtual void reservedSlot3() = 0;
    // Delivers the event at once, before returning.
    virtual void send(IMessage** message, int mode) = 0;
    virtual int subscribe(int number, const std::string& sender) = 0;

protected:
    ~IEventDispatcher() = default;
};

// Service "kpf_default_messagecenter". Note the argument order: the sender
// comes before the payload here, after it in the dispatchers.
class IMessageCenter
{
public:
    virtual IMessage* createMessage(int number, const char* sender, int size, const void* data, int flags) = 0;

protected:
    ~IMessageCenter() = default;
};

} // namespace kpf
