// SPDX-License-Identifier: MIT
#pragma once

// The message and response objects our host hands to components, and the
// store that owns every one of them until it is released.

#include "framework/imessage.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace edidvm {
namespace host {

using Bytes = std::vector<unsigned char>;

// How data() hands out the payload. Copied is what the framework promises;
// the others are what a host may also do within the contract, for tests.
enum class PayloadMode {
    Copied,   // a copy made at creation
    Lent,     // the sender's own buffer
    Unstable, // the copy on the first call, null on every later one
};

// Keeps a copy of its payload in any mode: the recorder reads that copy.
class HostMessage final : public kpf::IMessage
{
public:
    // size is reported as given; bytes are copied only when data is not
    // null and size is positive. A null data stays null.
    HostMessage(int kind, int number, int size, const void* data, std::string sender,
                PayloadMode mode = PayloadMode::Copied);

    void reservedSlot0() override {}
    void reservedSlot1() override {}
    int kind() const override { return m_kind; }
    int number() const override { return m_number; }
    int size() const override { return m_size; }
    const void* data() const override;

    // What data() would return, without counting as a call: for the host's
    // own bookkeeping, which must not use up an unstable payload.
    const void* peekData() const;
    const std::string& sender() const { return m_sender; }
    const Bytes& bytes() const { return m_bytes; }
    PayloadMode mode() const { return m_mode; }
    // A queued message outlives its sender's buffer: it must carry a copy.
    void copyPayload() { m_mode = PayloadMode::Copied; }

private:
    int m_kind;
    int m_number;
    int m_size;
    bool m_hasData;
    PayloadMode m_mode;
    const void* m_lent;
    mutable std::atomic<int> m_dataCalls{0};
    Bytes m_bytes;
    std::string m_sender;
};

// A command's reply: the reply message a handler returned, or bytes that a
// stand-in responder produced.
class HostResponse final : public kpf::IResponse
{
public:
    explicit HostResponse(std::unique_ptr<HostMessage> reply);
    explicit HostResponse(Bytes bytes);

    void reservedSlot0() override {}
    const void* data() const override;
    int size() const override;
    // The bytes the reply carries (none where its data is null).
    const Bytes& payload() const { return m_reply ? m_reply->bytes() : m_bytes; }

private:
    std::unique_ptr<HostMessage> m_reply;
    Bytes m_bytes;
};

// Owns every live message and response; lets tests see leaks and lets
// release() take an untyped address.
class ObjectStore
{
public:
    kpf::IMessage* adopt(std::unique_ptr<HostMessage> message);
    kpf::IResponse* adopt(std::unique_ptr<HostResponse> response);

    // Hands a live message back to the caller, or null if it is not ours.
    std::unique_ptr<HostMessage> take(const kpf::IMessage* message);
    HostMessage* find(const kpf::IMessage* message) const;
    enum class Released { Nothing, Message, Response };
    // Frees a message or a response; Nothing if the address is not ours.
    Released release(const void* object);

    std::size_t liveCount() const;

private:
    mutable std::mutex m_mutex;
    std::unordered_map<const void*, std::unique_ptr<HostMessage>> m_messages;
    std::unordered_map<const void*, std::unique_ptr<HostResponse>> m_responses;
};

} // namespace host
} // namespace edidvm
