// SPDX-License-Identifier: MIT
#pragma once

namespace kpf {

// A message owned by the host. Its payload is a copy the host made when the
// message was created; data() stays valid until the message is released.
class IMessage
{
public:
    virtual void reservedSlot0() = 0;
    virtual void reservedSlot1() = 0;
    virtual int kind() const = 0;
    virtual int number() const = 0;
    // Payload length in bytes; the host reports what the sender gave.
    virtual int size() const = 0;
    // May be null, also when size() is not 0.
    virtual const void* data() const = 0;

protected:
    ~IMessage() = default;
};

// The reply to a synchronous command, owned by the command dispatcher.
class IResponse
{
public:
    virtual void reservedSlot0() = 0;
    virtual const void* data() const = 0;
    virtual int size() const = 0;

protected:
    ~IResponse() = default;
};

} // namespace kpf
